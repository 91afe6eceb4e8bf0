import { describeFailure } from "../base/failure.ts";
import { FrameReader } from "../frames/frameReader.ts";
import type { BatchWriter, LostPictures } from "../spool/batchWriter.ts";
import type { SpooledFrame } from "../spool/records.ts";

/**
 * Reads a body into the batch and commits it; a body without frames commits nothing, and the batch is
 * the caller's to abandon, as it is after an error.
 */
export async function writeBatch(
  body: AsyncIterable<Uint8Array>,
  batch: BatchWriter,
): Promise<readonly SpooledFrame[]> {
  const reader = new FrameReader();
  let frameCount = 0;
  for await (const piece of body) {
    for (const part of reader.push(piece)) {
      await batch.take(part);
      if (part.kind === "frame") frameCount += 1;
    }
  }
  reader.end();
  return frameCount > 0 ? batch.commit() : [];
}

/** What the status says of pictures that found no room; undefined when all did. */
export function lostPicturesSentence(lost: LostPictures | undefined): string | undefined {
  if (lost === undefined) return undefined;
  const { count, reason } = lost;
  const what = count === 1 ? "A picture can't be kept" : `${count} pictures can't be kept`;
  return `${describeFailure(what, reason)}. The texts are kept.`;
}
