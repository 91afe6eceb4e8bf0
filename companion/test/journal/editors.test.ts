import assert from "node:assert/strict";
import {
  appendFileSync,
  existsSync,
  mkdirSync,
  readFileSync,
  renameSync,
  rmdirSync,
  rmSync,
  symlinkSync,
  writeFileSync,
} from "node:fs";
import { join } from "node:path";
import { describe, it, type TestContext } from "node:test";
import { localDay } from "../../src/journal/journalPage.ts";
import { JournalWriter } from "../../src/journal/journalWriter.ts";
import type { KeyedBullet } from "../../src/journal/types.ts";
import { realDisk } from "../../src/spool/disk.ts";
import { JournalFolder } from "../support/journalFolder.ts";
import { ObserverHarness } from "../support/observerHarness.ts";
import { framePayload } from "../support/payloads.ts";
import type { Random } from "../support/random.ts";
import { seeds, withSeed } from "../support/rounds.ts";
import { WatchedFiles } from "../support/watchedFiles.ts";

const NOON = new Date(2026, 10, 21, 12).getTime();
const DAY = localDay(NOON);
const session = { id: "one", startedAtMs: NOON };

function bulletOf(n: number): KeyedBullet {
  return { atMs: NOON + n * 1_000, text: `[A] Viewed: "bullet ${n}"`, key: `${NOON + n}-1-${n}` };
}

/** Somebody who edits the day's file with one editor and another, and knows what it should hold. */
class User {
  readonly #folder: JournalFolder;
  readonly #random: Random;
  #noteCount = 0;
  /** The user's own lines that stand there. */
  notes: string[] = [];
  readonly #deleted = new Set<number>();

  constructor(folder: JournalFolder, random: Random) {
    this.#folder = folder;
    this.#random = random;
  }

  /** One edit of any kind, or of those that may come at the worst of moments. */
  edit(isWorstMoment: boolean): void {
    const anyTime = [this.saveByRename, this.appendLine, this.deleteFile];
    const notThen = [this.saveInPlace, this.dropFinalNewline, this.useWindowsLineEnds];
    const edits = isWorstMoment
      ? anyTime
      : [...anyTime, ...notThen, this.emptyFile, this.deleteBullet, this.replaceByLink];
    const edit = this.#random.pick(edits);
    if (existsSync(this.#path)) edit.call(this);
  }

  get #path(): string {
    return this.#folder.pathOf(DAY);
  }

  get #text(): string {
    return this.#folder.text(DAY);
  }

