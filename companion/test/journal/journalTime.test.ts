process.env["TZ"] = "Europe/Berlin";

import assert from "node:assert/strict";
import { existsSync } from "node:fs";
import { describe, it } from "node:test";
import { bulletKey, JournalWriter } from "../../src/journal/journalWriter.ts";
import type { KeyedBullet } from "../../src/journal/types.ts";
import { JournalFolder } from "../support/journalFolder.ts";

function bulletAt(atMs: number): KeyedBullet {
  return { atMs, text: `[A] Viewed: ${new Date(atMs).toISOString()}`, key: bulletKey(atMs, 1, 0) };
}

const times = (folder: JournalFolder, day: string): string[] =>
  folder.entries(day).map((entry) => entry.time);

describe("midnight", () => {
  // 23:50 in Berlin.
  const startedAtMs = Date.UTC(2026, 10, 20, 22, 50);
  const session = { id: "late", startedAtMs };
  const minutes = (count: number): KeyedBullet => bulletAt(startedAtMs + count * 60_000);

  it("sessionThatCrossesIt_continuesInTheNextDaysFile", async (test) => {
    const folder = new JournalFolder(test);
    await new JournalWriter({ outputDirectory: folder.path }).append(session, [
      minutes(1),
      minutes(9.99),
      minutes(10),
      minutes(20),
    ]);
    const startTime = "2026-11-20T23:50:00+01:00";
    const heads = (day: string) => folder.sessions(day).map((read) => [read.id, read.startTime]);
    assert.deepEqual(heads("2026-11-20"), [["late", startTime]]);
    assert.deepEqual(heads("2026-11-21"), [["late", startTime]]);
    assert.deepEqual(times(folder, "2026-11-20"), ["23:51", "23:59"]);
    assert.deepEqual(times(folder, "2026-11-21"), ["00:00", "00:10"]);
    assert.match(folder.text("2026-11-20"), /^# 2026-11-20, Friday\n/);
    assert.match(folder.text("2026-11-21"), /^# 2026-11-21, Saturday\n/);
  });

  it("bulletOfYesterdayThatComesToday_standsInYesterdaysFile", async (test) => {
    const folder = new JournalFolder(test);
    const writer = new JournalWriter({ outputDirectory: folder.path });
    await writer.append(session, [minutes(15)]);
    await writer.append(session, [minutes(5)]);
    assert.deepEqual(times(folder, "2026-11-20"), ["23:55"]);
    assert.deepEqual(times(folder, "2026-11-21"), ["00:05"]);
  });

  it("secondCallOnBothDays_writesNothingTwice", async (test) => {
    const folder = new JournalFolder(test);
    for (let time = 0; time < 2; time += 1) {
      const writer = new JournalWriter({ outputDirectory: folder.path });
      await writer.append(session, [minutes(5), minutes(15)]);
    }
    assert.equal(times(folder, "2026-11-20").length, 1);
    assert.equal(times(folder, "2026-11-21").length, 1);
  });
});

describe("daylight saving", () => {
  it("hourThatOccursTwice_keepsItsOrder_andItsSessionsTheirOffsets", async (test) => {
    const folder = new JournalFolder(test);
    const writer = new JournalWriter({ outputDirectory: folder.path });
    // 02:30 summer time, and one hour later 02:30 winter time.
    const summer = Date.UTC(2026, 9, 25, 0, 30);
    const winter = summer + 3_600_000;
    await writer.append({ id: "a", startedAtMs: summer }, [
      bulletAt(summer),
      bulletAt(summer + 1_740_000),
      bulletAt(winter),
    ]);
    await writer.append({ id: "b", startedAtMs: winter }, [bulletAt(winter + 1)]);
    assert.deepEqual(times(folder, "2026-10-25"), ["02:30", "02:59", "02:30", "02:30"]);
    assert.deepEqual(
      folder.sessions("2026-10-25").map((session) => session.startTime),
      ["2026-10-25T02:30:00+02:00", "2026-10-25T02:30:00+01:00"],
    );
    const texts = folder.entries("2026-10-25").map((entry) => entry.text);
    assert.deepEqual(texts, [...texts].sort());
    const keys = Array.from(folder.text("2026-10-25").matchAll(/key:(\d+)-/g), (match) =>
      Number(match[1]),
    );
    assert.deepEqual(keys, [summer, summer + 1_740_000, winter, winter + 1]);
  });

  it("hourThatIsLeftOut_isNotShown", async (test) => {
    const folder = new JournalFolder(test);
    const before = Date.UTC(2027, 2, 28, 0, 59);
    await new JournalWriter({ outputDirectory: folder.path }).append(
      { id: "a", startedAtMs: before },
      [bulletAt(before), bulletAt(before + 60_000)],
    );
    assert.deepEqual(times(folder, "2027-03-28"), ["01:59", "03:00"]);
  });

  it("dayIsTheLocalOne_notTheDayInUtc", async (test) => {
    const folder = new JournalFolder(test);
    const atMs = Date.UTC(2026, 11, 31, 23, 30);
    await new JournalWriter({ outputDirectory: folder.path }).append(
      { id: "a", startedAtMs: atMs },
      [bulletAt(atMs)],
    );
    assert.deepEqual(times(folder, "2027-01-01"), ["00:30"]);
    assert.equal(existsSync(folder.pathOf("2026-12-31")), false);
  });
});
