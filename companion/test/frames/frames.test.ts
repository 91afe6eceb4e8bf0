import assert from "node:assert/strict";
import { it } from "node:test";
import { Base64Decoder, Base64Error } from "../../src/frames/base64.ts";
import { FrameReader, type FrameRecord } from "../../src/frames/frameReader.ts";
import { JsonError } from "../../src/json/tokenizer.ts";
import { InvalidRecord } from "../../src/wire/schema.ts";
import { framePayload, tinyPicture } from "../support/payloads.ts";

function decode(text: string, size: number): Buffer {
  const decoder = new Base64Decoder();
  const parts: Buffer[] = [];
  const bytes = Buffer.from(text);
  for (let start = 0; start < bytes.length; start += size) {
    parts.push(Buffer.from(decoder.push(bytes.subarray(start, start + size))));
  }
  parts.push(Buffer.from(decoder.end()));
  return Buffer.concat(parts);
}

it("base64_anyLengthInAnyPieces_isDecoded", () => {
  for (let length = 0; length < 40; length += 1) {
    const bytes = Buffer.from(Array.from({ length }, (_, index) => (index * 37 + 200) % 256));
    for (const size of [1, 2, 3, 4, 5, 7, 100]) {
      assert.deepEqual(decode(bytes.toString("base64"), size), bytes);
    }
  }
});

for (const text of [
  "A",
  "AA",
  "AAA",
  "AA=",
  "A===",
  "====",
  "AA=A",
  "AAAA=",
  "AA==AA==",
  "A A A",
  "AA-_",
  "AA\n=",
]) {
  it(`base64_fault_isRefused: ${JSON.stringify(text)}`, () => {
    for (const size of [1, 3, 100]) assert.throws(() => decode(text, size), Base64Error);
  });
}

it("base64_anyByteInALongText_isRefusedUnlessItIsOfTheAlphabet", () => {
  for (let byte = 0; byte < 256; byte += 1) {
    const character = String.fromCharCode(byte);
    const isDigit = /[A-Za-z0-9+/]/.test(character);
    for (const position of [0, 1, 2, 3, 30, 63]) {
      const text = "A".repeat(position) + character + "A".repeat(63 - position);
      const isPadding = character === "=" && position === 63;
      const decodes = () => decode(text, 64);
      if (isDigit || isPadding) assert.deepEqual(decodes(), Buffer.from(text, "base64"));
      else assert.throws(decodes, Base64Error, `byte ${byte} at ${position}`);
    }
  }
});

it("base64_decoderAfterAnEnd_beginsAnew", () => {
  const decoder = new Base64Decoder();
  decoder.push(Buffer.from("QQ=="));
  assert.deepEqual([...decoder.end()], [0x41]);
  decoder.push(Buffer.from("QUJD"));
  assert.deepEqual([...decoder.end()], [0x41, 0x42, 0x43]);
  assert.deepEqual([...decoder.end()], []);
});

it("base64_longText_isHandedOutInBlocks", () => {
  const bytes = Buffer.from(Array.from({ length: 1_000_000 }, (_, index) => (index * 7919) >> 3));
  const text = Buffer.from(bytes.toString("base64"));
  const decoder = new Base64Decoder();
  const parts: Buffer[] = [];
  for (let start = 0; start < text.length; start += 10_001) {
    const part = decoder.push(text.subarray(start, start + 10_001));
    if (part.length > 0) parts.push(Buffer.from(part));
  }
  parts.push(Buffer.from(decoder.end()));
  assert.equal(parts.length, 4);
  assert.deepEqual(Buffer.concat(parts), bytes);
});

/** Each frame with the base64 text that came before it. */
function read(text: string, size = 7): { record: FrameRecord; base64: string }[] {
  const reader = new FrameReader();
  const frames: { record: FrameRecord; base64: string }[] = [];
  let base64 = "";
  const bytes = Buffer.from(text);
  for (let start = 0; start < bytes.length; start += size) {
    for (const part of reader.push(bytes.subarray(start, start + size))) {
      if (part.kind === "picturePart") base64 += Buffer.from(part.base64).toString();
      if (part.kind !== "frame") continue;
      frames.push({ record: part.record, base64 });
      base64 = "";
    }
  }
  reader.end();
  return frames;
}

