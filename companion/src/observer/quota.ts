import type { Chunker } from "../spool/chunker.ts";
import type { Disk } from "../spool/disk.ts";
import type { SpoolLayout } from "../spool/layout.ts";
import type { PictureStore } from "../spool/pictureStore.ts";

export interface QuotaDependencies {
  readonly disk: Disk;
  readonly layout: SpoolLayout;
  /** How many bytes of pictures may wait, given the bytes that are free without them. */
  quotaBytes(freeBytes: number): number;
}

/**
 * Thins the waiting pictures until they fit, those of the open chunk counted. Only closed chunks
 * can be thinned, and the settings may make one of an hour, so `closeOpen` is called where the open
 * one is too large by itself. Resolves with how many chunks lost pictures.
 */
export async function keepQuota(
  { disk, layout, quotaBytes }: QuotaDependencies,
  pictures: PictureStore,
  chunker: Chunker | undefined,
  closeOpen: () => Promise<void>,
): Promise<number> {
  // Somebody may have deleted the folder under us.
  await disk.makeFolder(layout.root);
  const looseBytes = () => chunker?.pictureBytes ?? 0;
  const free = (await disk.freeBytes(layout.root)) + pictures.bytes + looseBytes();
  const quota = quotaBytes(free);
  if (looseBytes() > quota) await closeOpen();
  return pictures.shrinkTo(Math.max(0, quota - looseBytes()));
}

export function thinnedSentence(chunkCount: number): string {
  const chunks = chunkCount === 1 ? "1 waiting chunk were" : `${chunkCount} waiting chunks were`;
  return `The space for waiting pictures is used up: pictures of ${chunks} removed, their texts are kept. Delete some files on that disk to make room, or mend what the queue waits for.`;
}
