export interface Block {
  readonly bytes: Buffer;
  readonly isLast: boolean;
}

/**
 * Cuts pieces of any size into blocks of one size. The last one may be shorter; it is empty only
 * where there is nothing at all.
 */
export async function* blocksOf(
  pieces: AsyncIterable<Uint8Array>,
  size: number,
): AsyncGenerator<Block> {
  let held: Uint8Array[] = [];
  let length = 0;
  for await (const piece of pieces) {
    held.push(piece);
    length += piece.length;
    if (length <= size) continue;
    const bytes = Buffer.concat(held, length);
    let start = 0;
    // One byte has to stay behind: only the end tells which block is the last.
    for (; length - start > size; start += size) {
      yield { bytes: bytes.subarray(start, start + size), isLast: false };
    }
    held = [bytes.subarray(start)];
    length -= start;
  }
  yield { bytes: Buffer.concat(held, length), isLast: true };
}