it("frameReader_bodyInPiecesOfAnySize_givesEachFrameWithItsPicture", () => {
  const frames = [
    framePayload(1, { text: 'é " \\ \n' }),
    framePayload(2, { videoBase64: "QUJD", displayId: "2" }),
    framePayload(3, { videoBase64: "" }),
  ];
  const text = JSON.stringify({ before: [{ frames: 1 }], frames, after: "x" });
  for (let size = 1; size < 40; size += 1) {
    const got = read(text, size);
    assert.deepEqual(
      got.map((frame) => frame.base64),
      [tinyPicture, "QUJD", ""],
    );
    assert.deepEqual(
      got.map((frame) => frame.record.receivedAtMs),
      [1, 2, 3],
    );
    assert.equal(got[0]?.record.text, 'é " \\ \n');
    assert.equal(got[1]?.record.text, undefined);
  }
});

it("frameReader_escapedSlashesInThePicture_areSlashes", () => {
  const text = JSON.stringify({ frames: [framePayload(1)] }).replaceAll("/9j/", "\\/9j\\u002f");
  assert.equal(read(text)[0]?.base64, tinyPicture);
});

it("frameReader_integersOf64Bits_areExact", () => {
  const text = JSON.stringify({ frames: [framePayload(1)] }).replace(
    '"frameIndex":0',
    '"frameIndex":9223372036854775807',
  );
  assert.equal(read(text)[0]?.record.frameIndex, 9223372036854775807n);
});

it("frameReader_noFrames_isAnEmptyBatch", () => {
  assert.deepEqual(read('{"frames":[]}'), []);
});

it("frameReader_endlessText_isCutBetweenTwoCharacters", () => {
  for (const [start, kept] of [
    ["", 5461],
    ["a", 5461],
    ["ab", 5460],
  ] as const) {
    const text = JSON.stringify({
      frames: [framePayload(1, { text: start + "€".repeat(50_000) })],
    });
    for (const size of [7, 65_536]) {
      assert.equal(read(text, size)[0]?.record.text, start + "€".repeat(kept));
    }
  }
});

const frame = (fields: Record<string, unknown>) =>
  JSON.stringify({ frames: [framePayload(1), { ...framePayload(2), ...fields }] });
const invalid: readonly (readonly [name: string, body: string, path: string])[] = [
  ["bodyOfAnotherType", "[]", ""],
  ["framesMissing", "{}", "frames"],
  ["framesNull", '{"frames":null}', "frames"],
  ["framesOfAnotherType", '{"frames":{}}', "frames"],
  ["framesTwice", '{"frames":[],"frames":[]}', "frames"],
  ["frameOfAnotherType", '{"frames":[1]}', "frames.0"],
  ["frameNull", '{"frames":[null]}', "frames.0"],
  ["pictureMissing", frame({ videoBase64: undefined }), "frames.1.videoBase64"],
  ["pictureNull", frame({ videoBase64: null }), "frames.1.videoBase64"],
  ["pictureOfAnotherType", frame({ videoBase64: [] }), "frames.1.videoBase64"],
  ["timeOfAnotherType", frame({ receivedAtMs: "1" }), "frames.1.receivedAtMs"],
  ["indexWithAFraction", frame({ frameIndex: 1.5 }), "frames.1.frameIndex"],
  ["displayMissing", frame({ displayId: undefined }), "frames.1.displayId"],
  ["textOfAnotherType", frame({ text: { a: [1] } }), "frames.1.text"],
];
for (const [name, text, path] of invalid) {
  it(`frameReader_${name}_isRefusedWithItsPath`, () => {
    assert.throws(
      () => read(text),
      (error) => error instanceof InvalidRecord && error.path === path,
    );
  });
}

it("frameReader_bodyThatEndsEarly_isNoJson", () => {
  const text = JSON.stringify({ frames: [framePayload(1), framePayload(2)] });
  for (let length = 0; length < text.length; length += 1) {
    assert.throws(() => read(text.slice(0, length)), JsonError);
  }
});
