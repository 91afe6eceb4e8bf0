import assert from "node:assert/strict";
import { readdirSync, readFileSync, symlinkSync, writeFileSync } from "node:fs";
import { open } from "node:fs/promises";
import { join } from "node:path";
import { it } from "node:test";
import { realDisk } from "../../src/spool/disk.ts";
import { temporaryHome } from "../support/temporaryHome.ts";

it("replaceFile_onAFullDisk_leavesTheOldFileAndNothingElse", async () => {
  const folder = temporaryHome();
  const path = join(folder, "file.json");
  writeFileSync(path, "old");
  symlinkSync("/dev/full", `${path}.new`);
  await assert.rejects(realDisk.replaceFile(path, "new"), { code: "ENOSPC" });
  assert.equal(readFileSync(path, "utf8"), "old");
  assert.deepEqual(readdirSync(folder), ["file.json"]);
});

it("disk_everyPromiseToKeep_isSyncedFirst", async (test) => {
  const folder = temporaryHome();
  const handle = await open(folder);
  const methods = Object.getPrototypeOf(handle) as typeof handle;
  await handle.close();
  const file = test.mock.method(methods, "datasync");
  const names = test.mock.method(methods, "sync");
  const syncs = () => [file.mock.callCount(), names.mock.callCount()];

  const picture = await realDisk.createFile(join(folder, "picture"));
  await picture.write(Buffer.from("x"));
  assert.deepEqual(syncs(), [0, 0]);
  await picture.finish();
  assert.deepEqual(syncs(), [1, 0]);
  await realDisk.replaceFile(join(folder, "record"), "{}");
  assert.deepEqual(syncs(), [2, 1]);
  await realDisk.makeFolder(join(folder, "other"));
  await realDisk.move(join(folder, "picture"), join(folder, "other", "picture"));
  assert.deepEqual(syncs(), [2, 3]);
});
