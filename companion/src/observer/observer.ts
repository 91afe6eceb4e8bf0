import type { Clock } from "../base/clock.ts";
import { describeFailure, isSystemError } from "../base/failure.ts";
import { isoLocalTime, sortableLocalTime } from "../base/localTime.ts";
import { Mutex } from "../base/mutex.ts";
import { Engine, type EngineDependencies } from "../engine/engine.ts";
import { FrameReader } from "../frames/frameReader.ts";
import type { Secrets, SettingsInUse } from "../settings/settingsInUse.ts";
import type { BatchWriter } from "../spool/batchWriter.ts";
import { Chunker } from "../spool/chunker.ts";
import type { Disk } from "../spool/disk.ts";
import type { SpoolLayout } from "../spool/layout.ts";
import type { SpooledFrame } from "../spool/records.ts";
import { type Leftovers, type Recovery, recover } from "../spool/recovery.ts";
import type { Spool } from "../spool/spool.ts";
import type { ObserverSettings, ObserverStatus } from "../wire/records.ts";
import { SessionLedger } from "./sessionFile.ts";

export interface ObserverDependencies
  extends Omit<EngineDependencies, "spool" | "onWritten" | "onComplaint"> {
  readonly settings: SettingsInUse;
  readonly disk: Disk;
  readonly layout: SpoolLayout;
  readonly clock: Clock;
  /** How many bytes of pictures may wait, given the bytes that are free without them. */
  quotaBytes(freeBytes: number): number;
}

/** Frames were sent while no session runs. */
export class NotRecording extends Error {
  override readonly name = "NotRecording";
}

/** The observer is on its way out and begins nothing new. */
export class ShuttingDown extends Error {
  override readonly name = "ShuttingDown";
}

const quietFactor = 2;
const leastQuietMs = 1_000;
const greatestQuietMs = 3_600_000;

/**
 * The observer itself, without its server: the session, the frames on their way to the disk, and
 * the queue behind them. Start, stop and batches take turns; the status never waits.
 */
export class Observer {
  readonly #dependencies: ObserverDependencies;
  readonly #spool: Spool;
  readonly #engine: Engine;
  readonly #ledger: SessionLedger;
  readonly #turns = new Mutex();
  readonly #complaints = new Map<string, string>();
  #leftovers: Leftovers | undefined;
  #chunker: Chunker | undefined;
  /** A session whose end could not be stored; the next start or stop tries again. */
  #isStopping = false;
  #isClosing = false;
  #sessionId: string | undefined;
  #chunkIndex = 0;
  #lastAction: string | undefined;
  #lastChunkAt: string | undefined;
  #cancelQuietTimer: (() => void) | undefined;

