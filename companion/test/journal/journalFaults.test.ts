import assert from "node:assert/strict";
import { appendFileSync, existsSync, renameSync, statSync, writeFileSync } from "node:fs";
import { describe, it } from "node:test";
import { type JournalFiles, realJournalFiles } from "../../src/journal/journalFiles.ts";
import { localDay } from "../../src/journal/journalPage.ts";
import { bulletKey, JournalWriter } from "../../src/journal/journalWriter.ts";
import type { KeyedBullet } from "../../src/journal/types.ts";
import { JournalFolder } from "../support/journalFolder.ts";
import { type JournalStep, WatchedFiles } from "../support/watchedFiles.ts";

const NOON = new Date(2026, 10, 21, 12).getTime();
const DAY = localDay(NOON);
const session = { id: "one", startedAtMs: NOON };
const texts = [
  '[Terminal] Viewed: "größer 😀"',
  '[Mousepad] Edited: "שלום", unsaved changes',
  "[A] Open: in front",
];
const bullets: readonly KeyedBullet[] = texts.map((text, n) => ({
  atMs: NOON + n * 60_000,
  text,
  key: bulletKey(NOON + n * 60_000, 3, n),
}));

const read = (folder: JournalFolder): string[] => folder.entries(DAY).map((entry) => entry.text);

const writerOn = (folder: JournalFolder, files: JournalFiles = realJournalFiles): JournalWriter =>
  new JournalWriter({ outputDirectory: folder.path, files });

const diskFull = (): NodeJS.ErrnoException =>
  Object.assign(new Error("ENOSPC"), { code: "ENOSPC" });

describe("order of the operations", () => {
  it("entry_isDurableBeforeItIsAcknowledged", async (test) => {
    const folder = new JournalFolder(test);
    const files = new WatchedFiles();
    const writer = writerOn(folder, files);
    await writer.append(session, bullets.slice(0, 1));
    const all: readonly JournalStep[] = [
      "makeFolder",
      "open",
      "read",
      "size",
      "append",
      "size",
      "sync",
      "syncFolder",
      "standsAt",
      "close",
    ];
    assert.deepEqual(files.steps, all);
    files.steps.length = 0;
    await writer.append(session, bullets);
    assert.deepEqual(
      files.steps,
      all.filter((step) => step !== "syncFolder"),
    );
  });

  it("entryThatStandsThere_isStillSyncedBeforeItIsAcknowledged", async (test) => {
    const folder = new JournalFolder(test);
    await writerOn(folder).append(session, bullets);
    const files = new WatchedFiles();
    await writerOn(folder, files).append(session, bullets);
    assert.deepEqual(files.steps, [
      "makeFolder",
      "open",
      "read",
      "sync",
      "syncFolder",
      "standsAt",
      "close",
    ]);
  });
});

describe("a kill", () => {
  for (let at = 0; at < 10; at += 1) {
    it(`beforeOperation${at}_losesNothing_andTheNextAttemptWritesNothingTwice`, async (test) => {
      const folder = new JournalFolder(test);
      const files = new WatchedFiles();
      files.before = () => {
        if (files.steps.length > at) throw new Error("killed");
      };
      await assert.rejects(writerOn(folder, files).append(session, bullets), /killed/);
      await writerOn(folder).append(session, bullets);
      assert.deepEqual(read(folder), texts);
      assert.equal(folder.sessions(DAY).length, 1);
    });
  }
});

