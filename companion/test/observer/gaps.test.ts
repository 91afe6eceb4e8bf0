import assert from "node:assert/strict";
import { readdirSync, readFileSync } from "node:fs";
import { join } from "node:path";
import { describe, it } from "node:test";
import { setImmediate } from "node:timers/promises";
import { gapText, unanalysedText } from "../../src/engine/gapText.ts";
import { LifeSigns } from "../../src/observer/lifeSigns.ts";
import { type Disk, realDisk } from "../../src/spool/disk.ts";
import { parsedWorkspace, readDay } from "../support/journalGrammar.ts";
import { ManualClock } from "../support/manualClock.ts";
import { body, ObserverHarness } from "../support/observerHarness.ts";
import { framePayload } from "../support/payloads.ts";

const startMs = 1_795_250_000_000;
const at = (seconds: number) => framePayload(startMs + seconds * 1000, { text: `at ${seconds}` });

describe("gap lines", () => {
  it("gapLine_isAnEntryOfTheJournalsGrammar", async () => {
    const first = await ObserverHarness.open({ appendToJournal: "real" });
    await first.observer.start();
    await first.send([at(0)]);
    const clock = new ManualClock(startMs + 60_000);
    const options = { home: first.home, clock, appendToJournal: "real" as const };
    const second = await ObserverHarness.open(options);
    await second.observer.stop();
    const folder = join(first.home, "ostrel", "journal");
    const [name = ""] = readdirSync(folder);
    const [session] = readDay(readFileSync(join(folder, name)));
    const gap = session?.entries.find((entry) => entry.text.includes("Gap"));
    assert.equal(gap?.time, "08:33");
    assert.deepEqual(parsedWorkspace(gap?.text ?? ""), {
      label: "Ostrel",
      action: "Gap: 08:33:20 to 08:34:20, the observer ended unexpectedly",
    });
  });

  it("gapLine_overMidnight_namesTheOtherDay", () => {
    const gap = { fromMs: startMs, toMs: startMs + 86_400_000, cause: "the disk was full" };
    assert.equal(gapText(gap), "[Ostrel] Gap: 08:33:20 to 2026-11-22 08:33:20, the disk was full");
  });

  it("gapLine_afterAClockThatWasSetBack_hasNoEnd", () => {
    const gap = { fromMs: startMs, toMs: startMs - 1, cause: "the disk was full" };
    assert.equal(gapText(gap), "[Ostrel] Gap: after 08:33:20, the disk was full");
    assert.match(unanalysedText(startMs, startMs + 1), /the model did not describe it$/);
  });

  it("stillScreen_isNoGap", async () => {
    const harness = await ObserverHarness.open();
    await harness.observer.start();
    await harness.send([at(0)]);
    harness.clock.advance(3_600_000);
    await harness.send([at(3_600)]);
    await harness.observer.stop();
    assert.deepEqual(harness.lines, ["at 0", "at 3600", "end of 2"]);
    assert.deepEqual(harness.notices, []);
  });
});

