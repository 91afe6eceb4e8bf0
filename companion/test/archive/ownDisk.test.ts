import assert from "node:assert/strict";
import { cpSync, readdirSync, readFileSync, rmSync, truncateSync, writeFileSync } from "node:fs";
import { join } from "node:path";
import { describe, it } from "node:test";
import { TargetFailure } from "../../src/archive/targets/target.ts";
import { systemFailure } from "../../src/base/failure.ts";
import { type FileSystem, realFileSystem } from "../../src/base/fileSystem.ts";
import { ArchiveHarness, TestKeyring } from "../support/archiveHarness.ts";
import { anyFolder, archiveTurnedOn, day, frames } from "../support/footage.ts";
import { MemoryTarget } from "../support/memoryTarget.ts";
import { temporaryHome } from "../support/temporaryHome.ts";

describe("this machine's own disk", () => {
  const items = (harness: ArchiveHarness) => join(harness.home, "observer", "archive", "items");

  /** Footage that is packed and can't be stored yet. */
  async function packed(...ids: readonly number[]) {
    const { harness, target } = await archiveTurnedOn();
    target.fail();
    for (const id of ids) await harness.finish(id, frames(id * 5, 3));
    await harness.archive.settled();
    target.mend();
    return { target, harness };
  }

  async function goOn(harness: ArchiveHarness): Promise<void> {
    harness.clock.advance(5_000);
    await harness.archive.settled();
  }

  const damages: readonly (readonly [string, (clip: string) => void])[] = [
    ["altered", (clip) => writeFileSync(clip, readFileSync(clip).fill(7, 900, 901))],
    ["cutShort", (clip) => truncateSync(clip, 400)],
    ["removed", (clip) => rmSync(clip)],
  ];
  for (const [how, damage] of damages) {
    it(`clip_${how}_whileItWaited_isToldAndHoldsUpNothing`, async () => {
      const { target, harness } = await packed(1, 2);
      damage(join(items(harness), "1", "0.age"));
      await goOn(harness);
      assert.match(harness.complaints.get("archive loss") ?? "", /damaged on this disk/);
      assert.equal(harness.complaints.get("archive"), undefined);
      assert.equal(target.names("/clips/").length, 1);
      assert.deepEqual(readdirSync(items(harness)), ["2"]);
      const quarantine = join(harness.home, "observer", "archive", "quarantine");
      assert.equal(readdirSync(quarantine).length, 1);
      const status = await harness.export(join(harness.home, "out"), day, day);
      assert.deepEqual([status.state, status.exported, status.skipped], ["done", 1, 0]);
    });
  }

  for (const code of ["EIO", "ENOSPC"]) {
    it(`chunk_thatCannotBePacked_${code}_holdsUpNothingThatIs`, async () => {
      let broken = "";
      const fileSystem: FileSystem = {
        ...realFileSystem,
        open: async (path, flags, mode) => {
          if (broken !== "" && path.endsWith(broken)) throw systemFailure(code, path);
          return realFileSystem.open(path, flags, mode);
        },
      };
      const { harness, target } = await archiveTurnedOn({ fileSystem });
      target.fail();
      await harness.finish(1, frames(5, 3));
      await harness.archive.settled();
      await harness.writeChunk(2, frames(10, 3));
      broken = "/2/0.age";
      await harness.archive.take(harness.layout.chunk(2));
      await harness.archive.settled();
      target.mend();
      await goOn(harness);
      assert.equal(target.names("/clips/").length, 1);
      assert.match(harness.complaints.get("archive") ?? "", /^Footage waits for its archive/);
      broken = "";
      harness.clock.advance(600_000);
      await harness.archive.settled();
      assert.equal(target.names("/clips/").length, 2);
      assert.deepEqual([...harness.complaints], []);
    });
  }

  it("partOfTheList_damagedBeforeItWasStored_isMadeAnew", async () => {
    const { target, harness } = await packed(1);
    let isLost = false;
    target.onCall = (call) => {
      if (!call.includes("/manifest/")) return;
      const mirror = join(harness.home, "observer", "archive", "manifest");
      for (const name of readdirSync(mirror)) writeFileSync(join(mirror, name), "junk");
      isLost = true;
      throw new TargetFailure("The place can't be reached.");
    };
    await goOn(harness);
    harness.clock.advance(600_000);
    await harness.archive.settled();
    assert.ok(isLost);
    target.mend();
    harness.clock.advance(600_000);
    await harness.archive.settled();
    assert.equal((await harness.archive.estimate({ fromDate: day, toDate: day })).clips, 1);
    const status = await harness.export(join(harness.home, "out"), day, day);
    assert.deepEqual([status.state, status.exported, status.error], ["done", 1, undefined]);
  });

  it("machine_setBackToAFormerState_losesAndDoublesNothing", async () => {
    const keyring = new TestKeyring();
    const target = new MemoryTarget();
    const first = await ArchiveHarness.open({ target, keyring });
    await first.turnOn(anyFolder);
    target.fail();
    await first.finish(1, frames(0, 3));
    await first.archive.settled();
    const backup = join(temporaryHome(), "backup");
    cpSync(first.home, backup, { recursive: true });
    target.mend();
    await first.finish(2, frames(5, 3));
    await first.archive.estimate({ fromDate: day, toDate: day });
    await first.archive.close();
    const second = await ArchiveHarness.open({ home: backup, target, keyring });
    await second.finish(3, frames(10, 3));
    await second.archive.estimate({ fromDate: day, toDate: day });
    // The list's next part is there already, and not this machine's: it becomes another writer.
    second.clock.advance(600_000);
    await second.archive.settled();
    const status = await second.export(join(backup, "out"), day, day);
    assert.deepEqual([status.state, status.exported, status.error], ["done", 3, undefined]);
  });
});
