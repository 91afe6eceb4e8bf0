import assert from "node:assert/strict";
import { it } from "node:test";
import { JsonError, JsonTokenizer } from "../../src/json/tokenizer.ts";
import { parseJson, ValueBuilder } from "../../src/json/value.ts";
import { writeJson } from "../../src/json/writer.ts";

/** Parses in pieces of the size. */
function parseInPieces(text: string, size: number): unknown {
  const tokenizer = new JsonTokenizer();
  const builder = new ValueBuilder();
  const bytes = Buffer.from(text);
  for (let start = 0; start < bytes.length; start += size) {
    for (const event of tokenizer.push(bytes.subarray(start, start + size))) builder.push(event);
  }
  for (const event of tokenizer.end()) builder.push(event);
  return builder.result;
}

const samples = [
  "null",
  " true ",
  "-12.5e-3",
  '"a\\u00e9\\ud83d\\ude00\\n\\/ é😀"',
  "[]",
  "{}",
  '[1,"x",[null,{"a":[false]}],0.5]',
  '{"a":{"b":[1,2,{"c":"d"}]},"":"empty","é":1}',
  '{"\\u0061":1}',
];

for (const text of samples) {
  it(`parser_sampleInPiecesOfAnySize_agreesWithThePlatform: ${text}`, () => {
    for (let size = 1; size <= text.length + 1; size += 1) {
      const value = parseInPieces(text, size);
      assert.deepEqual(JSON.parse(writeJson(value)), JSON.parse(text));
    }
  });
}

const faults = [
  "",
  "nul",
  "nulls",
  "truefalse",
  "tru e",
  "01",
  "1.",
  ".5",
  "+1",
  "1e",
  "--1",
  "1-1",
  "[1,]",
  "[,1]",
  "[1 2]",
  "[1",
  "]",
  "}",
  '{"a"}',
  '{"a":}',
  '{"a":1,}',
  "{a:1}",
  '{"a":1]',
  '"a',
  '"\\x"',
  '"\\u12g4"',
  '"\u0001"',
  "1 1",
  "{} {}",
  "\ufeff1",
];

for (const text of faults) {
  it(`parser_fault_isRefused: ${JSON.stringify(text)}`, () => {
    assert.throws(() => JSON.parse(text));
    for (const size of [1, 2, 3, 100]) assert.throws(() => parseInPieces(text, size), JsonError);
  });
}

it("parser_integersOf64Bits_areExact", () => {
  assert.equal(parseJson("9223372036854775807"), 9223372036854775807n);
  assert.equal(parseJson("-9223372036854775808"), -9223372036854775808n);
  assert.equal(parseJson("9007199254740993"), 9007199254740993n);
  assert.equal(parseJson("9007199254740991"), 9007199254740991);
});

it("parser_integersBeyond64Bits_areDoubles", () => {
  assert.equal(parseJson("9223372036854775808"), 2 ** 63);
  assert.equal(parseJson("-9223372036854775809"), -(2 ** 63));
});

it("parser_zeroFraction_isAnInteger", () => {
  assert.equal(parseJson("20000.0"), 20000);
  assert.equal(parseJson("9007199254740993.00"), 9007199254740993n);
  assert.equal(parseJson("-0.0"), 0);
});

it("parser_keyThatOccursTwice_hasTheLastValue", () => {
  assert.equal(writeJson(parseJson('{"a":1,"b":2,"a":3}')), '{"a":3,"b":2}');
});

it("parser_keyOfThePrototype_isAKeyLikeAnyOther", () => {
  const value = parseJson('{"__proto__":{"polluted":true}}') as { polluted?: unknown };
  assert.equal(value.polluted, undefined);
  assert.equal(writeJson(value), '{"__proto__":{"polluted":true}}');
});

it("parser_loneSurrogate_becomesTheReplacementCharacter", () => {
  assert.equal(parseJson('"a\\ud83db"'), "a\ufffdb");
  assert.equal(parseJson('"\\ude00"'), "\ufffd");
  assert.equal(parseJson('"\\ud83d\\ud83d\\ude00"'), "\ufffd\u{1f600}");
});

it("parser_bytesThatAreNotUtf8_areRefused", () => {
  assert.throws(() => parseJson(Buffer.from([0x22, 0xff, 0x22])), JsonError);
  assert.throws(
    () => parseJson(Buffer.from([0x7b, 0x22, 0xc3, 0x22, 0x3a, 0x31, 0x7d])),
    JsonError,
  );
});

it("parser_deepNesting_isRefused", () => {
  assert.doesNotThrow(() => parseJson("[".repeat(256) + "]".repeat(256)));
  assert.throws(() => parseJson("[".repeat(257) + "]".repeat(257)), JsonError);
});

it("parser_numberOfEndlessLength_isRefused", () => {
  assert.throws(() => parseJson("1".repeat(1025)), JsonError);
});

it("writer_bigint_isPrintedInFull", () => {
  assert.equal(
    writeJson({ a: 2n ** 63n - 1n, b: undefined, c: [1.5, null] }),
    '{"a":9223372036854775807,"c":[1.5,null]}',
  );
});

it("writer_valueWithoutAJsonForm_isRefused", () => {
  for (const value of [Number.NaN, Number.POSITIVE_INFINITY, () => 1, Symbol("s")]) {
    assert.throws(() => writeJson(value), TypeError);
  }
});
