process.env["TZ"] = "Europe/Berlin";

import assert from "node:assert/strict";
import { existsSync, readFileSync } from "node:fs";
import { join } from "node:path";
import { describe, it } from "node:test";
import { builtInRules } from "../../src/analysis/builtInRules.ts";
import * as localAnalyser from "../../src/analysis/localAnalyser.ts";
import { asAnalyser } from "../../src/engine/analyser.ts";
import { JournalWriter } from "../../src/journal/journalWriter.ts";
import { type ReadSession, readDay } from "../support/journalGrammar.ts";
import { ManualClock } from "../support/manualClock.ts";
import { windowOf } from "../support/observedFrames.ts";
import { ObserverHarness } from "../support/observerHarness.ts";
import { framePayload } from "../support/payloads.ts";
import { temporaryHome } from "../support/temporaryHome.ts";

const second = 1_000;
const minute = 60 * second;
const hour = 60 * minute;

/** A recording of windows, by a wall clock that the test sets as it likes. */
class Recording {
  readonly home: string;
  readonly harness: ObserverHarness;
  #frameCount = 0;

  private constructor(home: string, harness: ObserverHarness) {
    this.home = home;
    this.harness = harness;
  }

  static async start(atMs: number): Promise<Recording> {
    const home = temporaryHome();
    const writer = new JournalWriter({ outputDirectory: join(home, "journal") });
    const harness = await ObserverHarness.open({
      home,
      clock: new ManualClock(atMs),
      analyser: asAnalyser("local", localAnalyser.analyserWith(builtInRules)),
      appendToJournal: (_, session, bullets) => writer.append(session, bullets),
    });
    const recording = new Recording(home, harness);
    await harness.observer.start();
    return recording;
  }

