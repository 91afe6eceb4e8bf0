import { resolve } from "node:path";
import type { Clock } from "../base/clock.ts";
import { describeFailure } from "../base/failure.ts";
import { isoLocalTime } from "../base/localTime.ts";
import { Mutex } from "../base/mutex.ts";
import { expandedAbsolutePath } from "../settings/expandedPath.ts";
import type { SettingsInUse } from "../settings/settingsInUse.ts";
import type { TimeRange } from "../spool/records.ts";
import type { Spool } from "../spool/spool.ts";
import type { ForgetReport } from "../wire/records.ts";
import { forgetRawInputs } from "./forgetRawInputs.ts";
import { forgetPutAside, forgetWaiting } from "./forgetSpooled.ts";
import type { ForgottenRanges } from "./forgottenRanges.ts";
import type { FolderKind, WrittenFolders } from "./writtenFolders.ts";

/** What the archive has removed: whole clips, and frames that were not in clips yet. */
export interface ForgottenFootage {
  readonly clips: number;
  readonly frames: number;
  /** Former places of the archive, where it may lie too; absent where there is none. */
  readonly elsewhere?: readonly string[];
}

export interface ForgettingDependencies {
  readonly clock: Clock;
  readonly spool: Spool;
  readonly ranges: ForgottenRanges;
  readonly folders: WrittenFolders;
  readonly settings: SettingsInUse;
  readonly home: string;
  /** Removes the journal's lines about that time, and resolves with how many there were. */
  forgetInJournal(directory: string, range: TimeRange): Promise<number>;
  /** Removes footage of that time; throws while the archive can't be reached. */
  forgetInArchive(range: TimeRange): Promise<ForgottenFootage>;
  onComplaint(area: string, sentence: string | undefined): void;
}

type ForgottenHere = Omit<ForgetReport, "archiveClips" | "archiveFrames" | "archiveWaits">;

const firstRetryMs = 5_000;
const greatestRetryMs = 600_000;

/**
 * Removes a time from everything that the observer keeps. That it was asked for is noted first; each
 * part may be repeated, so that one that was cut off is brought to its end by the next start.
 */
export class Forgetting {
  readonly #dependencies: ForgettingDependencies;
  readonly #archiveTurns = new Mutex();
  #retryMs = firstRetryMs;
  #cancelRetry: (() => void) | undefined;
  #isClosed = false;

  constructor(dependencies: ForgettingDependencies) {
    this.#dependencies = dependencies;
  }

  /** From now on, whatever happens, it is removed. Resolves with what of it is tried again, if need be. */
  note(range: TimeRange): Promise<TimeRange> {
    const { ranges, clock } = this.#dependencies;
    return ranges.add(range, clock.nowMs());
  }

  /**
   * Removes it from this machine, but for what waits for the archive. Nothing else may be at work on
   * the waiting chunks, and none may be open. Throws the error of the disk, and then has removed what
   * could be. `noted` is the range as it was kept: only now there is nothing yet that came after it.
   */
  here(range: TimeRange, noted: TimeRange = range): Promise<ForgottenHere> {
    return this.saying(async () => {
      const removed = await this.#removeHere(range);
      await this.#dependencies.ranges.done(noted, "here");
      return removed;
    });
  }

  /** Does what belongs to a forgetting that was noted; the status says so while it fails. */
  async saying<Result>(task: () => Promise<Result>): Promise<Result> {
    const { onComplaint } = this.#dependencies;
    try {
      const result = await task();
      onComplaint("forget", undefined);
      return result;
    } catch (error) {
      const tried = "What you have had forgotten could not all be removed yet";
      onComplaint("forget", `${describeFailure(tried, error)}.`);
      throw error;
    }
  }

