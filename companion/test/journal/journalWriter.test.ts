process.env["TZ"] = "Europe/Berlin";

import assert from "node:assert/strict";
import { appendFileSync, mkdirSync, renameSync, rmSync, statSync, writeFileSync } from "node:fs";
import { dirname } from "node:path";
import { describe, it } from "node:test";
import { bulletLine } from "../../src/journal/bulletText.ts";
import { bulletKey, JournalWriter } from "../../src/journal/journalWriter.ts";
import type { KeyedBullet } from "../../src/journal/types.ts";
import { JournalFolder } from "../support/journalFolder.ts";
import { hostileText, Random } from "../support/random.ts";

/** 10:00 in Berlin. */
const NINE_UTC = Date.UTC(2026, 10, 21, 9);
const DAY = "2026-11-21";
const session = { id: "2026-11-21T10-00-00", startedAtMs: NINE_UTC };
const other = { id: "2026-11-21T11-30-00", startedAtMs: NINE_UTC + 5_400_000 };

function bullet(minutes: number, text = `[Terminal] Viewed: "${minutes}"`, n = 0): KeyedBullet {
  const atMs = NINE_UTC + minutes * 60_000;
  return { atMs, text, key: bulletKey(atMs, 7, n) };
}

const writerOf = (folder: JournalFolder): JournalWriter =>
  new JournalWriter({ outputDirectory: folder.path });

describe("bulletKey", () => {
  it("parts_areJoined", () => {
    assert.equal(bulletKey(1_795_251_600_000, 12n, 3), "1795251600000-12-3");
    assert.equal(bulletKey(0, 9_223_372_036_854_775_807n, 0), "0-9223372036854775807-0");
  });

  it("negativeFractionalOrEndless_isRefused", () => {
    for (const [atMs, chunk, n] of [
      [-1, 1, 0],
      [1.5, 1, 0],
      [Number.NaN, 1, 0],
      [1, -1, 0],
      [1, 1, -1],
      [1e21, 1, 0],
    ] as const) {
      assert.throws(() => bulletKey(atMs, chunk, n), RangeError);
    }
  });
});

