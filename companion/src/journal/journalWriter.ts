import { join } from "node:path";
import { Mutex } from "../base/mutex.ts";
import type { TimeRange } from "../spool/records.ts";
import { bulletLine, plainLine } from "./bulletText.ts";
import { pageWithout } from "./forgottenPage.ts";
import { type JournalFile, type JournalFiles, realJournalFiles } from "./journalFiles.ts";
import { localDay, pageAddition } from "./journalPage.ts";
import type { JournalSession, KeyedBullet } from "./types.ts";

const PAGE = /^([0-9]{4}-[0-9]{2}-[0-9]{2})\.md$/;
/** What a kill has left of a page that was about to be replaced. */
const REPLACEMENT = /^[0-9]{4}-[0-9]{2}-[0-9]{2}\.md\.new$/;
const ONE_DAY_MS = 86_400_000;
const KEY = /^[0-9a-z]+(?:-[0-9a-z]+)*$/;
/** How often somebody else may replace the file under our hands before we give up for this time. */
const MAX_REPLACEMENTS = 5;

/**
 * The identity of a bullet: its time in UTC milliseconds, the chunk it came from, its number in that
 * chunk. The same bullet must get the same key when its chunk is handled again after a crash.
 */
export function bulletKey(atMs: number, chunkId: number | bigint, n: number): string {
  const key = `${atMs}-${chunkId}-${n}`;
  if (!/^\d+-\d+-\d+$/.test(key)) {
    throw new RangeError(`not the parts of a bullet's key: ${key}`);
  }
  return key;
}

/** A write that the disk took only a part of; `code` is the system's word for the usual reason. */
class ShortWriteError extends Error {
  readonly code = "ENOSPC";
  readonly path: string;

  constructor(path: string) {
    super(`ENOSPC: the disk took only a part of the entry, ${path}`);
    this.path = path;
  }
}

function checkSession(session: JournalSession): void {
  if (session.id === "" || plainLine(session.id) !== session.id) {
    throw new TypeError("a session's id is one line of visible text");
  }
}

function byDay(bullets: readonly KeyedBullet[]): Map<string, KeyedBullet[]> {
  const days = new Map<string, KeyedBullet[]>();
  for (const bullet of bullets) {
    if (!KEY.test(bullet.key)) throw new TypeError(`not a bullet's key: ${bullet.key}`);
    if (bulletLine(bullet.text) === "") continue;
    const day = localDay(bullet.atMs);
    days.set(day, [...(days.get(day) ?? []), bullet]);
  }
  return days;
}

/**
 * Appends bullets to the user's journal, `<outputDirectory>/YYYY-MM-DD.md`. The files are the user's:
 * what stands in them is never changed, and a bullet whose key stands there is not written again.
 */
export class JournalWriter {
  readonly #folder: string;
  readonly #files: JournalFiles;
  readonly #turns = new Mutex();
  readonly #durableNames = new Set<string>();

  /** `outputDirectory` is absolute, "~" already expanded. It is made when the first bullet comes. */
  constructor(options: { outputDirectory: string; files?: JournalFiles }) {
    this.#folder = options.outputDirectory;
    this.#files = options.files ?? realJournalFiles;
  }