  /** The bullets that stood there and that the user took out since the last call. */
  takeDeleted(): number[] {
    const deleted = [...this.#deleted];
    this.#deleted.clear();
    return deleted;
  }

  /** With a note between the lines, as vim and VS Code save. */
  saveByRename(): void {
    this.#replace(this.#withNote());
  }

  saveInPlace(): void {
    writeFileSync(this.#path, this.#withNote());
  }

  appendLine(): void {
    appendFileSync(
      this.#path,
      `${this.#text === "" || /\n$/.test(this.#text) ? "" : "\n"}${this.#note()}\n`,
    );
  }

  dropFinalNewline(): void {
    this.#replace(this.#text.replace(/\r?\n$/, ""));
  }

  useWindowsLineEnds(): void {
    this.#replace(this.#text.replace(/\r?\n/g, "\r\n"));
  }

  deleteFile(): void {
    this.#take(this.#text);
    rmSync(this.#path);
  }

  emptyFile(): void {
    this.#take(this.#text);
    writeFileSync(this.#path, "");
  }

  deleteBullet(): void {
    const bullets = this.#text.split("\n").filter((line) => line.includes("<!-- key:"));
    if (bullets.length === 0) return;
    const gone = this.#random.pick(bullets);
    this.#take(gone);
    this.#replace(
      this.#text
        .split("\n")
        .filter((line) => line !== gone)
        .join("\n"),
    );
  }

  /** The file goes elsewhere, and a link to it takes its place. */
  replaceByLink(): void {
    const elsewhere = join(this.#folder.path, `elsewhere-${this.#noteCount}`);
    this.#noteCount += 1;
    writeFileSync(elsewhere, this.#text);
    rmSync(this.#path);
    symlinkSync(elsewhere, this.#path);
  }

  /** What goes out of the file with the text. */
  #take(text: string): void {
    for (const [, n] of text.matchAll(/bullet ([0-9]+)/g)) this.#deleted.add(Number(n));
    this.notes = this.notes.filter((note) => !text.includes(note));
  }

  #note(): string {
    this.#noteCount += 1;
    const note = `note ${this.#noteCount}.`;
    this.notes.push(note);
    return note;
  }

  #withNote(): string {
    const lines = this.#text.split("\n");
    lines.splice(this.#random.integer(0, lines.length - 1), 0, this.#note());
    return lines.join("\n");
  }

  #replace(text: string): void {
    writeFileSync(join(this.#folder.path, ".saving"), text);
    renameSync(join(this.#folder.path, ".saving"), this.#path);
  }
}

it("anyEditsAtAnyMoment_nothingOfTheUsersIsLost_andEachBulletStandsThereOnceOrIsGoneForGood", async (test) => {
  for (const seed of seeds(60)) {
    await withSeed(seed, async (random) => {
      const folder = new JournalFolder(test);
      const user = new User(folder, random);
      const files = new WatchedFiles();
      const writer = new JournalWriter({ outputDirectory: folder.path, files });
      let edits = 0;
      files.before = (step) => {
        if (edits === 0 || random.next() < 0.7) return;
        edits -= 1;
        user.edit(step === "append");
      };
      // Gone for good, and those that went while they were being written: these may come again.
      const gone = new Set<number>();
      const unsure = new Set<number>();
      for (let call = 0; call < 6; call += 1) {
        // Fewer than what makes the writer give up for a while.
        edits = 3;
        await writer.append(session, [bulletOf(2 * call), bulletOf(2 * call + 1)]);
        for (const n of user.takeDeleted()) (n < 2 * call ? gone : unsure).add(n);
        user.edit(false);
        for (const n of user.takeDeleted()) gone.add(n);
      }
      const text = existsSync(folder.pathOf(DAY)) ? folder.text(DAY) : "";
      const lines = text.split(/\r?\n/);
      for (const note of user.notes) {
        assert.equal(lines.filter((line) => line === note).length, 1, `${note}\n${text}`);
      }
      const standing = existsSync(folder.pathOf(DAY)) ? folder.entries(DAY) : [];
      for (let n = 0; n < 12; n += 1) {
        const count = standing.filter((entry) => entry.text.includes(`"bullet ${n}"`)).length;
        const right = gone.has(n) ? [0] : unsure.has(n) ? [0, 1] : [1];
        assert.ok(right.includes(count), `bullet ${n}: ${count}\n${text}`);
      }
    });
  }
});

describe("a bullet that the user deletes", () => {
  const second = (n: number) => framePayload(NOON + n * 1_000, { text: `at ${n}` });

  it("staysDeleted_evenWhenItsChunkHasToBeFinishedAgain", async () => {
    const state = { isFull: false };
    const lines: string[] = [];
    const harness = await ObserverHarness.open({
      disk: {
        ...realDisk,
        async replaceFile(path, text) {
          const error = Object.assign(new Error("full"), { code: "ENOSPC" });
          if (state.isFull && path.endsWith("queue.json")) throw error;
          await realDisk.replaceFile(path, text);
        },
      },
      async appendToJournal(_, __, bullets) {
        lines.push(...bullets.map((bullet) => bullet.text));
      },
    });
    await harness.observer.start();
    await harness.send([second(0)]);
    state.isFull = true;
    const { analysisBackfillLastError } = await harness.observer.stop();
    assert.match(analysisBackfillLastError ?? "", /The queue is stuck: The disk is full/);
    assert.deepEqual(lines, ["at 0", "end of 1"]);
    state.isFull = false;
    harness.clock.advance(5_000);
    assert.equal((await harness.observer.stop()).pendingAnalysisChunks, 0);
    assert.deepEqual(lines, ["at 0", "end of 1"]);
  });
});

describe("something else in the file's place", () => {
  interface Obstacle {
    readonly name: string;
    readonly words: RegExp;
    put(path: string): void;
    remove(path: string): void;
  }
  const obstacles: readonly Obstacle[] = [
    {
      name: "folder",
      words: /A folder stands where a file should be: .*\.md\. Move away what stands there/,
      put: (path) => mkdirSync(path),
      remove: (path) => rmdirSync(path),
    },
    {
      name: "linkToNowhere",
      words: /No such file or folder: .*\.md\. Make its folder, or choose another/,
      put: (path) => symlinkSync(join(path, "..", "gone", "away"), path),
      remove: (path) => rmSync(path),
    },
    {
      name: "linkToItself",
      words: /The symbolic links lead in a circle: .*\.md\. Move away/,
      put: (path) => symlinkSync(path, path),
      remove: (path) => rmSync(path),
    },
    {
      name: "namedPipe",
      words: /Not a regular file: .*\.md/,
      put: (path) => symlinkSync("/dev/null", path),
      remove: (path) => rmSync(path),
    },
  ];

  async function recorded(test: TestContext) {
    const folder = new JournalFolder(test);
    const writer = new JournalWriter({ outputDirectory: folder.path });
    const harness = await ObserverHarness.open({
      appendToJournal: (_, of, bullets) => writer.append(of, bullets),
    });
    mkdirSync(folder.path, { recursive: true });
    await harness.observer.start();
    await harness.send([framePayload(NOON, { text: "[A] Viewed: it" })]);
    return { folder, harness };
  }

  for (const { name, words, put, remove } of obstacles) {
    it(`${name}_isToldInPlainWords_andTheBulletsComeWhenItIsGone`, async (test) => {
      const { folder, harness } = await recorded(test);
      put(folder.pathOf(DAY));
      harness.clock.setWall(NOON);
      const { analysisBackfillLastError } = await harness.observer.stop();
      assert.match(analysisBackfillLastError ?? "", words);
      remove(folder.pathOf(DAY));
      harness.clock.advance(5_000);
      assert.equal((await harness.observer.stop()).analysisBackfillBlocked, false);
      assert.deepEqual(
        folder.entries(DAY).map((entry) => entry.text),
        ["[A] Viewed: it", "end of 1"],
      );
    });
  }

  it("linkToAFileElsewhere_isFollowed_andStaysALink", async (test) => {
    const { folder, harness } = await recorded(test);
    const elsewhere = join(folder.path, "elsewhere.txt");
    writeFileSync(elsewhere, "mine\n");
    symlinkSync(elsewhere, folder.pathOf(DAY));
    harness.clock.setWall(NOON);
    await harness.observer.stop();
    assert.match(readFileSync(elsewhere, "utf8"), /^mine\n\n## Session .*\n.*\n\n- \[12:00\]/);
  });
});