  private constructor(
    dependencies: ObserverDependencies,
    { spool, leftovers }: Recovery,
    ledger: SessionLedger,
  ) {
    this.#dependencies = dependencies;
    this.#spool = spool;
    this.#leftovers = leftovers;
    this.#ledger = ledger;
    this.#engine = new Engine({
      ...dependencies,
      spool,
      onWritten: (count) => {
        this.#lastAction = `Wrote ${count} journal ${count === 1 ? "line" : "lines"}.`;
      },
      onComplaint: (area, sentence) => this.#complain(area, sentence),
    });
  }

  /**
   * Opens the state folder and ends what a kill left open; throws when the folder can't be used.
   * The caller holds the lock. Nothing is analysed before `beginAnalysis`.
   */
  static async open(dependencies: ObserverDependencies): Promise<Observer> {
    const { disk, layout, clock } = dependencies;
    const recovery = await recover(disk, layout, clock.nowMs());
    const ledger = await SessionLedger.open(disk, layout.sessionFile, clock.nowMs());
    const observer = new Observer(dependencies, recovery, ledger);
    for (const complaint of recovery.complaints) observer.#complain("recovery", complaint);
    await observer.#putRight().catch(() => undefined);
    return observer;
  }

  beginAnalysis(): void {
    this.#engine.open();
  }

  /** Costs no disk access: the application asks every 1.5 s. */
  status(): ObserverStatus {
    const pending = this.#spool.pendingChunks.length;
    const reason = this.#engine.blockedReason;
    return {
      running: this.#chunker !== undefined && !this.#isStopping,
      sessionId: this.#sessionId,
      chunkIndex: this.#chunkIndex,
      lastAction: this.#lastAction,
      lastError: [...this.#complaints.values()].at(-1),
      lastChunkAt: this.#lastChunkAt,
      pendingAnalysisChunks: pending,
      analysisBackfillActive: pending > 0 && reason === undefined,
      analysisBackfillBlocked: reason !== undefined,
      analysisBackfillLastError: reason,
    };
  }

  /** Begins a session; while one runs it goes on. */
  start(): Promise<ObserverStatus> {
    return this.#inTurn(async () => {
      await this.#putRight();
      if (this.#isStopping) await this.#endSession();
      // The disk may have filled up since the last recording, and this one needs room.
      await this.#keepQuota(this.#chunker);
      if (this.#chunker === undefined) await this.#beginSession();
      return this.status();
    });
  }

  /**
   * Ends the session. The built-in analyser's lines stand in the journal when this resolves,
   * because the application ends the observer right after.
   */
  stop(): Promise<ObserverStatus> {
    return this.#inTurn(async () => {
      await this.#putRight();
      if (this.#chunker !== undefined) await this.#endSession();
      await this.#engine.settled();
      return this.status();
    });
  }

  /**
   * Takes the body of a batch, and resolves when its frames are safe on the disk. Throws
   * NotRecording, JsonError, InvalidRecord, or the error of the disk or the body; nothing of the
   * batch is kept then.
   */
  receiveFrames(body: AsyncIterable<Uint8Array>): Promise<ObserverStatus> {
    return this.#inTurn(async () => {
      const chunker = this.#chunker;
      if (chunker === undefined || this.#isStopping) {
        throw new NotRecording("No recording session is running.");
      }
      const { batch, frames } = await this.#receiveBatch(body, chunker);
      this.#complain("frames", undefined);
      if (frames.length > 0) {
        this.#spool.accepted(batch.id, frames.length);
        chunker.add(frames);
        this.#lastAction = `Received ${frames.length} ${frames.length === 1 ? "frame" : "frames"}.`;
        await this.#closeChunks(() =>
          chunker.closeComplete(this.#dependencies.settings.record.chunkSizeMs),
        );
        await this.#keepQuota(chunker);
        this.#awaitQuiet(chunker);
      }
      return this.status();
    });
  }

  replaceSettings(given: ObserverSettings): ObserverSettings {
    const { settings } = this.#dependencies;
    settings.replace(given);
    this.#engine.wake();
    return settings.answer;
  }

  applySecrets(secrets: Secrets): void {
    this.#dependencies.settings.applySecrets(secrets);
    this.#engine.wake();
  }

  /** Ends the session as a stop would, and then all work. Nothing may be asked of it afterwards. */
  async close(): Promise<void> {
    this.#isClosing = true;
    this.#cancelQuietTimer?.();
    await this.#turns.run(async () => {
      if (this.#chunker !== undefined) await this.#endSession().catch(() => undefined);
      await this.#engine.settled();
    });
    await this.#engine.close();
  }

  #inTurn<Result>(task: () => Promise<Result>): Promise<Result> {
    return this.#turns.run(async () => {
      if (this.#isClosing) throw new ShuttingDown("The observer is shutting down.");
      return task();
    });
  }

  async #beginSession(): Promise<void> {
    const nowMs = this.#dependencies.clock.nowMs();
    try {
      const session = await this.#ledger.begin(sortableLocalTime(nowMs), nowMs);
      this.#forgetComplaints();
      this.#chunker = new Chunker(this.#spool, session);
      this.#sessionId = session.id;
      this.#chunkIndex = 0;
      this.#lastAction = "Recording started.";
    } catch (error) {
      this.#complain("frames", `${describeFailure("The recording can't be started", error)}.`);
      throw error;
    }
  }

  async #endSession(): Promise<void> {
    const chunker = this.#chunker;
    if (chunker === undefined) return;
    this.#isStopping = true;
    this.#cancelQuietTimer?.();
    try {
      await chunker.finish(this.#dependencies.clock.nowMs());
      this.#noteChunks(chunker);
      await this.#ledger.end();
    } catch (error) {
      this.#complain("frames", `${describeFailure("The recording can't be ended", error)}.`);
      throw error;
    }
    this.#chunker = undefined;
    this.#isStopping = false;
    this.#lastAction = "Recording stopped.";
    this.#engine.wake();
  }

  /** What a kill has left comes before any new session; on a full disk it may take more attempts. */
  async #putRight(): Promise<void> {
    if (this.#leftovers === undefined) return;
    try {
      const { chunkSizeMs } = this.#dependencies.settings.record;
      await this.#leftovers.putRight(this.#ledger.open, chunkSizeMs);
      if (this.#ledger.open !== undefined) await this.#ledger.end();
    } catch (error) {
      this.#complain("leftovers", `${describeFailure("Frames can't be recovered", error)}.`);
      throw error;
    }
    this.#leftovers = undefined;
    this.#complain("leftovers", undefined);
    this.#engine.wake();
  }

  async #receiveBatch(body: AsyncIterable<Uint8Array>, { session }: Chunker) {
    let batch: BatchWriter | undefined;
    try {
      batch = await this.#spool.beginBatch(session);
      return { batch, frames: await this.#writeBatch(body, batch) };
    } catch (error) {
      await batch?.abandon();
      if (isSystemError(error)) {
        this.#complain("frames", `${describeFailure("The frames can't be kept", error)}.`);
      }
      throw error;
    }
  }

  async #writeBatch(
    body: AsyncIterable<Uint8Array>,
    batch: BatchWriter,
  ): Promise<readonly SpooledFrame[]> {
    const reader = new FrameReader();
    let frameCount = 0;
    for await (const piece of body) {
      for (const part of reader.push(piece)) {
        await batch.take(part);
        if (part.kind === "frame") frameCount += 1;
      }
    }
    reader.end();
    if (frameCount > 0) return batch.commit();
    await batch.abandon();
    return [];
  }

  /** The frames are safe already, so a failure here is told and tried again, and no more. */
  async #closeChunks(close: () => Promise<void>): Promise<void> {
    try {
      await close();
      this.#complain("closing", undefined);
    } catch (error) {
      this.#complain("closing", `${describeFailure("A chunk can't be closed", error)}.`);
    }
    if (this.#chunker !== undefined) this.#noteChunks(this.#chunker);
    this.#engine.wake();
  }

  #noteChunks(chunker: Chunker): void {
    if (chunker.closedCount === this.#chunkIndex) return;
    this.#chunkIndex = chunker.closedCount;
    this.#lastChunkAt = isoLocalTime(this.#dependencies.clock.nowMs());
  }

  async #keepQuota(chunker: Chunker | undefined): Promise<void> {
    const { disk, layout, quotaBytes } = this.#dependencies;
    const { pictures } = this.#spool;
    try {
      const looseBytes = () => chunker?.pictureBytes ?? 0;
      const free = (await disk.freeBytes(layout.root)) + pictures.bytes + looseBytes();
      const quota = quotaBytes(free);
      // Only closed chunks can be thinned, and the settings may make one of an hour.
      if (looseBytes() > quota) await this.#closeChunks(async () => chunker?.closeOpen());
      const thinned = await pictures.shrinkTo(Math.max(0, quota - looseBytes()));
      if (thinned > 0) {
        this.#complain(
          "quota",
          `The space for waiting pictures is used up: pictures of ${thinned} waiting ${thinned === 1 ? "chunk were" : "chunks were"} removed, their texts are kept.`,
        );
      } else if (pictures.bytes === 0) {
        this.#complain("quota", undefined);
      }
    } catch (error) {
      this.#complain("quota", `${describeFailure("The free space can't be kept", error)}.`);
    }
  }

  /** A screen that stays as it is sends no frame, and the chunk before it shall not wait for one. */
  #awaitQuiet(chunker: Chunker): void {
    this.#cancelQuietTimer?.();
    if (!chunker.hasFrames) return;
    const { clock, settings } = this.#dependencies;
    const wanted = Number(settings.record.chunkSizeMs) * quietFactor;
    const delayMs = Math.min(Math.max(wanted, leastQuietMs), greatestQuietMs);
    this.#cancelQuietTimer = clock.after(delayMs, () => {
      void this.#turns.run(async () => {
        if (this.#chunker === chunker && !this.#isStopping) {
          await this.#closeChunks(() => chunker.closeOpen());
        }
      });
    });
  }

  /** A new recording begins without the old one's; but pictures that wait are as thin as before. */
  #forgetComplaints(): void {
    for (const area of this.#complaints.keys()) {
      if (area !== "quota") this.#complaints.delete(area);
    }
  }

  #complain(area: string, sentence: string | undefined): void {
    this.#complaints.delete(area);
    if (sentence !== undefined) this.#complaints.set(area, sentence);
  }
}
