import { join } from "node:path";
import { parseJson } from "../json/value.ts";
import { writeJson } from "../json/writer.ts";
import { parseRecord } from "../wire/schema.ts";
import { type Disk, unlessMissing } from "./disk.ts";
import { chunkFileName, cursorFileName, frameListName, type SpoolLayout } from "./layout.ts";
import { BatchHeader, type Chunk, Cursor, isAfter, type Session, SpooledFrame } from "./records.ts";

/** The frames of one batch, and the session that they are of. */
export interface Batch {
  readonly session: Session;
  readonly frames: SpooledFrame[];
}

/** Throws the error of the disk, which may pass; any other means that the list is damaged. */
export async function readBatch(disk: Disk, folder: string): Promise<Batch> {
  const text = await disk.readText(join(folder, frameListName));
  const [header = "", ...lines] = text.split("\n").filter((line) => line !== "");
  const { session } = parseRecord(BatchHeader, parseJson(header));
  const frames = lines.map((line) => parseRecord(SpooledFrame, parseJson(line)));
  return { session, frames };
}

/**
 * Makes a waiting chunk of a batch that the disk keeps back, so that what follows it need not wait, and
 * nobody takes it for done. Frames up to the cursor are in chunks already.
 */
export async function holdBatch(
  disk: Disk,
  layout: SpoolLayout,
  batch: number,
  chunk: number,
  cursor: Cursor | undefined,
): Promise<void> {
  const folder = layout.batch(batch);
  if (cursor?.batch === batch) {
    await disk.replaceFile(join(folder, cursorFileName), writeJson(cursor));
  }
  await disk.move(folder, layout.chunk(chunk));
}

/** The chunk that a held batch is, now that it can be read. Throws as `readBatch`. */
export async function chunkOfBatch(disk: Disk, folder: string, id: number): Promise<Chunk> {
  const { session, frames } = await readBatch(disk, folder);
  const text = await unlessMissing(disk.readText(join(folder, cursorFileName)), undefined);
  const cursor = text === undefined ? undefined : parseRecord(Cursor, parseJson(text));
  const chunk: Chunk = {
    version: 1,
    id,
    session,
    stoppedAtMs: undefined,
    through: cursor ?? { batch: -1, frame: -1 },
    isLate: true,
    gaps: undefined,
    frames: frames.filter((frame) => cursor === undefined || isAfter(frame, cursor)),
  };
  await disk.replaceFile(join(folder, chunkFileName), writeJson(chunk));
  return chunk;
}
