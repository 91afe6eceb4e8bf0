import assert from "node:assert/strict";
import { describe, it } from "node:test";
import { builtInRules } from "../../src/analysis/builtInRules.ts";
import { analyseChunk, initialState } from "../../src/analysis/localAnalyser.ts";
import { mergeRules, parseUserRules, type Rules } from "../../src/analysis/rules.ts";
import { InvalidRecord } from "../../src/wire/schema.ts";
import { contextText, framesBetween, pageOf, windowOf } from "../support/observedFrames.ts";

function notedWith(rules: Rules, text: string): string[] {
  return analyseChunk(initialState(), framesBetween(0, 14, text), rules).bullets.map(
    (bullet) => bullet.text,
  );
}

const merged = (json: unknown): Rules => mergeRules(builtInRules, parseUserRules(json));

describe("user rules", () => {
  it("emptyObject_changesNothing", () => {
    assert.deepEqual(merged({}), builtInRules);
  });

  it("site_isTakenBeforeTheBuiltInOne", () => {
    const rules = merged({ sites: [{ host: "Docs.GitHub.com", workspace: "GitHub manual" }] });
    assert.deepEqual(notedWith(rules, pageOf("docs.github.com", "Actions")), [
      '[GitHub manual] Viewed: "Actions"',
    ]);
    assert.deepEqual(notedWith(rules, pageOf("github.com", "Actions")), [
      '[GitHub] Viewed: "Actions"',
    ]);
  });

  it("callSite_isACall", () => {
    const rules = merged({ sites: [{ host: "talk.acme.test", workspace: "Talk", kind: "call" }] });
    assert.deepEqual(notedWith(rules, pageOf("talk.acme.test", "Weekly sync")), [
      '[Talk] Call: "Weekly sync" in front',
    ]);
  });

  it("application_isTakenBeforeTheBuiltInOne", () => {
    const rules = merged({
      applications: [{ name: "XTERM", workspace: "Shell", kind: "terminal" }],
    });
    assert.deepEqual(notedWith(rules, windowOf("XTerm", "bash")), ['[Shell] Viewed: "bash"']);
  });

  it("titleSuffix_isStripped", () => {
    const rules = merged({ titleSuffixes: ["Acme Portal"] });
    assert.deepEqual(notedWith(rules, pageOf("acme.test", "Home | ACME portal")), [
      '[acme.test] Viewed: "Home"',
    ]);
  });

  it("ignoredApplication_isNotNoted", () => {
    const rules = merged({ ignoredApplications: ["KeePass*"] });
    assert.deepEqual(notedWith(rules, windowOf("KeePassXC", "vault")), []);
    assert.deepEqual(notedWith(rules, contextText({ app: "Tamsk Ostrel", window: "Journal" })), []);
  });

  it("workspaceWithBracketsOrComment_isMadeFit", () => {
    const rules = merged({ sites: [{ host: "a.test", workspace: "[A]\n<!-- key:1 -->" }] });
    assert.deepEqual(notedWith(rules, pageOf("a.test", "x")), ['[A key:1] Viewed: "x"']);
  });

  const refused: readonly (readonly [string, unknown, string])[] = [
    ["array", [], "rules"],
    ["null", null, "rules"],
    ["unknownKey", { colours: [] }, "rules"],
    ["siteWithoutWorkspace", { sites: [{ host: "a.test" }] }, "rules.sites.0.workspace"],
    ["emptyWorkspace", { sites: [{ host: "a.test", workspace: "[]" }] }, "rules.sites.0.workspace"],
    ["address", { sites: [{ host: "https://a.test/", workspace: "A" }] }, "rules.sites.0.host"],
    [
      "unknownKind",
      { applications: [{ name: "a", workspace: "A", kind: "x" }] },
      "rules.applications.0.kind",
    ],
    ["emptyName", { ignoredApplications: [" "] }, "rules.ignoredApplications.0"],
    ["number", { titleSuffixes: [1] }, "rules.titleSuffixes.0"],
  ];
  for (const [name, json, path] of refused) {
    it(`${name}_isRefusedWithItsField`, () => {
      assert.throws(
        () => parseUserRules(json),
        (error: unknown) => error instanceof InvalidRecord && error.path === path,
      );
    });
  }
});

describe("built-in rules", () => {
  it("names_areLowerCase", () => {
    const names = [
      ...builtInRules.applications.flatMap((rule) => rule.names),
      ...builtInRules.browsers,
      ...builtInRules.titleSuffixes,
      ...builtInRules.ignoredApplications,
      ...builtInRules.sites.map((rule) => rule.host),
    ];
    assert.deepEqual(
      names,
      names.map((name) => name.toLowerCase()),
    );
  });

  it("hosts_areNotHiddenByAnEarlierOne", () => {
    for (const [index, rule] of builtInRules.sites.entries()) {
      const first = builtInRules.sites.findIndex(
        (other) => rule.host === other.host || rule.host.endsWith(`.${other.host}`),
      );
      assert.equal(first, index, rule.host);
    }
  });
});
