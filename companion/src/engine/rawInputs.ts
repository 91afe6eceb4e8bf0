import { join } from "node:path";
import * as z from "zod/mini";
import { errorCode } from "../base/failure.ts";
import { writeJson } from "../json/writer.ts";
import type { Disk } from "../spool/disk.ts";
import type { SpoolLayout } from "../spool/layout.ts";
import { type Chunk, extentOf, pictureName, TimeRange } from "../spool/records.ts";

/** Says of when the folder's contents are, for whoever has that time forgotten. */
export const rawRecordName = "time.json";
/** Quotes the journal's last lines. */
export const requestFileName = "request.json";
export const RawRecord = z.object({ version: z.literal(1), extent: TimeRange });

/** Keeps the last request about a chunk, beside the pictures that it names. */
export async function saveRequest(
  disk: Disk,
  directory: string,
  chunkId: number,
  request: string,
): Promise<void> {
  const folder = join(directory, String(chunkId));
  await disk.makeFolder(folder);
  await disk.replaceFile(join(folder, requestFileName), request);
}

/**
 * Keeps what an analyser was shown of a chunk: `<directory>/<chunk id>/` with each picture and,
 * under the same name ending in .txt, the context text of its frame. May be repeated.
 */
export async function saveRawInputs(
  disk: Disk,
  layout: SpoolLayout,
  directory: string,
  chunk: Chunk,
): Promise<void> {
  const extent = extentOf(chunk.frames);
  if (extent === undefined) return;
  const folder = join(directory, String(chunk.id));
  await disk.makeFolder(folder);
  await disk.replaceFile(join(folder, rawRecordName), writeJson({ version: 1, extent }));
  for (const frame of chunk.frames) {
    const name = pictureName(frame);
    if (frame.text !== undefined) {
      await disk.replaceFile(join(folder, `${frame.batch}-${frame.frame}.txt`), frame.text);
    }
    if (frame.pictureBytes === 0) continue;
    try {
      await disk.copy(join(layout.chunk(chunk.id), name), join(folder, name));
    } catch (error) {
      // The quota may have taken the picture.
      if (errorCode(error) !== "ENOENT") throw error;
    }
  }
}
