import assert from "node:assert/strict";
import { it } from "node:test";
import { plainTextEnd } from "../../src/json/plainText.ts";

function endsText(byte: number): boolean {
  return byte === 0x22 || byte === 0x5c || byte < 0x20;
}

it("plainTextEnd_anyByteAnywhere_endsTheTextOnlyWhereItMust", () => {
  for (const plain of [0x20, 0x7f, 0x80, 0xff]) {
    for (let byte = 0; byte < 256; byte += 1) {
      for (let position = 0; position < 13; position += 1) {
        const bytes = new Uint8Array(13).fill(plain);
        bytes[position] = byte;
        assert.equal(plainTextEnd(bytes, 0), endsText(byte) ? position : 13);
      }
    }
  }
});

it("plainTextEnd_anyStartInAnyPartOfABuffer_isFoundAfterTheStart", () => {
  const whole = Buffer.from('""abcdefghijklmno"pq"');
  for (let offset = 0; offset < 8; offset += 1) {
    const part = whole.subarray(offset);
    for (let start = 0; start <= part.length; start += 1) {
      const index = part.findIndex((byte, at) => at >= start && byte === 0x22);
      assert.equal(plainTextEnd(part, start), index < 0 ? part.length : index);
    }
  }
});