  /** A window in front for so long, in frames of 2 s, by the wall clock from a moment on. */
  async show(window: string, fromMs: number, forMs = 16 * second): Promise<void> {
    for (let atMs = fromMs; atMs < fromMs + forMs; atMs += 2 * second) {
      this.#frameCount += 1;
      const fields = { frameIndex: this.#frameCount, text: windowOf("Mousepad", window) };
      await this.harness.send([framePayload(atMs, fields)]);
    }
    this.harness.clock.setWall(fromMs + forMs);
  }

  async restart(atMs: number): Promise<void> {
    await this.harness.observer.stop();
    this.harness.clock.setWall(atMs);
    await this.harness.observer.start();
  }

  async stop(): Promise<void> {
    const status = await this.harness.observer.stop();
    assert.equal(status.lastError, undefined);
    assert.equal(status.pendingAnalysisChunks, 0);
  }

  text(day: string): string {
    return readFileSync(join(this.home, "journal", `${day}.md`), "utf8");
  }

  sessions(day: string): ReadSession[] {
    return readDay(Buffer.from(this.text(day)));
  }

  /** "02:30 first" for each line of the day. */
  lines(day: string): string[] {
    if (!existsSync(join(this.home, "journal", `${day}.md`))) return [];
    return this.sessions(day)
      .flatMap((session) => session.entries)
      .map((entry) => `${entry.time} ${/"(.*)"/.exec(entry.text)?.[1]}`);
  }

  /** The keys' times, after a look that no key occurs twice. */
  keyTimes(...days: readonly string[]): number[] {
    const keys = days.flatMap((day) => this.text(day).match(/key:[0-9-]+/g) ?? []);
    assert.equal(new Set(keys).size, keys.length);
    return keys.map((key) => Number(/[0-9]+/.exec(key)?.[0]));
  }
}

describe("daylight saving", () => {
  it("hourThatOccursTwice_keepsOrderAndOffsets_withinAndAcrossRecordings", async () => {
    const summer = Date.UTC(2026, 9, 25, 0, 30);
    const recording = await Recording.start(summer);
    await recording.show("first", summer);
    await recording.show("second", summer + hour);
    await recording.restart(summer + hour + minute);
    await recording.show("third", summer + hour + minute);
    await recording.stop();
    const day = "2026-10-25";
    assert.deepEqual(recording.lines(day), ["02:30 first", "02:30 second", "02:31 third"]);
    assert.deepEqual(
      recording.sessions(day).map((session) => session.startTime),
      ["2026-10-25T02:30:00+02:00", "2026-10-25T02:31:00+01:00"],
    );
    const times = [summer, summer + hour, summer + hour + minute];
    assert.deepEqual(recording.keyTimes(day), times);
  });

  it("hourThatIsLeftOut_isNoGap", async () => {
    const before = Date.UTC(2027, 2, 28, 0, 59, 50);
    const recording = await Recording.start(before);
    await recording.show("first", before, 10 * second);
    await recording.show("second", before + 10 * second);
    await recording.stop();
    assert.deepEqual(recording.lines("2027-03-28"), ["01:59 first", "03:00 second"]);
    assert.equal(recording.sessions("2027-03-28")[0]?.startTime, "2027-03-28T01:59:50+01:00");
  });
});

describe("a clock that is set", () => {
  const noon = Date.UTC(2026, 10, 21, 11);
  const day = "2026-11-21";

  it("clock_setBackByHoursWhileRecording_losesNothing_andKeepsTheOrderOfEvents", async () => {
    const recording = await Recording.start(noon);
    await recording.show("first", noon);
    await recording.show("second", noon - 3 * hour);
    await recording.show("third", noon - 3 * hour + 20 * second);
    await recording.stop();
    assert.deepEqual(recording.lines(day), ["12:00 first", "09:00 second", "09:00 third"]);
    assert.equal(recording.keyTimes(day).length, 3);
    assert.equal(recording.sessions(day).length, 1);
  });

  it("clock_setBackAcrossMidnight_writesIntoTheDayThatItShows", async () => {
    const recording = await Recording.start(noon);
    await recording.show("first", noon);
    await recording.show("second", noon - 13 * hour);
    await recording.show("third", noon + 20 * second);
    await recording.stop();
    assert.deepEqual(recording.lines("2026-11-20"), ["23:00 second"]);
    assert.deepEqual(recording.lines(day), ["12:00 first", "12:00 third"]);
    const [before, after] = ["2026-11-20", day].map((name) => recording.sessions(name));
    assert.equal(before?.[0]?.id, after?.[0]?.id);
  });

  it("clock_setBackToTheSameSecondBetweenRecordings_repeatsNoSessionAndNoKey", async () => {
    const recording = await Recording.start(noon);
    await recording.show("first", noon);
    await recording.restart(noon);
    // Not to the millisecond: by that the analyser knows a frame that comes twice.
    await recording.show("second", noon + 1);
    await recording.stop();
    assert.deepEqual(recording.lines(day), ["12:00 first", "12:00 second"]);
    const ids = recording.sessions(day).map((session) => session.id);
    assert.equal(new Set(ids).size, 2);
    assert.equal(recording.keyTimes(day).length, 2);
  });

  it("clock_farInTheFutureAndThenCorrected_goesOnWithTheCorrectOne", async () => {
    const future = Date.UTC(2099, 0, 1, 11);
    const recording = await Recording.start(future);
    await recording.show("first", future);
    await recording.show("second", noon);
    await recording.restart(noon + minute);
    await recording.show("third", noon + minute);
    await recording.stop();
    assert.deepEqual(recording.lines("2099-01-01"), ["12:00 first"]);
    assert.deepEqual(recording.lines(day), ["12:00 second", "12:01 third"]);
    assert.equal(recording.keyTimes(day, "2099-01-01").length, 3);
  });

  it("machine_suspended_closesTheChunk_andCountsTheSleepForNothing", async () => {
    const recording = await Recording.start(noon);
    // Seconds before the sleep, and as many after: together they would do, the sleep aside.
    await recording.show("glance", noon, 6 * second);
    assert.equal(recording.harness.observer.status().chunkIndex, 0);
    await recording.show("morning", noon + 8 * hour);
    assert.equal(recording.harness.observer.status().chunkIndex, 1);
    await recording.stop();
    assert.deepEqual(recording.lines(day), ["12:00 glance", "20:00 morning"]);
  });

  it("recording_acrossMidnight_goesOnUnderTheSameSession", async () => {
    const midnight = Date.UTC(2026, 10, 21, 23);
    const recording = await Recording.start(midnight - minute);
    await recording.show("first", midnight - 16 * second);
    await recording.show("second", midnight);
    await recording.stop();
    assert.deepEqual(recording.lines(day), ["23:59 first"]);
    assert.deepEqual(recording.lines("2026-11-22"), ["00:00 second"]);
    const [before, after] = [day, "2026-11-22"].map((name) => recording.sessions(name));
    assert.deepEqual(
      [before?.[0]?.id, before?.[0]?.startTime],
      [after?.[0]?.id, after?.[0]?.startTime],
    );
  });
});
