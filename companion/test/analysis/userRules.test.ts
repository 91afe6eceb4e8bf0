import assert from "node:assert/strict";
import { mkdirSync, writeFileSync } from "node:fs";
import { join } from "node:path";
import { describe, it } from "node:test";
import { builtInRules } from "../../src/analysis/builtInRules.ts";
import { loadRules } from "../../src/analysis/userRules.ts";
import { temporaryHome } from "../support/temporaryHome.ts";

describe("the file of the user's rules", () => {
  it("fileThatIsNotThere_addsNothing", async () => {
    const { rules, complaint } = await loadRules(join(temporaryHome(), "rules.json"));
    assert.deepEqual(rules, builtInRules);
    assert.equal(complaint, undefined);
  });

  it("fileWithRules_putsThemBeforeTheBuiltInOnes", async () => {
    const path = join(temporaryHome(), "rules.json");
    writeFileSync(path, '{"sites":[{"host":"Example.org","workspace":"Mine"}]}');
    const { rules, complaint } = await loadRules(path);
    assert.equal(complaint, undefined);
    assert.deepEqual(rules.sites[0], { host: "example.org", workspace: "Mine", kind: "page" });
    assert.equal(rules.sites.length, builtInRules.sites.length + 1);
  });

  const damaged: readonly (readonly [string, string, RegExp])[] = [
    ["noJson", '{"sites":', /rules\.json is not JSON: /],
    [
      "wrongField",
      '{"sites":[{"host":"a b","workspace":"x"}]}',
      /rules\.json, rules\.sites\.0\.host: /,
    ],
    ["unknownField", '{"sights":[]}', /rules\.json, rules/],
  ];
  for (const [name, text, words] of damaged) {
    it(`file_${name}_isSaidWhereItIsWrong_andAddsNothing`, async () => {
      const path = join(temporaryHome(), "rules.json");
      writeFileSync(path, text);
      const { rules, complaint } = await loadRules(path);
      assert.deepEqual(rules, builtInRules);
      assert.match(complaint ?? "", /^Your rules are not in use: .*\.$/);
      assert.match(complaint ?? "", words);
    });
  }

  it("folderInItsPlace_isSaid_andAddsNothing", async () => {
    const path = join(temporaryHome(), "rules.json");
    mkdirSync(path);
    const { rules, complaint } = await loadRules(path);
    assert.deepEqual(rules, builtInRules);
    assert.match(complaint ?? "", /A folder stands where a file should be/);
  });
});
