import assert from "node:assert/strict";
import { describe, it } from "node:test";
import { parseContextText } from "../../src/analysis/contextText.ts";
import { contextText } from "../support/observedFrames.ts";

describe("parseContextText", () => {
  it("allLines_areRead", () => {
    const text = contextText({
      app: "Google Chrome",
      website: "github.com",
      page: "Issues",
      window: "Issues - Google Chrome",
      focus: "text area",
    });
    assert.deepEqual(parseContextText(text), {
      app: "Google Chrome",
      website: "github.com",
      page: "Issues",
      window: "Issues - Google Chrome",
    });
  });

  it("textWithoutHeading_isTheApplicationsName", () => {
    assert.equal(parseContextText("XTerm")?.app, "XTerm");
    assert.equal(parseContextText("XTerm")?.window, undefined);
  });

  it("absentEmptyOrBlankText_hasNoFacts", () => {
    for (const text of [
      undefined,
      "",
      " \n ",
      "\u200b",
      "Active context:",
      "Active context:\n- ",
    ]) {
      assert.equal(parseContextText(text), undefined, JSON.stringify(text));
    }
  });

  it("missingApp_leavesTheOtherFacts", () => {
    assert.deepEqual(parseContextText("Active context:\n- Page: Home"), {
      app: undefined,
      website: undefined,
      page: "Home",
      window: undefined,
    });
  });

  it("titleThatLooksLikeALine_isStillItsValue", () => {
    const facts = parseContextText("Active context:\n- App: A\n- Window: - App: B");
    assert.equal(facts?.app, "A");
    assert.equal(facts?.window, "- App: B");
  });

  it("repeatedLine_firstCounts", () => {
    assert.equal(parseContextText("Active context:\n- App: A\n- App: B")?.app, "A");
  });

  it("unknownLines_areIgnored", () => {
    assert.deepEqual(parseContextText("Active context:\nprose\n- App: A\n- Mood: fine"), {
      app: "A",
      website: undefined,
      page: undefined,
      window: undefined,
    });
  });
});
