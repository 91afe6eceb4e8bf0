import { join } from "node:path";
import { writeJson } from "../json/writer.ts";
import { type Disk, replacementOf } from "./disk.ts";
import { chunkFileName, resultFileName } from "./layout.ts";
import { type Chunk, pictureName, type SpooledFrame } from "./records.ts";

/**
 * Takes frames out of the chunk in the folder, durably, with their pictures, and resolves with what is
 * left of it. The record is written last, so that a kill in between leaves frames that are found again.
 */
export async function leaveFramesOut(
  disk: Disk,
  folder: string,
  chunk: Chunk,
  goes: (frame: SpooledFrame) => boolean,
): Promise<Chunk> {
  const gone = chunk.frames.filter(goes);
  if (gone.length === 0) return chunk;
  for (const frame of gone) {
    if (frame.pictureBytes > 0) await disk.remove(join(folder, pictureName(frame)));
  }
  // By their identity, because what is asked may depend on the time.
  const goneOnes = new Set(gone);
  const rest = { ...chunk, frames: chunk.frames.filter((frame) => !goneOnes.has(frame)) };
  await disk.replaceFile(join(folder, chunkFileName), writeJson(rest));
  return rest;
}

/** Removes what was answered about a chunk for which nobody waits any more, also what a kill has left. */
export async function removeAnswers(disk: Disk, folder: string): Promise<void> {
  const answer = join(folder, resultFileName);
  for (const path of [answer, replacementOf(answer)]) await disk.remove(path);
}