describe("JournalWriter", () => {
  it("firstBulletOfADay_makesTheWholePage", async (test) => {
    const folder = new JournalFolder(test);
    await writerOf(folder).append(session, [bullet(1), bullet(2)]);
    assert.equal(
      folder.text(DAY),
      `# 2026-11-21, Saturday

## Session 2026-11-21T10-00-00
start_time: 2026-11-21T10:00:00+01:00

- [10:01] [Terminal] Viewed: "1" <!-- key:${NINE_UTC + 60_000}-7-0 -->
- [10:02] [Terminal] Viewed: "2" <!-- key:${NINE_UTC + 120_000}-7-0 -->
`,
    );
    assert.deepEqual(folder.sessions(DAY), [
      {
        id: session.id,
        startTime: "2026-11-21T10:00:00+01:00",
        entries: [
          {
            id: `${session.id}:10:01:[Terminal] Viewed: "1"`,
            time: "10:01",
            text: '[Terminal] Viewed: "1"',
          },
          {
            id: `${session.id}:10:02:[Terminal] Viewed: "2"`,
            time: "10:02",
            text: '[Terminal] Viewed: "2"',
          },
        ],
      },
    ]);
  });

  it("newFolderAndFile_areForTheUserAlone", async (test) => {
    const folder = new JournalFolder(test);
    await writerOf(folder).append(session, [bullet(1)]);
    assert.equal(statSync(folder.path).mode & 0o777, 0o700);
    assert.equal(statSync(dirname(folder.path)).mode & 0o777, 0o700);
    assert.equal(statSync(folder.pathOf(DAY)).mode & 0o777, 0o600);
  });

  it("folderAndFileThatExist_keepTheirModes", async (test) => {
    const folder = new JournalFolder(test);
    mkdirSync(folder.path, { recursive: true });
    writeFileSync(folder.pathOf(DAY), "", { mode: 0o644 });
    await writerOf(folder).append(session, [bullet(1)]);
    assert.equal(statSync(folder.path).mode & 0o777, 0o755);
    assert.equal(statSync(folder.pathOf(DAY)).mode & 0o777, 0o644);
  });

  it("emptyFile_getsTheWholePage", async (test) => {
    const folder = new JournalFolder(test);
    mkdirSync(folder.path, { recursive: true });
    folder.save(DAY, "");
    await writerOf(folder).append(session, [bullet(1)]);
    assert.match(folder.text(DAY), /^# 2026-11-21, Saturday\n\n## Session /);
  });

  it("noBullets_makeNoFolder", async (test) => {
    const folder = new JournalFolder(test);
    await writerOf(folder).append(session, []);
    await writerOf(folder).append(session, [bullet(1, " \n<!---->")]);
    assert.throws(() => statSync(folder.path), { code: "ENOENT" });
  });

  it("furtherBulletsOfTheSession_followWithoutAHeading", async (test) => {
    const folder = new JournalFolder(test);
    await writerOf(folder).append(session, [bullet(1)]);
    const before = folder.text(DAY);
    await writerOf(folder).append(session, [bullet(5)]);
    assert.equal(
      folder.text(DAY),
      `${before}- [10:05] [Terminal] Viewed: "5" <!-- key:${NINE_UTC + 300_000}-7-0 -->\n`,
    );
  });

  it("keyThatStandsInTheFile_isNotWrittenAgain", async (test) => {
    const folder = new JournalFolder(test);
    await writerOf(folder).append(session, [bullet(1), bullet(2)]);
    const before = folder.text(DAY);
    await writerOf(folder).append(session, [bullet(1), bullet(2)]);
    assert.equal(folder.text(DAY), before);
    await writerOf(folder).append(session, [bullet(2), bullet(3)]);
    assert.equal(folder.entries(DAY).length, 3);
  });

  it("sameKeyTwiceInACall_isWrittenOnce", async (test) => {
    const folder = new JournalFolder(test);
    await writerOf(folder).append(session, [bullet(1), bullet(1)]);
    assert.equal(folder.entries(DAY).length, 1);
  });

  it("keyThatOnlyBeginsLikeAnother_isItsOwn", async (test) => {
    const folder = new JournalFolder(test);
    await writerOf(folder).append(session, [bullet(1, "[A] Viewed: b", 11)]);
    await writerOf(folder).append(session, [bullet(1, "[A] Viewed: c", 1)]);
    assert.equal(folder.entries(DAY).length, 2);
  });

  it("callsAtTheSameTime_takeTheirTurns", async (test) => {
    const folder = new JournalFolder(test);
    const writer = writerOf(folder);
    await Promise.all([1, 2, 3, 4].map((minutes) => writer.append(session, [bullet(minutes)])));
    assert.deepEqual(
      folder.entries(DAY).map((entry) => entry.time),
      ["10:01", "10:02", "10:03", "10:04"],
    );
    assert.equal(folder.sessions(DAY).length, 1);
  });

  it("callAfterAFailedOne_isDone", async (test) => {
    const folder = new JournalFolder(test);
    const writer = writerOf(folder);
    const failed = writer.append(session, [{ ...bullet(1), key: "1_2" }]);
    const done = writer.append(session, [bullet(2)]);
    await assert.rejects(failed, TypeError);
    await done;
    assert.equal(folder.entries(DAY).length, 1);
  });

  it("keyOrSessionThatTheFormatCannotHold_isRefused_andNothingIsWritten", async (test) => {
    const folder = new JournalFolder(test);
    for (const key of ["", "1-2-3 -->", "1--2", "A-1", "1\n"]) {
      await assert.rejects(
        writerOf(folder).append(session, [bullet(1), { ...bullet(2), key }]),
        TypeError,
      );
    }
    for (const id of ["", " a", "a\nb", "<!--", "\u202e"]) {
      await assert.rejects(writerOf(folder).append({ ...session, id }, [bullet(1)]), TypeError);
    }
    assert.throws(() => statSync(folder.path), { code: "ENOENT" });
  });

  it("folderInPlaceOfTheFile_isAnError", async (test) => {
    const folder = new JournalFolder(test);
    mkdirSync(folder.pathOf(DAY), { recursive: true });
    await assert.rejects(writerOf(folder).append(session, [bullet(1)]), { code: "EISDIR" });
  });

  it("fileInPlaceOfTheFolder_isAnError", async (test) => {
    const folder = new JournalFolder(test);
    mkdirSync(dirname(folder.path), { recursive: true });
    writeFileSync(folder.path, "");
    await assert.rejects(writerOf(folder).append(session, [bullet(1)]), { code: "EEXIST" });
  });
});

describe("a late bullet", () => {
  it("anotherSessionIsLast_repeatsItsOwnHeading", async (test) => {
    const folder = new JournalFolder(test);
    const writer = writerOf(folder);
    await writer.append(session, [bullet(1)]);
    await writer.append(other, [bullet(91)]);
    await writer.append(session, [bullet(80)]);
    await writer.append(session, [bullet(81)]);
    assert.deepEqual(
      folder
        .sessions(DAY)
        .map(({ id, startTime, entries }) => [id, startTime, entries.map((entry) => entry.time)]),
      [
        [session.id, "2026-11-21T10:00:00+01:00", ["10:01"]],
        [other.id, "2026-11-21T11:30:00+01:00", ["11:31"]],
        [session.id, "2026-11-21T10:00:00+01:00", ["11:20", "11:21"]],
      ],
    );
    assert.match(
      folder.text(DAY),
      /-->\n\n## Session 2026-11-21T10-00-00\nstart_time: .*\n\n- \[11:20\]/,
    );
  });

  it("lateBulletThatStandsThere_writesNoHeading", async (test) => {
    const folder = new JournalFolder(test);
    const writer = writerOf(folder);
    await writer.append(session, [bullet(1)]);
    await writer.append(other, [bullet(91)]);
    const before = folder.text(DAY);
    await writer.append(session, [bullet(1)]);
    assert.equal(folder.text(DAY), before);
  });

  it("sessionWhoseIdBeginsLikeTheLast_isAnother", async (test) => {
    const folder = new JournalFolder(test);
    await writerOf(folder).append({ ...session, id: "1" }, [bullet(1)]);
    await writerOf(folder).append({ ...session, id: "12" }, [bullet(2)]);
    await writerOf(folder).append({ ...session, id: "1" }, [bullet(3)]);
    assert.deepEqual(
      folder.sessions(DAY).map(({ id }) => id),
      ["1", "12", "1"],
    );
  });
});

describe("the user's edits", () => {
  const edited = async (folder: JournalFolder, edit: (text: string) => string): Promise<string> => {
    await writerOf(folder).append(session, [bullet(1), bullet(2)]);
    const text = edit(folder.text(DAY));
    folder.save(DAY, text);
    await writerOf(folder).append(session, [bullet(2), bullet(3)]);
    assert.ok(folder.text(DAY).startsWith(text), "what stood there stands there");
    return folder.text(DAY).slice(text.length);
  };
  const line = `- [10:03] [Terminal] Viewed: "3" <!-- key:${NINE_UTC + 180_000}-7-0 -->\n`;
  const heading = `## Session ${session.id}\nstart_time: 2026-11-21T10:00:00+01:00\n\n`;

  const table: readonly (readonly [string, (text: string) => string, string])[] = [
    ["proseAtTheEnd_isFollowed", (text) => `${text}\nThat was hard.\n`, line],
    ["missingFinalNewline_isAddedFirst", (text) => text.trimEnd(), `\n${line}`],
    ["unfinishedProse_getsItsNewline", (text) => `${text}I was`, `\n${line}`],
    ["unfinishedDash_getsItsNewline", (text) => `${text}- [10:0`, `\n${line}`],
    ["rewordedBullet_staysAsItIs", (text) => text.replace(/Viewed: "2"/, "Wrote the plan"), line],
    [
      "ownHeadingAtTheEnd_bringsTheSessionsBack",
      (text) => `${text}\n## Notes\n\n- fine\n`,
      `\n${heading}${line}`,
    ],
    [
      "removedStartTime_comesBackWithItsHeading",
      (text) => text.replace(/start_time:.*\n/, ""),
      `\n${heading}${line}`,
    ],
    ["hashtagAtTheEnd_isNoHeading", (text) => `${text}#tired\n`, line],
    [
      "renamedSession_bringsItBack",
      (text) => text.replace(`## Session ${session.id}`, "## Session x"),
      `\n${heading}${line}`,
    ],
    [
      "indentedHeading_isStillTheSessions",
      (text) => text.replace("## Session", "  ## Session"),
      line,
    ],
    ["windowsLineEnds_stay", (text) => text.replaceAll("\n", "\r\n"), line],
    [
      "windowsLineEndsAndAHeading_getOneBlankLine",
      (text) => `${text}# Mine\n\n`.replaceAll("\n", "\r\n"),
      `${heading}${line}`,
    ],
    [
      "everythingReplaced_isFollowed",
      () => "My own words.\n",
      `\n${heading}- [10:02] [Terminal] Viewed: "2" <!-- key:${NINE_UTC + 120_000}-7-0 -->\n${line}`,
    ],
  ];
  for (const [name, edit, expected] of table) {
    it(name, async (test) => {
      assert.equal(await edited(new JournalFolder(test), edit), expected);
    });
  }

  it("deletedBullet_doesNotComeBack", async (test) => {
    const folder = new JournalFolder(test);
    await writerOf(folder).append(session, [bullet(1), bullet(2)]);
    folder.save(DAY, folder.text(DAY).replace(/- \[10:01\].*\n/, ""));
    await writerOf(folder).append(session, [bullet(3)]);
    assert.deepEqual(
      folder.entries(DAY).map((entry) => entry.time),
      ["10:02", "10:03"],
    );
  });

  it("removedFile_isMadeAnew", async (test) => {
    const folder = new JournalFolder(test);
    const writer = writerOf(folder);
    await writer.append(session, [bullet(1)]);
    rmSync(folder.pathOf(DAY));
    await writer.append(session, [bullet(2)]);
    assert.match(folder.text(DAY), /^# 2026-11-21, Saturday\n\n## Session /);
    assert.equal(folder.entries(DAY).length, 1);
  });

  it("fileReplacedBetweenCalls_isFollowed", async (test) => {
    const folder = new JournalFolder(test);
    const writer = writerOf(folder);
    await writer.append(session, [bullet(1)]);
    writeFileSync(`${folder.path}/edited`, `${folder.text(DAY)}mine\n`);
    renameSync(`${folder.path}/edited`, folder.pathOf(DAY));
    await writer.append(session, [bullet(2)]);
    assert.equal(folder.entries(DAY).length, 2);
    assert.match(folder.text(DAY), /\nmine\n- \[10:02\]/);
  });

  it("fileThatIsNotUtf8_isOnlyAppendedTo", async (test) => {
    const folder = new JournalFolder(test);
    mkdirSync(folder.path, { recursive: true });
    writeFileSync(folder.pathOf(DAY), Buffer.from([0x66, 0xfc, 0x72]));
    await writerOf(folder).append(session, [bullet(1)]);
    await writerOf(folder).append(session, [bullet(1), bullet(2)]);
    const text = folder.text(DAY);
    assert.match(text, /^f\ufffdr\n\n## Session /);
    assert.equal(text.match(/<!-- key:/g)?.length, 2);
  });
});

describe("any text", () => {
  it("isReadBackAsExactlyOneEntry", async (test) => {
    const folder = new JournalFolder(test);
    const writer = writerOf(folder);
    const random = new Random(3);
    const expected: string[] = [];
    for (let index = 0; index < 400; index += 1) {
      const text = `[Work] Viewed: ${hostileText(random)}`;
      await writer.append(session, [bullet(index / 60, text, index)]);
      expected.push(bulletLine(text));
    }
    assert.deepEqual(
      folder.entries(DAY).map((entry) => entry.text),
      expected,
    );
    assert.equal(folder.sessions(DAY).length, 1);
  });

  it("besideAnyEditOfTheUser_isReadBackAsExactlyOneEntry", async (test) => {
    const folder = new JournalFolder(test);
    const random = new Random(4);
    for (let index = 0; index < 300; index += 1) {
      const text = `[Work] Viewed: ${index} of ${hostileText(random)}`;
      const mine = random.pick([session, other]);
      await writerOf(folder).append(mine, [bullet(1, text, index)]);
      const own = folder.entries(DAY).filter((entry) => entry.text === bulletLine(text));
      assert.equal(own.length, 1, JSON.stringify(text));
      appendFileSync(folder.pathOf(DAY), Buffer.from(hostileText(random, 6)));
    }
  });

  it("tenThousandCharacters_areOneEntry", async (test) => {
    const folder = new JournalFolder(test);
    for (const [index, piece] of ["x", "😀", "<!--", "-->", "]\n", "\ud800"].entries()) {
      const text = `[Work] Viewed: ${piece.repeat(10_000)}`;
      await writerOf(folder).append(session, [bullet(1, text, index)]);
      assert.equal(folder.entries(DAY).at(-1)?.text, bulletLine(text));
      assert.equal(folder.entries(DAY).length, index + 1);
    }
  });
});
