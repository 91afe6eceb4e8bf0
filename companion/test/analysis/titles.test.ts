import assert from "node:assert/strict";
import { describe, it } from "node:test";
import { builtInRules } from "../../src/analysis/builtInRules.ts";
import type { PlaceKind } from "../../src/analysis/rules.ts";
import { cleanTitle, titleIdentity } from "../../src/analysis/titles.ts";

const names = ["mousepad", ...builtInRules.titleSuffixes];
const clean = (raw: string, kind: PlaceKind) => cleanTitle(raw, kind, names);

describe("cleanTitle", () => {
  const texts: readonly (readonly [PlaceKind, string, string])[] = [
    ["page", "Inbox - Google Chrome", "Inbox"],
    ["page", "Inbox — Mozilla Firefox", "Inbox"],
    ["page", "Plan - Google Docs - Google Chrome", "Plan"],
    ["page", "(3) A song - YouTube", "A song"],
    ["page", "(99+) Feed", "Feed"],
    ["page", "(1,204) Feed", "Feed"],
    ["page", "(2024) A report", "(2024) A report"],
    ["page", "* general", "general"],
    ["page", "● live", "live"],
    ["page", "News and 3 more pages - Microsoft Edge", "News"],
    ["page", "Google Chrome", ""],
    ["page", "Chrome tips", "Chrome tips"],
    ["page", "gmail-export", "gmail-export"],
    ["mail", "Inbox (12) - jane@example.org - Gmail", "Inbox - jane@example.org"],
    ["mail", "(2) Inbox", "Inbox"],
    ["chat", "general (Channel) - Acme - 2 new items - Slack", "general (Channel) - Acme"],
    ["chat", "Discord | #general", "Discord | #general"],
    ["chat", "• #general | Acme - Discord", "#general | Acme"],
    ["terminal", "⠋ npm test", "npm test"],
    ["terminal", "⠹⠸ npm test", "npm test"],
    ["terminal", "✳ fixing", "fixing"],
    ["terminal", "notes — bash", "notes — bash"],
    ["terminal", "(2) window", "(2) window"],
    ["editor", "*Untitled 1 - Mousepad", "Untitled 1"],
    ["editor", "● queue.ts - observer - Visual Studio Code", "queue.ts - observer"],
    ["editor", "queue.ts - observer - Visual Studio Code - Insiders", "queue.ts - observer"],
    ["editor", "notes.txt * — Kate", "notes.txt"],
    ["editor", "notes.txt* — Kate", "notes.txt"],
    ["editor", "notes.txt [modified] — Kate", "notes.txt"],
    ["application", "*drawing.svg - Inkscape", "drawing.svg - Inkscape"],
    ["application", "*.txt", "*.txt"],
    ["application", "**bold**", "**bold**"],
    ["application", "Five stars *****", "Five stars *****"],
    ["application", "report.odt* — LibreOffice Writer", "report.odt"],
    ["application", "", ""],
    ["application", "⠋", ""],
  ];
  for (const [kind, raw, expected] of texts) {
    it(`${kind}_${JSON.stringify(raw)}_becomes_${JSON.stringify(expected)}`, () => {
      assert.equal(clean(raw, kind).text, expected);
    });
  }

  it("unsavedMark_ofAnEditor_isSeen", () => {
    for (const raw of [
      "*Untitled 1 - Mousepad",
      "● queue.ts - observer - Visual Studio Code",
      "notes.txt * — Kate",
      "notes.txt [modified] — Kate",
      "• notes.txt (~/docs) - Text Editor",
    ]) {
      assert.equal(clean(raw, "editor").unsaved, true, raw);
    }
    assert.equal(clean("Untitled 1 - Mousepad", "editor").unsaved, false);
  });

  it("sameMark_ofAPageChatMailOrTerminal_isNoUnsavedChange", () => {
    for (const kind of ["page", "chat", "mail", "terminal", "call"] as const) {
      for (const raw of ["* general", "• general", "● general", "general *", "a [modified]"]) {
        assert.equal(clean(raw, kind).unsaved, false, `${kind} ${raw}`);
      }
    }
  });

  it("longTitle_isCutTo140CodePointsWithoutSplittingAPair", () => {
    const { text } = clean("😀".repeat(10_000), "page");
    assert.equal(Array.from(text).length, 140);
    assert.equal(text, `${"😀".repeat(139)}…`);
    assert.equal(clean("😀".repeat(140), "page").text, "😀".repeat(140));
  });

  it("suffixAfterALongTitle_isStillStripped", () => {
    assert.equal(clean(`${"x".repeat(130)} - Google Chrome`, "page").text, "x".repeat(130));
  });

  it("nestedMarks_areStrippedUntilNoneIsLeft", () => {
    assert.equal(clean("⠋ (3) * (4) News - YouTube - Google Chrome", "page").text, "News");
  });

  it("aTitleOfTenThousandBlanksAndDashes_isQuick", () => {
    assert.equal(clean(" - ".repeat(10_000), "editor").text.startsWith("- -"), true);
    assert.equal(clean(" ".repeat(100_000), "editor").text, "");
  });
});

describe("titleIdentity", () => {
  it("progressAndRunningClocks_areTheSameTitle", () => {
    for (const [one, other] of [
      ["12% copying", "13% copying"],
      ["Copying 12.5 %", "Copying 99 %"],
      ["04:59 Focus", "04:58 Focus"],
      ["Recording 0:00:01", "Recording 0:01:12"],
      ["README.md", "readme.md"],
    ] as const) {
      assert.equal(titleIdentity(one), titleIdentity(other));
    }
  });

  it("otherFigures_makeAnotherTitle", () => {
    assert.notEqual(titleIdentity("Pull request #12"), titleIdentity("Pull request #13"));
    assert.notEqual(titleIdentity("100% cotton"), titleIdentity("cotton"));
  });
});