describe("a write that a power failure tore", () => {
  async function tornAt(folder: JournalFolder, count: number): Promise<void> {
    const files = new WatchedFiles();
    let died = false;
    files.append = async (file, bytes) => {
      await file.append(bytes.subarray(0, count));
      died = true;
      throw new Error("power failed");
    };
    files.before = (step) => {
      if (died && step !== "close") throw new Error("power failed");
    };
    await assert.rejects(writerOn(folder, files).append(session, bullets), /power failed/);
  }

  it("anywhere_isCompleted_andEveryBulletStandsThereOnce", async (test) => {
    const whole = new JournalFolder(test);
    await writerOn(whole).append(session, bullets);
    const length = Buffer.byteLength(whole.text(DAY));
    const startTime = whole.sessions(DAY)[0]?.startTime;
    for (let count = 1; count < length; count += 1) {
      const folder = new JournalFolder(test);
      await tornAt(folder, count);
      await writerOn(folder).append(session, bullets);
      assert.deepEqual(read(folder), texts, `${count} bytes`);
      assert.ok(folder.sessions(DAY).every(({ id }) => id === "one"));
      assert.equal(folder.sessions(DAY).at(-1)?.startTime, startTime, `${count} bytes`);
    }
  });

  it("withinABullet_leavesNoTrace", async (test) => {
    const whole = new JournalFolder(test);
    await writerOn(whole).append(session, bullets);
    const folder = new JournalFolder(test);
    await tornAt(folder, Buffer.from(whole.text(DAY)).indexOf("größer") + 3);
    await writerOn(folder).append(session, bullets);
    assert.equal(folder.text(DAY), whole.text(DAY));
  });
});

describe("a full disk", () => {
  it("refusedWrite_isPassedOn_andLeavesNoFile", async (test) => {
    const folder = new JournalFolder(test);
    const files = new WatchedFiles();
    files.append = () => Promise.reject(diskFull());
    await assert.rejects(writerOn(folder, files).append(session, bullets), { code: "ENOSPC" });
    assert.equal(existsSync(folder.pathOf(DAY)), false);
  });

  it("partialWriteOfANewFile_leavesNoFile", async (test) => {
    const folder = new JournalFolder(test);
    const files = new WatchedFiles();
    files.append = (file, bytes) => file.append(bytes.subarray(0, 40));
    await assert.rejects(writerOn(folder, files).append(session, bullets), { code: "ENOSPC" });
    assert.equal(existsSync(folder.pathOf(DAY)), false);
  });

  it("partialWrite_isTakenBack_andTheNextAttemptWritesAll", async (test) => {
    const folder = new JournalFolder(test);
    const files = new WatchedFiles();
    const writer = writerOn(folder, files);
    await writer.append(session, bullets.slice(0, 1));
    const before = folder.text(DAY);
    files.append = (file, bytes) => file.append(bytes.subarray(0, 20));
    await assert.rejects(writer.append(session, bullets), { code: "ENOSPC" });
    assert.equal(folder.text(DAY), before);
    files.append = (file, bytes) => file.append(bytes);
    await writer.append(session, bullets);
    assert.deepEqual(read(folder), texts);
  });

  it("partialWriteAfterWhichTheUserWrote_isNotCutOff", async (test) => {
    const folder = new JournalFolder(test);
    const files = new WatchedFiles();
    const writer = writerOn(folder, files);
    await writer.append(session, bullets.slice(0, 1));
    files.append = async (file, bytes) => {
      const written = await file.append(bytes.subarray(0, 20));
      appendFileSync(folder.pathOf(DAY), "\nmine\n");
      return written;
    };
    await assert.rejects(writer.append(session, bullets), { code: "ENOSPC" });
    assert.match(folder.text(DAY), /\nmine\n$/);
    files.append = (file, bytes) => file.append(bytes);
    await writer.append(session, bullets);
    for (const text of texts) {
      assert.equal(read(folder).filter((found) => found === text).length, 1);
    }
  });

  it("emptyFileOfTheUser_isNotRemoved", async (test) => {
    const folder = new JournalFolder(test);
    await realJournalFiles.makeFolder(folder.path);
    folder.save(DAY, "");
    const files = new WatchedFiles();
    files.append = () => Promise.reject(diskFull());
    await assert.rejects(writerOn(folder, files).append(session, bullets), { code: "ENOSPC" });
    assert.equal(statSync(folder.pathOf(DAY)).size, 0);
  });

  it("failedSync_isPassedOn_andTheNextAttemptWritesNothingTwice", async (test) => {
    const folder = new JournalFolder(test);
    const files = new WatchedFiles();
    files.before = (step) => {
      if (step === "sync") throw Object.assign(new Error("EIO"), { code: "EIO" });
    };
    await assert.rejects(writerOn(folder, files).append(session, bullets), { code: "EIO" });
    await writerOn(folder).append(session, bullets);
    assert.deepEqual(read(folder), texts);
  });
});

