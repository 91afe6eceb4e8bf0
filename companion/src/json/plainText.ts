const quote = 0x22;
const backslash = 0x5c;
const firstCharacter = 0x20;

const ones = 0x01010101;
const highBits = 0x80808080;
const quotes = quote * ones;
const backslashes = backslash * ones;
const spaces = firstCharacter * ones;

/** Whether one of the word's four bytes ends plain text. */
function hasEnd(word: number): boolean {
  const quoteIsZero = word ^ quotes;
  const backslashIsZero = word ^ backslashes;
  const ends =
    ((quoteIsZero - ones) & ~quoteIsZero) |
    ((backslashIsZero - ones) & ~backslashIsZero) |
    ((word - spaces) & ~word);
  return (ends & highBits) !== 0;
}

function isEnd(byte: number): boolean {
  return byte === quote || byte === backslash || byte < firstCharacter;
}

/**
 * The index of the first quotation mark, backslash or control character at or after `start`, or
 * the chunk's length. Pictures are megabytes of plain text, so four bytes are looked at at once.
 */
export function plainTextEnd(chunk: Uint8Array, start: number): number {
  let index = start;
  while (index < chunk.length && (chunk.byteOffset + index) % 4 !== 0) {
    if (isEnd(chunk[index] ?? 0)) return index;
    index += 1;
  }
  if (index === chunk.length) return index;
  const wordCount = Math.floor((chunk.length - index) / 4);
  const words = new Uint32Array(chunk.buffer, chunk.byteOffset + index, wordCount);
  let word = 0;
  while (word < wordCount && !hasEnd(words[word] ?? 0)) word += 1;
  index += word * 4;
  while (index < chunk.length && !isEnd(chunk[index] ?? 0)) index += 1;
  return index;
}
