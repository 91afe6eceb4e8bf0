import assert from "node:assert/strict";
import { readdirSync } from "node:fs";
import { join } from "node:path";
import { describe, it } from "node:test";
import { setImmediate } from "node:timers/promises";
import { systemFailure } from "../../src/base/failure.ts";
import { type FileSystem, realFileSystem } from "../../src/base/fileSystem.ts";
import { diskOn } from "../../src/spool/disk.ts";
import type { TimeRange } from "../../src/spool/records.ts";
import { at, open, seconds } from "../support/forgetHarness.ts";

/** A disk of which everything below a folder refuses to be changed, until it is mended. */
function refusingDisk() {
  const refusal = { code: "", below: "" };
  const refuse = (path: string) => {
    if (refusal.code !== "" && path.includes(refusal.below)) {
      throw systemFailure(refusal.code, path);
    }
  };
  const fileSystem: FileSystem = {
    ...realFileSystem,
    open: async (path, flags, mode) => {
      if (flags !== 0) refuse(path);
      return realFileSystem.open(path, flags, mode);
    },
    rename: async (from, to) => {
      refuse(to);
      return realFileSystem.rename(from, to);
    },
    rm: async (path, options) => {
      if (refusal.code === "EROFS") refuse(path);
      return realFileSystem.rm(path, options);
    },
  };
  return { refusal, disk: diskOn(fileSystem) };
}

/** Three frames that wait, one chunk each, and nobody who analyses them. */
async function waiting() {
  const { refusal, disk } = refusingDisk();
  const opened = await open({ disk, isAnalysing: false });
  const { observer } = opened.harness;
  await observer.start();
  await opened.harness.send([at(0), at(20), at(40)]);
  const pictures = () =>
    opened.harness
      .names("pending")
      .flatMap((chunk) => opened.harness.names("pending", chunk))
      .filter((name) => name.endsWith(".jpg"));
  return { ...opened, observer, refusal, pictures };
}

describe("forgetting on a disk that refuses", () => {
  it("disk_readOnly_isToldAndNothingIsPromised", async () => {
    const { observer, refusal, pictures } = await waiting();
    const before = pictures();
    Object.assign(refusal, { code: "EROFS", below: "/observer/" });
    await assert.rejects(observer.forget(seconds(0, 5)), { code: "EROFS" });
    refusal.code = "";
    // What was not even noted is not done behind the user's back later.
    assert.deepEqual(pictures(), before);
    assert.equal((await observer.forget(seconds(0, 5))).frames, 1);
  });

  it("disk_readOnlyFromTheNoteOn_isToldAndDoneWhenItCanBe", async () => {
    const { harness, observer, refusal, pictures } = await waiting();
    Object.assign(refusal, { code: "EROFS", below: "/pending/" });
    await assert.rejects(observer.forget(seconds(0, 5)), { code: "EROFS" });
    assert.match(observer.status().lastError ?? "", /could not all be removed yet.*read-only/);
    refusal.code = "";
    harness.clock.advance(10_000);
    while (pictures().length > 2) await setImmediate();
    while (observer.status().lastError !== undefined) await setImmediate();
  });

  it("disk_full_isNoObstacleToRemovingPictures", async () => {
    const { observer, refusal, pictures } = await waiting();
    let failures = 2;
    Object.defineProperty(refusal, "code", {
      get: () => {
        failures -= 1;
        return failures >= 0 ? "ENOSPC" : "";
      },
    });
    refusal.below = "forgotten.json";
    await observer.forget(seconds(0, 5));
    assert.ok(!pictures().some((name) => name === "1-0.jpg"));
  });

  it("folderThatRefuses_holdsUpNoOther", async () => {
    const { refusal, disk } = refusingDisk();
    const { harness, outputDirectory } = await open({ disk, settings: { saveRawInputs: true } });
    const { observer } = harness;
    await observer.start();
    await harness.send([at(0), at(20)]);
    await observer.stop();
    Object.assign(refusal, { code: "EROFS", below: "/model-input/" });
    await assert.rejects(observer.forget(seconds(0, 100)), { code: "EROFS" });
    assert.deepEqual(readdirSync(outputDirectory), [], "the lines of the journal are gone");
    assert.match(observer.status().lastError ?? "", /read-only.*model-input/);
    refusal.code = "";
    harness.clock.advance(10_000);
    while (observer.status().lastError !== undefined) await setImmediate();
    assert.deepEqual(readdirSync(join(harness.home, "ostrel", "model-input")), []);
  });
});

describe("forgetting twice", () => {
  it("two_atOnce_areBothDone", async () => {
    const { observer, pictures } = await waiting();
    const reports = await Promise.all([
      observer.forget(seconds(0, 5)),
      observer.forget(seconds(15, 45)),
    ]);
    assert.deepEqual(
      reports.map(({ frames }) => frames),
      [1, 2],
    );
    assert.deepEqual(pictures(), []);
  });

  it("sameTime_twiceAtOnce_isCountedOnce", async () => {
    const { observer } = await waiting();
    const reports = await Promise.all([1, 2].map(() => observer.forget(seconds(0, 45))));
    assert.deepEqual(
      reports.map(({ frames }) => frames),
      [3, 0],
    );
  });
});

describe("forgetting that is brought to its end later", () => {
  it("timeThatReachedIntoTheFuture_isRetriedOnlyUpToWhenItWasAsked", async () => {
    const asked: TimeRange[] = [];
    let isReachable = false;
    const { harness } = await open({
      forgetInArchive: async (range) => {
        asked.push(range);
        if (!isReachable) throw new Error("The place can't be reached.");
        return { clips: 0, frames: 0 };
      },
    });
    await harness.observer.forget(seconds(0, 9_000));
    await harness.observer.close();
    isReachable = true;
    const { harness: second } = await open({
      home: harness.home,
      forgetInArchive: async (range) => {
        asked.push(range);
        return { clips: 0, frames: 0 };
      },
    });
    while (asked.length < 2) await setImmediate();
    assert.deepEqual(asked, [seconds(0, 100), seconds(0, 100)]);
    await second.observer.close();
  });

  it("linesWrittenAfterItWasAsked_surviveTheRetryAfterARestart", async () => {
    let refuses = true;
    const home = (await open()).harness.home;
    const refusing = await open({
      home,
      forgetInJournal: async () => {
        if (refuses) throw systemFailure("EACCES", "/journal");
        return 0;
      },
    });
    await assert.rejects(refusing.harness.observer.forget(seconds(0, 9_000)));
    refusing.harness.clock.advance(1_000);
    await refusing.harness.observer.start();
    await refusing.harness.send([at(90), at(101), at(140)]);
    await refusing.harness.observer.stop();
    refuses = false;
    await refusing.harness.observer.close();
    const { harness, outputDirectory, pages } = await open({ home });
    await harness.observer.settled();
    assert.equal(readdirSync(outputDirectory).length, 1);
    assert.doesNotMatch(pages().join(), /at 90 /);
    assert.match(pages().join(), /at 101 [\s\S]*at 140 /);
  });
});
