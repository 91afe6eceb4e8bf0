import assert from "node:assert/strict";
import { describe, it } from "node:test";
import { bracketLabel, bulletLine, clip, plainLine } from "../../src/journal/bulletText.ts";
import { hostileText, Random } from "../support/random.ts";

describe("plainLine", () => {
  const table: readonly (readonly [string, string, string])[] = [
    ["lineBreaks_becomeBlanks", "a\nb\r\nc\u2028d\u2029e\u0085f\vg\fh", "a b c d e f g h"],
    ["controlCharacters_becomeBlanks", "a\0b\u0007c\u009fd", "a b c d"],
    ["blanks_areCollapsed", " \u00a0a \u3000\t b ", "a b"],
    ["bidiControls_areDropped", "\u202eevil\u202c \u2066x\u2069\u200f\u061c", "evil x"],
    ["zeroWidthAndBom_areDropped", "a\u200bb\u2060c\u00ad", "abc"],
    ["joinersOfAnEmoji_stay", "👩‍👩‍👧", "👩‍👩‍👧"],
    ["joinersAlone_areNothing", "\u200d \u200c", ""],
    ["commentMarks_areDropped", "a <!-- b --> c", "a b c"],
    ["commentMarkHiddenByAnInvisible_isDropped", "a <!\u200b-- b -\u200e-> c", "a b c"],
    ["commentMarkInACommentMark_leavesNone", "<!<!---- x --->> y", "<! -- x - > y"],
    ["bangedEndOfComment_isDropped", "a --!> b", "a b"],
    ["loneSurrogates_areReplaced", "a\ud83d b\ude00", "a\ufffd b\ufffd"],
    ["pairs_stay", "😀", "😀"],
    ["rightToLeftText_stays", "שלום עולם", "שלום עולם"],
    ["nothing_isNothing", " \n\u202e<!---->", ""],
  ];
  for (const [name, text, expected] of table) {
    it(name, () => {
      assert.equal(plainLine(text), expected);
    });
  }

  it("anyText_isStableAndWithoutMarks", () => {
    const random = new Random(1);
    for (let round = 0; round < 5000; round += 1) {
      const text = hostileText(random);
      const line = plainLine(text);
      assert.equal(plainLine(line), line, JSON.stringify(text));
      assert.doesNotMatch(line, /<!--|-->|[\p{Cc}\p{Zl}\p{Zp}\p{Cs}]|^\s|\s$|\s\s/u);
      assert.equal(bulletLine(bulletLine(text)), bulletLine(text));
    }
  });
});

describe("clip", () => {
  it("shortText_isWhole", () => {
    assert.equal(clip("😀😀", 2), "😀😀");
  });

  it("longText_endsWithAnEllipsisWithinTheLimit", () => {
    assert.equal(clip("abcdef", 3), "ab…");
    assert.equal(clip("😀😀😀", 2), "😀…");
    assert.equal(clip("ab  cdef", 5), "ab…");
  });

  it("cutAtAJoiner_leavesNone", () => {
    assert.equal(clip("👩\u200d👩\u200d👧", 3), "👩…");
  });
});

describe("bracketLabel", () => {
  it("brackets_areDropped", () => {
    assert.equal(bracketLabel("a] [b"), "a b");
    assert.equal(bracketLabel("[]"), "");
    assert.equal(bracketLabel("<![--"), "<! --");
  });

  it("length_isBounded", () => {
    assert.equal(Array.from(bracketLabel("x".repeat(500))).length, 60);
  });
});
