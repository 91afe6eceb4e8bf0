import assert from "node:assert/strict";
import {
  existsSync,
  mkdirSync,
  readdirSync,
  readFileSync,
  renameSync,
  writeFileSync,
} from "node:fs";
import { join } from "node:path";
import { describe, it } from "node:test";
import { SecretStoreFailure } from "../../src/archive/keys/secretStore.ts";
import { TargetFailure, type Upload } from "../../src/archive/targets/target.ts";
import type { TimeRange } from "../../src/spool/records.ts";
import { ArchiveHarness, TestKeyring, until } from "../support/archiveHarness.ts";
import {
  anyFolder,
  archiveTurnedOn,
  archiveWithTwoChunks,
  day,
  frames,
  startMs,
  survivors,
} from "../support/footage.ts";
import { ManualClock } from "../support/manualClock.ts";
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
    const { harness, target } = await archiveTurnedOn();
    await harness.finish(1, frames(0, 5));
    await harness.archive.settled();
    assert.equal(target.names("/clips/").length, 1);
    assert.deepEqual(await harness.archive.forget(seconds(0, 1)), { clips: 1, frames: 0 });
    assert.deepEqual(target.names("/clips/"), []);
    assert.deepEqual(await harness.archive.estimate(today), { clips: 0, bytes: 0 });
    assert.deepEqual(readdirSync(join(harness.layout.root, "archive", "items")), []);
  });

  it("framesThatAreInNoClipYet_goByThemselves", async () => {
    const options = survivors();
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

  it("placesOfBefore_areToldForTheirTimes", async () => {
    const home = temporaryHome();
    for (const name of ["one", "two"]) mkdirSync(join(home, name));
    const folder = (name: string) =>
      ({ kind: "folder", path: join(home, name), lossless: true }) as const;
    const clock = new ManualClock(startMs + 20_000);
    const harness = await ArchiveHarness.open({ home, clock });
    await harness.turnOn(folder("one"));
    await harness.finish(1, frames(0, 5));
    await harness.archive.estimate(today);
    await harness.archive.setTarget(folder("two"));
    const { clips, elsewhere } = await harness.archive.forget(seconds(0, 60));
    assert.deepEqual([clips, elsewhere], [0, [`folder ${join(home, "one")}`]]);
    assert.deepEqual(await harness.archive.forget(seconds(21, 60)), { clips: 0, frames: 0 });
    await harness.archive.setTarget(folder("one"));
    assert.equal((await harness.archive.forget(seconds(0, 10))).clips, 1);
  });
});

/** A place that goes on with what it was sent although nobody waits for its answer any more. */
class SlowTarget extends MemoryTarget {
  #answer: () => void = () => {};
  isAsked = false;

  override async put(upload: Upload, signal?: AbortSignal): Promise<void> {
    if (!upload.name.includes("/clips/")) return super.put(upload);
    this.isAsked = true;
    const stored = new Promise<void>((resolve) => {
      this.#answer = resolve;
    }).then(() => super.put(upload));
    const aborted = new Promise<never>((_, reject) => {
      signal?.addEventListener("abort", () => reject(signal.reason));
    });
    await Promise.race([stored, aborted]);
  }

  answer(): void {
    this.#answer();
  }
}

describe("footage that is on its way meanwhile", () => {
  it("upload_thatIsUnderWay_endsBeforeItsClipIsRemoved", async () => {
    const { harness, target } = await archiveTurnedOn({ target: new SlowTarget() });
    await harness.finish(1, frames(0, 5));
    await until(() => target.isAsked);
    const forgotten = harness.archive.forget(seconds(0, 60));
    await until(() => harness.clock.nextDelayMs !== undefined);
    target.answer();
    assert.deepEqual(await forgotten, { clips: 1, frames: 0 });
    await harness.archive.settled();
    assert.deepEqual(target.names("/clips/"), []);
  });

  it("upload_thatHangs_isGivenUp", async () => {
    const { harness, target } = await archiveTurnedOn({ target: new SlowTarget() });
    await harness.finish(1, frames(0, 5));
    await until(() => target.isAsked);
    const forgotten = harness.archive.forget(seconds(0, 60));
    await until(() => harness.clock.nextDelayMs !== undefined);
    harness.clock.advance(10_000);
    assert.deepEqual(await forgotten, { clips: 1, frames: 0 });
  });

  it("clips_thatAnExportHasStillToFetch_areAsIfTheyHadNeverBeen", async () => {
    const { harness, target } = await archiveWithTwoChunks();
    const out = join(temporaryHome(), "out");
    let forgotten: Promise<unknown> | undefined;
    const original = target.read.bind(target);
    target.read = async function* (name) {
      if (name.includes("/clips/") && forgotten === undefined) {
        forgotten = harness.archive.forget(seconds(9, 60));
        await forgotten;
      }
      yield* original(name);
    };
    const status = await harness.export(out, day, day);
    assert.deepEqual([status.state, status.error], ["done", undefined]);
    assert.deepEqual([status.exported, status.total, status.skipped], [2, 2, 0]);
    const manifest = JSON.parse(readFileSync(join(out, day, "manifest.json"), "utf8"));
    assert.deepEqual([manifest.clips.length, manifest.skipped.length], [2, 0]);
  });

  it("twoTimes_atOnce_areBothRemoved", async () => {
    const { harness, target } = await archiveWithTwoChunks();
    const removed = await Promise.all([
      harness.archive.forget(seconds(0, 1)),
      harness.archive.forget(seconds(9, 60)),
    ]);
    assert.deepEqual(
      removed.map(({ clips }) => clips),
      [2, 1],
    );
    assert.deepEqual(target.names("/clips/"), []);
    const status = await harness.export(join(temporaryHome(), "out"), day, day);
    assert.deepEqual([status.state, status.total], ["done", 0]);
  });
});
