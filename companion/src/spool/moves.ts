import { dirname, join } from "node:path";
import type { Disk } from "./disk.ts";
import { isUnfinished, type SpoolLayout, unfinished } from "./layout.ts";
import { type Chunk, pictureName } from "./records.ts";

/** Where chunks go whose lines stand in the journal. */
export interface FinishedChunks {
  /**
   * Takes the chunk's folder over by one durable rename, or leaves it to be thrown away: false.
   * Nothing there is no error. It may be asked for the same folder again after a failure.
   */
  take(folder: string): Promise<boolean>;
}

/** Nobody wants them. */
export const thrownAway: FinishedChunks = { take: async () => false };

/** The second half of closing a chunk; it may be repeated from any point at which it ended. */
export async function moveIntoPending(
  disk: Disk,
  layout: SpoolLayout,
  chunk: Chunk,
): Promise<void> {
  const folder = unfinished(layout.chunk(chunk.id));
  // Its name has to be durable before it is all that the pictures have.
  await disk.syncFolder(layout.pending);
  for (const frame of chunk.frames) {
    if (frame.pictureBytes === 0) continue;
    const name = pictureName(frame);
    await disk.moveIfThere(join(layout.batch(frame.batch), name), join(folder, name));
  }
  await disk.syncFolder(folder);
  await disk.move(folder, layout.chunk(chunk.id));
}

/** Hands a finished chunk on; throws away what nobody takes, and everything else. */
export async function release(
  disk: Disk,
  layout: SpoolLayout,
  folder: string,
  finished: FinishedChunks,
): Promise<void> {
  const isChunk = dirname(folder) === layout.pending && !isUnfinished(folder);
  if (isChunk && (await finished.take(folder))) return;
  await discard(disk, layout, folder);
}

/**
 * Removes a folder by way of the trash: deleting in place is not one step, and a kill in the
 * middle would leave something that looks like a chunk without its record; only an unfinished folder
 * never looks like one. Nothing there is no error.
 */
export async function discard(disk: Disk, layout: SpoolLayout, folder: string): Promise<void> {
  if (isUnfinished(folder)) {
    await disk.remove(folder);
    return;
  }
  const name = folder.slice(layout.root.length).replaceAll("/", "-").slice(1);
  const target = join(layout.trash, name);
  await disk.makeFolder(layout.trash);
  await disk.remove(target);
  if (!(await disk.moveIfThere(folder, target))) return;
  await disk.syncFolder(dirname(folder));
  await disk.remove(target);
}

/**
 * Keeps a folder that can't be used, out of everybody's way, for whoever wants to look at it.
 * Nothing there is no error.
 */
export async function setAside(
  disk: Disk,
  layout: SpoolLayout,
  folder: string,
  name: string,
): Promise<void> {
  await disk.makeFolder(layout.quarantine);
  if (!(await disk.moveIfThere(folder, join(layout.quarantine, name)))) return;
  await disk.syncFolder(layout.quarantine);
  await disk.syncFolder(dirname(folder));
}
