import assert from "node:assert/strict";
import { existsSync, readdirSync, renameSync, writeFileSync } from "node:fs";
import { join } from "node:path";
import { describe, it } from "node:test";
import { SecretStoreFailure } from "../../src/archive/keys/secretStore.ts";
import { TargetFailure } from "../../src/archive/targets/target.ts";
import type { TimeRange } from "../../src/spool/records.ts";
import { ArchiveHarness, TestKeyring } from "../support/archiveHarness.ts";
import { anyFolder, archiveWithTwoChunks, day, frames, startMs } from "../support/footage.ts";
import { MemoryTarget } from "../support/memoryTarget.ts";
import { temporaryHome } from "../support/temporaryHome.ts";

const today = { fromDate: day, toDate: day };

function seconds(from: number, to: number): TimeRange {
  return { fromMs: startMs + from * 1000, toMs: startMs + to * 1000 };
}

describe("footage of a time", () => {
  it("listedClips_thatOverlapIt_goWholeAndAreMissedByNobody", async () => {
    const { harness, target } = await archiveWithTwoChunks();
    assert.deepEqual(await harness.archive.forget(seconds(9, 12)), { clips: 1, frames: 0 });
    assert.equal(target.names("/clips/").length, 2);
    const destination = join(temporaryHome(), "out");
    const status = await harness.export(destination, day, day);
    assert.deepEqual([status.state, status.exported, status.skipped], ["done", 2, 0]);
    assert.deepEqual(await harness.archive.forget(seconds(9, 12)), { clips: 0, frames: 0 });
  });

  it("clipsOfAnotherWriter_goToo", async () => {
    const { harness, target, recoveryKey } = await archiveWithTwoChunks();
    const other = await ArchiveHarness.open({ target });
    await other.archive.setTarget(anyFolder);
    await other.archive.recover(recoveryKey);
    assert.deepEqual(await other.archive.forget(seconds(0, 60)), { clips: 3, frames: 0 });
    assert.deepEqual(target.names("/clips/"), []);
    assert.deepEqual(await harness.archive.estimate(today), { clips: 0, bytes: 0 });
  });

  it("clipsThatAreStoredAndNotListed_goAndNeverComeIntoTheList", async () => {
    const target = new MemoryTarget();
    const harness = await ArchiveHarness.open({ target });
    await harness.turnOn(anyFolder);
    await harness.finish(1, frames(0, 5));
    await harness.archive.settled();
    assert.equal(target.names("/clips/").length, 1);
    assert.deepEqual(await harness.archive.forget(seconds(0, 1)), { clips: 1, frames: 0 });
    assert.deepEqual(target.names("/clips/"), []);
    assert.deepEqual(await harness.archive.estimate(today), { clips: 0, bytes: 0 });
    assert.deepEqual(readdirSync(join(harness.layout.root, "archive", "items")), []);
  });

  it("framesThatAreInNoClipYet_goByThemselves", async () => {
    const options = {
      target: new MemoryTarget(),
      keyring: new TestKeyring(),
      home: temporaryHome(),
    };
    const first = await ArchiveHarness.open(options);
    await first.turnOn(anyFolder);
    await first.archive.disable();
    await first.archive.close();
    // Taken over before it was paused, and not packed yet.
    const item = join(first.layout.root, "archive", "items", "1");
    renameSync(await first.writeChunk(1, frames(0, 5)), item);
    writeFileSync(join(item, "result.json"), "{}");
    const second = await ArchiveHarness.open(options);
    assert.deepEqual(await second.archive.forget(seconds(0, 3)), { clips: 0, frames: 2 });
    assert.equal(existsSync(join(item, "result.json")), false);
    assert.deepEqual(
      readdirSync(item).filter((name) => name.endsWith(".jpg")),
      ["1-2.jpg", "1-3.jpg", "1-4.jpg"],
    );
    assert.deepEqual(await second.archive.forget(seconds(0, 60)), { clips: 0, frames: 3 });
    assert.deepEqual(readdirSync(join(item, "..")), []);
  });

  it("placeOutOfReach_isAnErrorAndTheNextCallFinishesIt", async () => {
    const { harness, target } = await archiveWithTwoChunks();
    target.fail();
    await assert.rejects(harness.archive.forget(seconds(0, 60)), TargetFailure);
    target.mend();
    assert.equal((await harness.archive.forget(seconds(0, 60))).clips, 3);
    assert.deepEqual(target.names("/clips/"), []);
  });

  it("everyCallOfThePlaceThatFails_leavesNothingHalfDoneForGood", async () => {
    for (let failing = 1; ; failing += 1) {
      const { harness, target } = await archiveWithTwoChunks();
      let calls = 0;
      target.onCall = () => {
        calls += 1;
        if (calls === failing) throw new TargetFailure("The place can't be reached.");
      };
      const first = await harness.archive.forget(seconds(0, 60)).catch((error: unknown) => error);
      const hasFailed = first instanceof TargetFailure;
      target.mend();
      await harness.archive.forget(seconds(0, 60));
      assert.deepEqual(target.names("/clips/"), []);
      const status = await harness.export(join(temporaryHome(), "out"), day, day);
      assert.deepEqual([status.state, status.exported, status.skipped], ["done", 0, 0]);
      if (!hasFailed) {
        assert.ok(failing > 5, "every step was among them");
        return;
      }
    }
  });

  it("keyringThatRefuses_isAnError", async () => {
    const keyring = new TestKeyring();
    const target = new MemoryTarget();
    const options = { keyring, target, home: temporaryHome() };
    const first = await ArchiveHarness.open(options);
    await first.turnOn(anyFolder);
    await first.archive.close();
    const second = await ArchiveHarness.open(options);
    keyring.failure = new SecretStoreFailure("The keyring is locked.");
    await assert.rejects(second.archive.forget(seconds(0, 60)), /The keyring is locked/);
  });

  it("noArchive_hasNothingToForget", async () => {
    const { archive } = await ArchiveHarness.open();
    assert.deepEqual(await archive.forget(seconds(0, 60)), { clips: 0, frames: 0 });
  });
});
