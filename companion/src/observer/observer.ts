import type { Clock } from "../base/clock.ts";
import { describeFailure, isDiskFull, isSystemError } from "../base/failure.ts";
import { isoLocalTime, sortableLocalTime } from "../base/localTime.ts";
import { Mutex } from "../base/mutex.ts";
import { Engine, type EngineDependencies } from "../engine/engine.ts";
import { FrameReader } from "../frames/frameReader.ts";
import { chunkLengthMs } from "../settings/chunkLength.ts";
import type { Secrets, SettingsInUse } from "../settings/settingsInUse.ts";
import type { BatchWriter } from "../spool/batchWriter.ts";
import { Chunker } from "../spool/chunker.ts";
import type { SpooledFrame } from "../spool/records.ts";
import { type Leftovers, type Recovery, recover } from "../spool/recovery.ts";
import type { Spool } from "../spool/spool.ts";
import type { ObserverSettings, ObserverStatus } from "../wire/records.ts";
import { Complaints } from "./complaints.ts";
import { keepQuota, type QuotaDependencies, thinnedSentence } from "./quota.ts";
import { SessionLedger } from "./sessionFile.ts";

export interface ObserverDependencies
  extends Omit<EngineDependencies, "spool" | "onWritten" | "onComplaint" | "withRoom">,
    QuotaDependencies {
  readonly settings: SettingsInUse;
  readonly clock: Clock;
  /** Why the user's rules of analysis are not in use. */
  readonly rulesComplaint?: string | undefined;
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
/** How soon what the disk refused is tried again, should nobody ask for anything before. */
const mendAfterMs = 10_000;
/** How long a stop waits for its lines behind a long queue; its caller gives up after 60 s. */
const stopPatienceMs = 20_000;
/** The same when the observer ends, for which it has 5 s in all. */
const closePatienceMs = 3_000;

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
  // Pictures that wait are as thin as before, and the rules are as they were at the start.
  readonly #complaints = new Complaints(["quota", "rules"]);
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
      onComplaint: (area, sentence) => this.#complaints.set(area, sentence),
      withRoom: (task) => this.#withRoom(task),
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
    for (const complaint of recovery.complaints) observer.#complaints.set("recovery", complaint);
    if (dependencies.rulesComplaint !== undefined) {
      observer.#complaints.set("rules", dependencies.rulesComplaint);
    }
    await observer.#putRight().catch(() => undefined);
    observer.#awaitQuiet();
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
      lastError: this.#complaints.newest,
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
   * because the application ends the observer right after. Only behind a queue of very many chunks
   * they don't: it resolves in time all the same, and the status tells how many wait.
   */
  async stop(): Promise<ObserverStatus> {
    await this.#inTurn(async () => {
      await this.#putRight();
      if (this.#chunker !== undefined) await this.#endSession();
    });
    await this.#settled(stopPatienceMs);
    return this.status();
  }

  /**
   * Takes the body of a batch, and resolves when its frames are safe on the disk; pictures that find
   * no room there are left out, which the status tells. Throws NotRecording, JsonError,
   * InvalidRecord, or the error of the disk or the body; nothing of the batch is kept then.
   */
  receiveFrames(body: AsyncIterable<Uint8Array>): Promise<ObserverStatus> {
    return this.#inTurn(async () => {
      const chunker = this.#chunker;
      if (chunker === undefined || this.#isStopping) {
        throw new NotRecording("No recording session is running.");
      }
      const { batch, frames } = await this.#receiveBatch(body, chunker);
      this.#complaints.set("frames", undefined);
      this.#tellLostPictures(batch);
      if (frames.length > 0) {
        this.#spool.accepted(batch.id, frames.length);
        chunker.add(frames);
        this.#lastAction = `Received ${frames.length} ${frames.length === 1 ? "frame" : "frames"}.`;
        await this.#closeChunks(() =>
          chunker.closeComplete(chunkLengthMs(this.#dependencies.settings.record)),
        );
        await this.#keepQuota(chunker);
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
    });
    await this.#settled(closePatienceMs);
    await this.#engine.close();
  }

  #inTurn<Result>(task: () => Promise<Result>): Promise<Result> {
    return this.#turns.run(async () => {
      if (this.#isClosing) throw new ShuttingDown("The observer is shutting down.");
      try {
        return await task();
      } finally {
        this.#awaitQuiet();
      }
    });
  }

  /** Resolves when the queue has come as far as it can for now, or when the time is up. */
  async #settled(patienceMs: number): Promise<void> {
    let cancel = () => {};
    const timeIsUp = new Promise<void>((resolve) => {
      cancel = this.#dependencies.clock.after(patienceMs, resolve);
    });
    await Promise.race([this.#engine.settled(), timeIsUp]);
    cancel();
  }

  async #beginSession(): Promise<void> {
    const nowMs = this.#dependencies.clock.nowMs();
    try {
      const name = sortableLocalTime(nowMs);
      const session = await this.#withRoom(() => this.#ledger.begin(name, nowMs));
      this.#complaints.forgetRecording();
      this.#chunker = new Chunker(this.#spool, session);
      this.#sessionId = session.id;
      this.#chunkIndex = 0;
      this.#lastAction = "Recording started.";
    } catch (error) {
      this.#complaints.set(
        "frames",
        `${describeFailure("The recording can't be started", error)}.`,
      );
      throw error;
    }
  }

  async #endSession(): Promise<void> {
    const chunker = this.#chunker;
    if (chunker === undefined) return;
    this.#isStopping = true;
    this.#cancelQuietTimer?.();
    try {
      await this.#withRoom(() => chunker.finish(this.#dependencies.clock.nowMs()));
      this.#noteChunks(chunker);
      await this.#withRoom(() => this.#ledger.end());
    } catch (error) {
      this.#complaints.set("frames", `${describeFailure("The recording can't be ended", error)}.`);
      throw error;
    }
    this.#chunker = undefined;
    this.#isStopping = false;
    this.#complaints.set("frames", undefined);
    this.#lastAction = "Recording stopped.";
    this.#engine.wake();
  }

  /** What a kill has left comes before any new session; on a full disk it may take more attempts. */
  async #putRight(): Promise<void> {
    if (this.#leftovers === undefined) return;
    try {
      const lengthMs = chunkLengthMs(this.#dependencies.settings.record);
      await this.#leftovers.putRight(this.#ledger.open, lengthMs);
      if (this.#ledger.open !== undefined) await this.#ledger.end();
    } catch (error) {
      this.#complaints.set("leftovers", `${describeFailure("Frames can't be recovered", error)}.`);
      throw error;
    }
    this.#leftovers = undefined;
    this.#complaints.set("leftovers", undefined);
    this.#engine.wake();
  }

  async #receiveBatch(body: AsyncIterable<Uint8Array>, chunker: Chunker) {
    let batch: BatchWriter | undefined;
    try {
      batch = await this.#withRoom(() => this.#spool.beginBatch(chunker.session));
      return { batch, frames: await this.#writeBatch(body, batch) };
    } catch (error) {
      if (batch !== undefined) await this.#spool.abandonBatch(batch);
      if (isSystemError(error)) {
        this.#complaints.set("frames", `${describeFailure("The frames can't be kept", error)}.`);
      }
      throw error;
    }
  }

  #tellLostPictures({ lostPictures }: BatchWriter): void {
    if (lostPictures === undefined) {
      this.#complaints.set("pictures", undefined);
      return;
    }
    const { count, reason } = lostPictures;
    const what = count === 1 ? "A picture can't be kept" : `${count} pictures can't be kept`;
    this.#complaints.set("pictures", `${describeFailure(what, reason)}. The texts are kept.`);
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
    await this.#spool.abandonBatch(batch);
    return [];
  }

  /** The frames are safe already, so a failure here is told and tried again, and no more. */
  async #closeChunks(close: () => Promise<void>): Promise<void> {
    try {
      await this.#withRoom(close);
      this.#complaints.set("closing", undefined);
    } catch (error) {
      this.#complaints.set("closing", `${describeFailure("A chunk can't be closed", error)}.`);
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
    const { pictures } = this.#spool;
    try {
      const thinned = await keepQuota(this.#dependencies, pictures, chunker, () =>
        this.#closeChunks(async () => chunker?.closeOpen()),
      );
      if (thinned > 0) this.#complaints.set("quota", thinnedSentence(thinned));
      else if (pictures.bytes === 0) this.#complaints.set("quota", undefined);
      this.#complaints.set("space", undefined);
    } catch (error) {
      this.#complaints.set("space", `${describeFailure("The free space can't be kept", error)}.`);
    }
  }

  /** On a full disk waiting pictures give way, half of them at a time: texts are worth more. */
  async #withRoom<Result>(task: () => Promise<Result>): Promise<Result> {
    const { pictures } = this.#spool;
    for (;;) {
      try {
        return await task();
      } catch (error) {
        if (!isDiskFull(error) || pictures.bytes === 0) throw error;
        const thinned = await pictures.shrinkTo(Math.floor(pictures.bytes / 2));
        if (thinned > 0) this.#complaints.set("quota", thinnedSentence(thinned));
      }
    }
  }

  /**
   * The only timer. A screen that stays as it is sends no frame, and the chunk before it shall not
   * wait for one; nor shall what the disk has refused wait for somebody to ask again.
   */
  #awaitQuiet(): void {
    this.#cancelQuietTimer?.();
    if (this.#isClosing) return;
    const isUnfinished =
      this.#leftovers !== undefined || this.#isStopping || this.#spool.isUnfinished;
    if (!isUnfinished && this.#chunker?.hasFrames !== true) return;
    const hasFailed = isUnfinished || this.#complaints.has("closing");
    const { clock, settings } = this.#dependencies;
    const quietMs = chunkLengthMs(settings.record) * quietFactor;
    this.#cancelQuietTimer = clock.after(hasFailed ? mendAfterMs : quietMs, () => {
      void this.#inTurn(() => this.#tidy()).catch(() => undefined);
    });
  }

  /** Closes what is open, and ends what a refusal of the disk has left half done. */
  async #tidy(): Promise<void> {
    await this.#putRight();
    const chunker = this.#chunker;
    if (this.#isStopping) await this.#endSession();
    else if (chunker !== undefined) await this.#closeChunks(() => chunker.closeOpen());
    else await this.#spool.finishClosing();
  }
}