  async #removeHere(range: TimeRange): Promise<ForgottenHere> {
    const { spool, settings, forgetInJournal } = this.#dependencies;
    const { rawInputDirectory, outputDirectory } = settings.record;
    const journals = await this.#folders("journals", outputDirectory);
    const raws = await this.#folders("rawInputs", rawInputDirectory);
    const all = new Attempts();
    const waiting = await all.tried(() => forgetWaiting(spool, range), 0);
    const putAside = await all.tried(() => forgetPutAside(spool.disk, spool.layout, range), 0);
    let [rawInputs, rawInputsUnknown, journalLines] = [0, 0, 0];
    for (const folder of raws.there) {
      const raw = await all.tried(() => forgetRawInputs(spool.disk, folder, range), noRawInputs);
      rawInputs += raw.removed;
      rawInputsUnknown += raw.unknown;
    }
    for (const folder of journals.there) {
      journalLines += await all.tried(() => forgetInJournal(folder, range), 0);
    }
    all.throwTheFirst();
    const frames = waiting + putAside;
    const notSearched = sentenceAbout([...journals.gone, ...raws.gone]);
    return { frames, rawInputs, rawInputsUnknown, journalLines, notSearched };
  }

  /** Those ever written to, and the one that the settings tell, though nothing may be in it yet. */
  async #folders(kind: FolderKind, present: string) {
    const { folders, home } = this.#dependencies;
    const folder = resolve(expandedAbsolutePath(present, home));
    const { there, gone } = await folders.of(kind);
    return { there: [...new Set([...there, folder])], gone };
  }

  /** Notes the folders that the settings tell, where they are there: versions before this one did not. */
  async noteFolders(): Promise<void> {
    const { folders, settings, home } = this.#dependencies;
    const { rawInputDirectory, outputDirectory } = settings.record;
    await folders.noteIfThere("journals", expandedAbsolutePath(outputDirectory, home));
    await folders.noteIfThere("rawInputs", expandedAbsolutePath(rawInputDirectory, home));
  }

  /** Goes on with what a kill or the disk has cut off. Throws as `here`. */
  async finishHere(): Promise<void> {
    for (const range of this.#dependencies.ranges.leftIn("here")) await this.here(range);
  }

  /** Resolves with what was removed, and why not all of it was. What is left is tried again later. */
  inArchive() {
    return this.#archiveTurns.run(() => this.#inArchive());
  }

  async #inArchive() {
    const { ranges, forgetInArchive, onComplaint } = this.#dependencies;
    const removed = { clips: 0, frames: 0 };
    const elsewhere = new Set<string>();
    for (const range of ranges.leftIn("archive")) {
      try {
        const there = await forgetInArchive(range);
        removed.clips += there.clips;
        removed.frames += there.frames;
        for (const place of there.elsewhere ?? []) elsewhere.add(place);
        await ranges.done(range, "archive");
      } catch (error) {
        const waits = waitingSentence(range, error);
        onComplaint("archive forget", waits);
        this.#retryLater();
        return { ...removed, waits, notSearched: archivesSentence(elsewhere) };
      }
    }
    onComplaint("archive forget", undefined);
    this.#retryMs = firstRetryMs;
    return { ...removed, waits: undefined, notSearched: archivesSentence(elsewhere) };
  }

  close(): void {
    this.#isClosed = true;
    this.#cancelRetry?.();
  }

  #retryLater(): void {
    this.#cancelRetry?.();
    if (this.#isClosed) return;
    const retry = () => void this.inArchive().catch(() => undefined);
    this.#cancelRetry = this.#dependencies.clock.after(this.#retryMs, retry);
    this.#retryMs = Math.min(this.#retryMs * 2, greatestRetryMs);
  }
}

/** Does one thing after the other, also when some of them fail. */
class Attempts {
  readonly #errors: unknown[] = [];

  async tried<Result>(task: () => Promise<Result>, otherwise: Result): Promise<Result> {
    try {
      return await task();
    } catch (error) {
      this.#errors.push(error);
      return otherwise;
    }
  }

  throwTheFirst(): void {
    if (this.#errors.length > 0) throw this.#errors[0];
  }
}

const noRawInputs = { removed: 0, unknown: 0 };

function sentenceAbout(gone: readonly string[]): string | undefined {
  if (gone.length === 0) return undefined;
  const what = gone.length === 1 ? "This folder was" : "These folders were";
  return `${what} written to before and can't be found now: ${gone.join(", ")}. What may be in there is not removed. Connect its disk and run this again, or, where it is no more, take it out of ~/.ostrel/observer/folders.json.`;
}

function archivesSentence(places: ReadonlySet<string>): string | undefined {
  if (places.size === 0) return undefined;
  return `Footage of that time may also lie in an archive that was in use before: ${[...places].join(", ")}. To remove it there, choose that place again and run this again.`;
}

function waitingSentence({ fromMs, toMs }: TimeRange, error: unknown): string {
  const [from, to] = [fromMs, toMs].map((ms) => isoLocalTime(ms).slice(0, 16).replace("T", " "));
  const why = error instanceof Error ? error.message.replace(/\.$/, "") : String(error);
  return `Footage of ${from} to ${to} could not be removed from the archive yet: ${why}. It is tried again until it can be.`;
}
