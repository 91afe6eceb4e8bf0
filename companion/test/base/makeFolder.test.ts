import assert from "node:assert/strict";
import { statSync, writeFileSync } from "node:fs";
import { join } from "node:path";
import { it } from "node:test";
import { makeFolder } from "../../src/base/makeFolder.ts";
import { temporaryHome } from "../support/temporaryHome.ts";

it("makeFolder_withMissingParents_makesThemForTheUserAlone", async () => {
  const home = temporaryHome();
  assert.equal(await makeFolder(join(home, "a", "b", "c")), join(home, "a"));
  for (const path of ["a", "a/b", "a/b/c"]) {
    assert.equal(statSync(join(home, path)).mode & 0o777, 0o700);
  }
});

it("makeFolder_thatIsThere_isLeftAsItIs", async () => {
  assert.equal(await makeFolder(temporaryHome()), undefined);
});

it("makeFolder_fileInItsPlace_fails", async () => {
  const path = join(temporaryHome(), "file");
  writeFileSync(path, "");
  await assert.rejects(makeFolder(path), { code: "EEXIST" });
  await assert.rejects(makeFolder(join(path, "below")), { code: "ENOTDIR" });
});

it("makeFolder_whereNoneCanBe_failsAndReturns", async () => {
  await assert.rejects(makeFolder("/proc/none/below"), { code: "ENOENT" });
});