describe("an editor at the same time", () => {
  /** Saves as most editors do: a new file over the old one. */
  function replace(folder: JournalFolder, text: string): void {
    writeFileSync(`${folder.path}/.saving`, text);
    renameSync(`${folder.path}/.saving`, folder.pathOf(DAY));
  }

  it("savesBetweenReadingAndWriting_keepsItsText_andTheBulletsFollow", async (test) => {
    const folder = new JournalFolder(test);
    await writerOn(folder).append(session, bullets.slice(0, 1));
    const edited = `${folder.text(DAY)}my thoughts\n`;
    const files = new WatchedFiles();
    let saved = false;
    files.before = (step) => {
      if (step === "append" && !saved) {
        saved = true;
        replace(folder, edited);
      }
    };
    await writerOn(folder, files).append(session, bullets);
    assert.ok(folder.text(DAY).startsWith(edited));
    assert.deepEqual(read(folder), texts);
  });

  it("savesAgainAndAgain_isAnErrorInTheEnd_andNothingIsLost", async (test) => {
    const folder = new JournalFolder(test);
    await writerOn(folder).append(session, bullets.slice(0, 1));
    const files = new WatchedFiles();
    files.before = (step) => {
      if (step === "append") replace(folder, "mine\n");
    };
    await assert.rejects(
      writerOn(folder, files).append(session, bullets),
      /replaced again and again/,
    );
    assert.equal(folder.text(DAY), "mine\n");
    await writerOn(folder).append(session, bullets);
    assert.deepEqual(read(folder), texts);
  });

  it("appendsBetweenReadingAndWriting_bothStandThere", async (test) => {
    const folder = new JournalFolder(test);
    await writerOn(folder).append(session, bullets.slice(0, 1));
    const files = new WatchedFiles();
    files.before = (step) => {
      if (step === "append") appendFileSync(folder.pathOf(DAY), "my thoughts\n");
    };
    await writerOn(folder, files).append(session, bullets);
    assert.match(folder.text(DAY), /\nmy thoughts\n/);
    assert.deepEqual(read(folder), texts);
  });

  it("takesTheLastLineEndBetweenReadingAndWriting_leavesTheBulletALineOfItsOwn", async (test) => {
    const folder = new JournalFolder(test);
    await writerOn(folder).append(session, bullets.slice(0, 1));
    const files = new WatchedFiles();
    let saved = false;
    files.before = (step) => {
      if (step !== "size" || saved) return;
      saved = true;
      folder.save(DAY, `${folder.text(DAY)}my thoughts`);
    };
    await writerOn(folder, files).append(session, bullets);
    assert.match(folder.text(DAY), /\nmy thoughts\n- /);
    assert.deepEqual(read(folder), texts);
  });

  it("writesItsOldCopyOverOurWriting_getsTheBulletsAgain", async (test) => {
    const folder = new JournalFolder(test);
    await writerOn(folder).append(session, bullets.slice(0, 1));
    const copy = `${folder.text(DAY)}my thoughts\n`;
    const files = new WatchedFiles();
    files.append = async (file, bytes) => {
      const written = await file.append(bytes);
      if (!folder.text(DAY).includes("my thoughts")) folder.save(DAY, copy);
      return written;
    };
    await writerOn(folder, files).append(session, bullets);
    assert.ok(folder.text(DAY).startsWith(copy));
    assert.deepEqual(read(folder), texts);
  });

  it("removesTheFileBetweenReadingAndWriting_isMadeAnew", async (test) => {
    const folder = new JournalFolder(test);
    await writerOn(folder).append(session, bullets.slice(0, 1));
    const files = new WatchedFiles();
    let removed = false;
    files.before = (step) => {
      if (step === "append" && !removed) {
        removed = true;
        renameSync(folder.pathOf(DAY), `${folder.path}/elsewhere`);
      }
    };
    await writerOn(folder, files).append(session, bullets);
    assert.deepEqual(read(folder), texts);
  });
});