describe("frames that can't be kept", () => {
  /** Refuses new batches while it is full. */
  function fillableDisk() {
    const state = { isFull: false };
    const disk: Disk = {
      ...realDisk,
      createFile: (path) =>
        state.isFull
          ? Promise.reject(Object.assign(new Error("ENOSPC"), { code: "ENOSPC", path }))
          : realDisk.createFile(path),
    };
    return { disk, state };
  }

  it("fullDisk_isSaidAtOnce_andIsOneGapUntilFramesAreKeptAgain", async () => {
    const { disk, state } = fillableDisk();
    const harness = await ObserverHarness.open({ disk });
    await harness.observer.start();
    await harness.send([at(0)]);
    state.isFull = true;
    for (const second of [2, 4]) await assert.rejects(harness.send([at(second)]), /ENOSPC/);
    assert.match(harness.observer.status().lastError ?? "", /^The frames can't be kept: The disk/);
    assert.match(harness.notices[0] ?? "", /^The frames can't be kept: The disk is full/);
    state.isFull = false;
    const status = await harness.send([at(10), at(12)]);
    assert.equal(status.lastError, undefined);
    await harness.observer.stop();
    const gap = "[Ostrel] Gap: 08:33:20 to 08:33:30, the disk was full";
    assert.deepEqual(harness.lines, ["at 0", gap, "at 10", "at 12", "end of 3"]);
  });

  it("fullDisk_untilTheStop_isAGapUntilThen", async () => {
    const { disk, state } = fillableDisk();
    const harness = await ObserverHarness.open({ disk });
    await harness.observer.start();
    await harness.send([at(0)]);
    state.isFull = true;
    await assert.rejects(harness.send([at(2)]), /ENOSPC/);
    state.isFull = false;
    harness.clock.advance(30_000);
    await harness.observer.stop();
    const gap = "[Ostrel] Gap: 08:33:20 to 08:33:50, the disk was full";
    assert.deepEqual(harness.lines, ["at 0", gap, "end of 1"]);
  });

  it("batch_thatTheDiskHoldsUp_isSaidWithin30s", async () => {
    let release: (() => void) | undefined;
    const harness = await ObserverHarness.open();
    await harness.observer.start();
    async function* slowBody() {
      yield Buffer.from('{"frames":[');
      await new Promise<void>((resolve) => {
        release = resolve;
      });
      yield Buffer.from("]}");
    }
    const sent = harness.observer.receiveFrames(slowBody());
    while (release === undefined) await setImmediate();
    harness.clock.advance(25_000);
    const { lastError } = harness.observer.status();
    assert.match(lastError ?? "", /taking the frames for 25 s/);
    assert.deepEqual(harness.notices, [lastError]);
    release();
    assert.equal((await sent).lastError, undefined);
  });
});

describe("an application that falls silent", () => {
  async function recording() {
    const harness = await ObserverHarness.open();
    const signs = new LifeSigns(harness.clock, harness.observer);
    signs.sign();
    await harness.observer.start();
    await harness.observer.receiveFrames(body(JSON.stringify({ frames: [at(0)] })));
    return { harness, signs };
  }

  it("application_thatAsks_isNotSilent", async () => {
    const { harness, signs } = await recording();
    for (let poll = 0; poll < 100; poll += 1) {
      harness.clock.advance(1_500);
      signs.sign();
    }
    signs.stop();
    assert.deepEqual(harness.notices, []);
    await harness.observer.stop();
    assert.deepEqual(harness.lines, ["at 0", "end of 1"]);
  });

  it("silence_isSaidWithin30s_andIsAGapUntilTheNextRequest", async () => {
    const { harness, signs } = await recording();
    harness.clock.advance(1_500);
    signs.sign();
    for (let second = 0; second < 30; second += 1) harness.clock.advance(1_000);
    const sentence = "The application has asked for nothing since 08:33:21, although it records.";
    assert.equal(harness.observer.status().lastError, sentence);
    assert.deepEqual(harness.notices, [sentence]);
    harness.clock.advance(60_000);
    signs.sign();
    assert.equal(harness.observer.status().lastError, undefined);
    await harness.observer.stop();
    const gap = "[Ostrel] Gap: 08:33:21 to 08:34:51, the application did not answer";
    assert.deepEqual(harness.lines, ["at 0", gap, "end of 1"]);
    signs.stop();
  });

  it("silence_untilTheEnd_isAGapUntilThen", async () => {
    const { harness, signs } = await recording();
    for (let second = 0; second < 30; second += 1) harness.clock.advance(1_000);
    await harness.observer.close();
    signs.stop();
    const gap = "[Ostrel] Gap: 08:33:20 to 08:33:50, the application did not answer";
    assert.deepEqual(harness.lines, ["at 0", gap, "end of 1"]);
  });

  it("silence_withoutARecording_isNone", async () => {
    const harness = await ObserverHarness.open();
    const signs = new LifeSigns(harness.clock, harness.observer);
    signs.sign();
    harness.clock.advance(3_600_000);
    assert.deepEqual(harness.notices, []);
    assert.equal(harness.clock.timerCount, 0);
  });
});