  /**
   * Resolves when every bullet stands in the file of its own local day, under the session's heading,
   * and is safe from a power failure. Calls take their turns. Bullets without visible text are left
   * out, and line breaks and comment marks in a text become blanks.
   *
   * Rejects with the system's error (ENOSPC, EACCES, ...); then none of the day's bullets that failed
   * is in its file, the same call may be made again at any time, and writes only what is missing.
   * A TypeError means a key or session id that the file format can't hold: a mistake of the caller.
   */
  append(session: JournalSession, bullets: readonly KeyedBullet[]): Promise<void> {
    return this.#turns.run(async () => {
      checkSession(session);
      const days = byDay(bullets);
      if (days.size === 0) return;
      await this.#files.makeFolder(this.#folder);
      for (const [day, ofDay] of days) {
        await this.#appendToDay(join(this.#folder, `${day}.md`), session, ofDay);
      }
    });
  }

  /**
   * Removes the lines with our keys that are about that time, and the heading of a session that has
   * nothing else; a day without anything else has no file any more. What the user wrote stays as it is.
   * Resolves with how many lines went.
   */
  forget(range: TimeRange): Promise<number> {
    return this.#turns.run(async () => {
      // A day more at both ends: the time zone may have been another one.
      const [first, last] = [range.fromMs - ONE_DAY_MS, range.toMs + ONE_DAY_MS].map(localDay);
      const names = await this.#files.list(this.#folder);
      for (const name of names.filter((one) => REPLACEMENT.test(one))) {
        await this.#files.removeWhole(join(this.#folder, name));
      }
      const pages = names.filter((name) => {
        const day = PAGE.exec(name)?.[1];
        return (
          day !== undefined &&
          first !== undefined &&
          last !== undefined &&
          day >= first &&
          day <= last
        );
      });
      let count = 0;
      for (const name of pages.sort())
        count += await this.#forgetOn(join(this.#folder, name), range);
      return count;
    });
  }

  async #forgetOn(path: string, range: TimeRange): Promise<number> {
    for (let attempt = 0; attempt < MAX_REPLACEMENTS; attempt += 1) {
      const page = await this.#files.read(path);
      if (page === undefined) return 0;
      const { rest, count } = pageWithout(page, range);
      if (count === 0) return 0;
      // An editor may have saved since we read.
      if ((await this.#files.read(path)) !== page) continue;
      if (rest !== "") await this.#files.replace(path, rest);
      else await this.#removeDay(path);
      return count;
    }
    throw new Error(`The journal file is being replaced again and again: ${path}`);
  }

  async #removeDay(path: string): Promise<void> {
    this.#durableNames.delete(path);
    await this.#files.removeWhole(path);
  }

  async #appendToDay(
    path: string,
    session: JournalSession,
    bullets: readonly KeyedBullet[],
  ): Promise<void> {
    let created = false;
    for (let attempt = 0; attempt < MAX_REPLACEMENTS; attempt += 1) {
      const file = await this.#files.open(path);
      try {
        created ||= file.created;
        if (!(await this.#appendMissing(file, path, session, bullets))) continue;
        // Also when nothing was missing: an earlier attempt may have died before this.
        await file.sync();
        await this.#makeNameDurable(path, created);
        // An editor that saved in the meantime left us with a file that has no name any more.
        if (await file.standsAt(path)) return;
      } catch (error) {
        await this.#removeIfEmpty(file, path).catch(() => undefined);
        throw error;
      } finally {
        await file.close();
      }
    }
    throw new Error(`The journal file is being replaced again and again: ${path}`);
  }

  /** False when somebody else wrote at the same time, and the page has to be looked at again. */
  async #appendMissing(
    file: JournalFile,
    path: string,
    session: JournalSession,
    bullets: readonly KeyedBullet[],
  ): Promise<boolean> {
    const page = await file.read();
    const addition = pageAddition(page, session, bullets);
    if (addition.length === 0) return true;
    if ((await file.size()) !== page.length) return false;
    const written = await file.append(addition);
    if (written !== addition.length) {
      await this.#takeBack(file, page.length, written);
      throw new ShortWriteError(path);
    }
    // An editor that saves in place writes over what came in between.
    return (await file.size()) === page.length + addition.length;
  }

  /** A day without an entry has no file: an empty one would be shown as a day. */
  async #removeIfEmpty(file: JournalFile, path: string): Promise<void> {
    if (file.created && (await file.size()) === 0 && (await file.standsAt(path))) {
      await this.#files.remove(path);
    }
  }

  /**
   * Cuts off what was written of an entry, but only while it is the file's end: once somebody else
   * has appended, their text would go too, and a torn line is the smaller harm.
   */
  async #takeBack(file: JournalFile, oldSize: number, written: number): Promise<void> {
    if (written > 0 && (await file.size()) === oldSize + written) {
      await file.truncate(oldSize);
    }
  }

  async #makeNameDurable(path: string, created: boolean): Promise<void> {
    // The first time for an old file too: who made it may have died before it came to this.
    if (!created && this.#durableNames.has(path)) return;
    await this.#files.syncFolder(this.#folder);
    this.#durableNames.add(path);
  }
}
