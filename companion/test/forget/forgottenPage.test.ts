import assert from "node:assert/strict";
import { describe, it } from "node:test";
import { pageWithout } from "../../src/journal/forgottenPage.ts";

const title = "# 2026-11-21, Saturday\n\n";
const heading = (id: string) => `## Session ${id}\nstart_time: 2026-11-21T09:00:00+01:00\n\n`;
const line = (atMs: number) => `- [09:00] [App] Did ${atMs} <!-- key:${atMs}-1-0 -->\n`;
const range = { fromMs: 100, toMs: 200 };

function rest(page: string): string {
  return pageWithout(page, range).rest;
}

describe("a page without a time", () => {
  it("ownLines_ofThatTime_goAndOthersStay", () => {
    const page = title + heading("a") + line(99) + line(100) + line(200) + line(201);
    assert.deepEqual(pageWithout(page, range), {
      rest: title + heading("a") + line(99) + line(201),
      count: 2,
    });
  });

  it("emptiedSession_losesItsHeading", () => {
    const page = `${title + heading("a") + line(99)}\n${heading("b")}${line(150)}`;
    assert.equal(rest(page), title + heading("a") + line(99), "and the blank line before it");
    const first = `${title + heading("b") + line(150)}\n${heading("a")}${line(99)}`;
    assert.equal(rest(first), title + heading("a") + line(99));
  });

  it("handWrittenLines_stayWithTheirHeading", () => {
    const own = "- [09:00] coffee\n";
    const page = title + heading("a") + line(150) + own;
    assert.equal(rest(page), title + heading("a") + own);
    assert.equal(rest(`my words\n\n${heading("a")}${line(150)}`), "my words\n");
  });

  it("sessionThatWasEmptyBefore_isNotTouched", () => {
    const page = title + heading("a") + heading("b") + line(150);
    assert.equal(rest(page), title + heading("a").slice(0, -1));
  });

  it("dayOfNothingElse_isEmpty", () => {
    assert.equal(rest(title + heading("a") + line(150)), "");
    assert.equal(rest(`# My day\n\n${heading("a")}${line(150)}`), "# My day\n");
  });

  it("nothingOfThatTime_isTheSamePage", () => {
    const page = `${title}no line end`;
    assert.deepEqual(pageWithout(page, range), { rest: page, count: 0 });
  });

  it("foreignLineEndsAndUnfinishedLines_areKept", () => {
    const page = `${title}${heading("a")}${line(150).replace("\n", "\r\n")}note\r\nno line end`;
    assert.equal(rest(page), `${title}${heading("a")}note\r\nno line end`);
  });
});
