import assert from "node:assert/strict";
import { readFileSync } from "node:fs";
import { join } from "node:path";
import { describe, it } from "node:test";
import { PrivacyRules } from "../../src/privacy/privacyRules.ts";
import { titlePattern } from "../../src/privacy/titlePatterns.ts";
import { TitleSearch } from "../../src/privacy/titleSearch.ts";
import { windowOf } from "../support/frames.ts";

declare const TEST_FIXTURES_PATH: string;

interface Case {
  readonly pattern: string;
  readonly title: string;
  readonly found: boolean;
}

/** One for which there are as many ways to fail as there are sums of the title's length. */
const endless = "^(a+)+$";
const undecidable = (length: number) => `${"a".repeat(length)}!`;

function searchFor(...patterns: readonly string[]): TitleSearch {
  return new TitleSearch(patterns.map(titlePattern));
}

/** How often something else had its turn while the task ran. */
async function turnsOfOthers(task: Promise<unknown>): Promise<number> {
  let turns = 0;
  const beat = setInterval(() => {
    turns += 1;
  }, 1);
  await task;
  clearInterval(beat);
  return turns;
}

describe("title patterns", () => {
  const fixture = readFileSync(join(TEST_FIXTURES_PATH, "title-patterns.json"), "utf8");
  for (const { pattern, title, found } of JSON.parse(fixture) as Case[]) {
    it(`pattern_${pattern}_in_${JSON.stringify(title)}_meansWhatItMeansInTheApplication`, async () => {
      assert.equal(await searchFor(pattern).isFound(title), found);
    });
  }

  it("pattern_thatOnlyTheApplicationUnderstands_isRefusedAndNotMisread", () => {
    const others = ["(?>a)", "a++", "[[:alpha:]]", "\\Qx\\E", "(?x) a", "(?P<n>a)"];
    for (const pattern of [...others, "[a-\\s]", "[\\h-z]", "[\\S]"]) {
      assert.throws(() => titlePattern(pattern), SyntaxError, pattern);
    }
  });

  it("endlessTitle_isSearchedAtBothEnds", async () => {
    const page = "x".repeat(1_000_000);
    assert.ok(await searchFor("Private$").isFound(`${page} Private`));
    assert.ok(!(await searchFor("Private").isFound(`${page} Private ${page}`)));
  });
});

describe("a pattern that searches for ever", () => {
  it("title_isGivenUpAndCountsAsFound_andNothingElseWaitsForIt", async () => {
    const search = searchFor("^b", endless);
    const finding = search.isFound(undecidable(2_000));
    const turns = await turnsOfOthers(finding);
    assert.equal(await finding, true);
    assert.deepEqual(search.givenUp, [2]);
    // Of the second that it takes; if the search held everything up there would be two at most.
    assert.ok(turns > 10, `${turns} turns`);
  });

  it("titles_onWhichItIsQuick_areDecidedAsBefore", async () => {
    const search = searchFor(endless, "Diary");
    for (const length of [2_000, 2_001, 2_002]) {
      assert.ok(await search.isFound(undecidable(length)));
    }
    assert.equal(await search.isFound("notes.txt"), false);
    assert.equal(await search.isFound("aaa"), true);
    assert.equal(await search.isFound("My Diary"), true);
  });

  it("titleThatOnlyTakesLong_isDecided", async () => {
    // Twice as long for each letter: with 17 it takes some 15 ms.
    const search = searchFor(endless);
    assert.equal(await search.isFound(undecidable(17)), false);
    assert.deepEqual(search.givenUp, []);
  });

  it("rules_sayWhichEntryItIs", async () => {
    const titles = [titlePattern("Diary"), titlePattern(endless)];
    const rules = new PrivacyRules({ applications: [], windowClasses: [], titles, sites: [] });
    assert.equal(await rules.excludes(windowOf("Editor", "notes")), false);
    assert.equal(rules.complaint, undefined);
    assert.equal(await rules.excludes(windowOf("Editor", undecidable(2_000))), true);
    assert.match(rules.complaint ?? "", /entry 2 of excludedTitlePatterns .*within a second/);
  });
});
