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

/** What the archive has removed: whole clips, and frames that were not in clips yet. */
export interface ForgottenFootage {
  readonly clips: number;
  readonly frames: number;
}

export interface ForgettingDependencies {
  readonly clock: Clock;
  readonly spool: Spool;
  readonly ranges: ForgottenRanges;
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

  /** From now on, whatever happens, it is removed. */
  note(range: TimeRange): Promise<void> {
    const { ranges, clock } = this.#dependencies;
    return ranges.add(range, clock.nowMs());
  }

  /**
   * Removes it from this machine, but for what waits for the archive. Nothing else may be at work on
   * the waiting chunks, and none may be open. Throws the error of the disk.
   */
  async here(range: TimeRange): Promise<ForgottenHere> {
    const { onComplaint } = this.#dependencies;
    try {
      const removed = await this.#removeHere(range);
      onComplaint("forget", undefined);
      return removed;
    } catch (error) {
      const tried = "What you have had forgotten could not all be removed yet";
      onComplaint("forget", `${describeFailure(tried, error)}.`);
      throw error;
    }
  }

  async #removeHere(range: TimeRange): Promise<ForgottenHere> {
    const { spool, ranges, settings, home, forgetInJournal } = this.#dependencies;
    const { rawInputDirectory, outputDirectory } = settings.record;
    const waiting = await forgetWaiting(spool, range);
    const putAside = await forgetPutAside(spool.disk, spool.layout, range);
    const raw = await forgetRawInputs(
      spool.disk,
      expandedAbsolutePath(rawInputDirectory, home),
      range,
    );
    const directory = expandedAbsolutePath(outputDirectory, home);
    const journalLines = await forgetInJournal(directory, range);
    await ranges.done(range, "here");
    return {
      frames: waiting + putAside,
      rawInputs: raw.removed,
      rawInputsUnknown: raw.unknown,
      journalLines,
    };
  }

  /** Goes on with what a kill or the disk has cut off. Throws as `here`. */
  async finishHere(): Promise<void> {
    for (const range of this.#dependencies.ranges.leftIn("here")) await this.here(range);
  }

  /** Resolves with what was removed, and why not all of it was. What is left is tried again later. */
  inArchive(): Promise<ForgottenFootage & { readonly waits: string | undefined }> {
    return this.#archiveTurns.run(() => this.#inArchive());
  }

  async #inArchive() {
    const { ranges, forgetInArchive, onComplaint } = this.#dependencies;
    const removed = { clips: 0, frames: 0 };
    for (const range of ranges.leftIn("archive")) {
      try {
        const { clips, frames } = await forgetInArchive(range);
        removed.clips += clips;
        removed.frames += frames;
        await ranges.done(range, "archive");
      } catch (error) {
        const waits = waitingSentence(range, error);
        onComplaint("archive forget", waits);
        this.#retryLater();
        return { ...removed, waits };
      }
    }
    onComplaint("archive forget", undefined);
    this.#retryMs = firstRetryMs;
    return { ...removed, waits: undefined };
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

function waitingSentence({ fromMs, toMs }: TimeRange, error: unknown): string {
  const [from, to] = [fromMs, toMs].map((ms) => isoLocalTime(ms).slice(0, 16).replace("T", " "));
  const why = error instanceof Error ? error.message.replace(/\.$/, "") : String(error);
  return `Footage of ${from} to ${to} could not be removed from the archive yet: ${why}. It is tried again until it can be.`;
}
