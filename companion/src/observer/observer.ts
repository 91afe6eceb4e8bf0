import type { Clock } from "../base/clock.ts";
import { describeFailure, isDiskFull, isSystemError } from "../base/failure.ts";
import { isoLocalTime, sortableLocalTime } from "../base/localTime.ts";
import { Mutex } from "../base/mutex.ts";
import { Engine, type EngineDependencies } from "../engine/engine.ts";
import { gapText } from "../engine/gapText.ts";
import { chunkLengthMs } from "../settings/chunkLength.ts";
import type { Secrets, SettingsInUse } from "../settings/settingsInUse.ts";
import type { BatchWriter } from "../spool/batchWriter.ts";
import { Chunker } from "../spool/chunker.ts";
import type { Gap } from "../spool/records.ts";
import { type Leftovers, type Recovery, recover } from "../spool/recovery.ts";
import type { FinishedChunks, Spool } from "../spool/spool.ts";
import type { ObserverSettings, ObserverStatus } from "../wire/records.ts";
import { Complaints } from "./complaints.ts";
import { diskCause, type GapArea, OpenGaps } from "./openGaps.ts";
import { keepQuota, type QuotaDependencies, thinnedSentence } from "./quota.ts";
import { lostPicturesSentence, writeBatch } from "./receiving.ts";
import { SessionLedger } from "./sessionFile.ts";

export interface ObserverDependencies
  extends Omit<EngineDependencies, "spool" | "onWritten" | "onComplaint" | "withRoom">,
    QuotaDependencies {
  readonly settings: SettingsInUse;
  readonly clock: Clock;
  /** Why the user's rules of analysis are not in use. */
  readonly rulesComplaint?: string | undefined;
  /** Who takes the pictures of finished chunks over. */
  readonly finishedChunks?: FinishedChunks | undefined;
  /** Frames are missing, or are no more: a sentence for the log. */
  onGap?(sentence: string): void;
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
/** How long the disk may take for a batch before that is said. */
const slowBatchMs = 25_000;
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
  // Pictures that wait are as thin as before, the rules are as they were at the start, and the archive
  // goes on between recordings.
  readonly #complaints = new Complaints(["quota", "rules", "archive", "archive room"]);
  #leftovers: Leftovers | undefined;
  #chunker: Chunker | undefined;
  readonly #gaps = new OpenGaps();
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
    const { disk, layout, clock, finishedChunks } = dependencies;
    const recovery = await recover(disk, layout, clock.nowMs(), finishedChunks);
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
    const reason = this.#engine.reason;
    const isBlocked = this.#engine.isBlocked;
    return {
      running: this.isRecording(),
      sessionId: this.#sessionId,
      chunkIndex: this.#chunkIndex,
      lastAction: this.#lastAction,
      lastError: this.#complaints.newest,
      lastChunkAt: this.#lastChunkAt,
      pendingAnalysisChunks: pending,
      analysisBackfillActive: pending > 0 && !isBlocked,
      analysisBackfillBlocked: isBlocked,
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
   * because the application ends the observer right after; of a model's, those of the last chunk.
   * Behind a queue of very many chunks, and with a slow model, they don't: it resolves in time all the
   * same, and the status tells how many wait.
   */
  async stop(): Promise<ObserverStatus> {
    await this.#inTurn(async () => {
      await this.#putRight();
      if (this.#chunker !== undefined) await this.#endSession();
    });
    const last = this.#spool.pendingChunks.at(-1)?.id;
    await this.#inTime(this.#engine.handled(last), stopPatienceMs);
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
      this.#complaints.set("pictures", lostPicturesSentence(batch.lostPictures));
      if (frames[0] !== undefined) await this.#endGap("disk", frames[0].receivedAtMs);
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
    this.#engine.settingsChanged();
    return settings.answer;
  }

  applySecrets(secrets: Secrets): void {
    this.#dependencies.settings.applySecrets(secrets);
    this.#engine.settingsChanged();
  }

  /** Others have something to say in the status; undefined when it is over. */
  complain(area: string, sentence: string | undefined): void {
    this.#complaints.set(area, sentence);
  }

  /** Resolves when no more of the waiting chunks can be worked on for now. */
  settled(): Promise<void> {
    return this.#engine.settled();
  }

  isRecording(): boolean {
    return this.#chunker !== undefined && !this.#isStopping;
  }

  /** Nobody asks for anything any more; the sentence says so. */
  silenceBegins(sinceMs: number, sentence: string): void {
    this.#gaps.begin("silence", sinceMs, "the application did not answer");
    this.#complaints.set("silence", sentence);
    this.#dependencies.onGap?.(sentence);
  }

  silenceEnds(): void {
    this.#complaints.set("silence", undefined);
    const nowMs = this.#dependencies.clock.nowMs();
    void this.#inTurn(() => this.#endGap("silence", nowMs)).catch(() => undefined);
  }

  /** Ends the session as a stop would, and then all work. Nothing may be asked of it afterwards. */
  async close(): Promise<void> {
    this.#isClosing = true;
    this.#cancelQuietTimer?.();
    await this.#turns.run(async () => {
      if (this.#chunker !== undefined) await this.#endSession().catch(() => undefined);
    });
    await this.#inTime(this.#engine.settled(), closePatienceMs);
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

  /** Resolves with the task, or when the time is up. */
  async #inTime(task: Promise<void>, patienceMs: number): Promise<void> {
    let cancel = () => {};
    const timeIsUp = new Promise<void>((resolve) => {
      cancel = this.#dependencies.clock.after(patienceMs, resolve);
    });
    await Promise.race([task, timeIsUp]);
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
      this.#engine.recordingBegins();
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
    const nowMs = this.#dependencies.clock.nowMs();
    try {
      for (const area of this.#gaps.areas) await this.#writeGap(chunker, area, nowMs);
      await this.#withRoom(() => chunker.finish(nowMs));
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
      const nowMs = this.#dependencies.clock.nowMs();
      const gap = await this.#leftovers.putRight(this.#ledger.open, lengthMs, nowMs);
      if (gap !== undefined) this.#tellInterruption(gap);
      if (this.#ledger.open !== undefined) await this.#ledger.end();
    } catch (error) {
      this.#complaints.set("leftovers", `${describeFailure("Frames can't be recovered", error)}.`);
      throw error;
    }
    this.#leftovers = undefined;
    this.#complaints.set("leftovers", undefined);
    this.#engine.wake();
  }

  #tellInterruption(gap: Gap): void {
    const sentence = `The last recording ended unexpectedly. In the journal: ${gapText(gap)}.`;
    this.#complaints.set("interruption", sentence);
    this.#dependencies.onGap?.(sentence);
  }

  /** The frames that end the gap are safe already; its line is tried again with the next ones. */
  async #endGap(area: GapArea, toMs: number): Promise<void> {
    const chunker = this.#chunker;
    if (chunker === undefined || !this.#gaps.areas.includes(area)) return;
    await this.#closeChunks(async () => {
      await this.#writeGap(chunker, area, toMs);
      await chunker.closeOpen();
    });
  }

  async #writeGap(chunker: Chunker, area: GapArea, toMs: number): Promise<void> {
    const gap = this.#gaps.ending(area, toMs);
    if (gap === undefined) return;
    await this.#withRoom(() => chunker.addGap(gap));
    this.#gaps.forget(area);
    this.#dependencies.onGap?.(`In the journal: ${gapText(gap)}.`);
  }

  async #receiveBatch(body: AsyncIterable<Uint8Array>, chunker: Chunker) {
    let batch: BatchWriter | undefined;
    let isSlow = false;
    const cancelSlow = this.#dependencies.clock.after(slowBatchMs, () => {
      const sentence = "The disk has been taking the frames for 25 s, and has not kept them yet.";
      isSlow = true;
      this.#complaints.set("frames", sentence);
      this.#dependencies.onGap?.(sentence);
    });
    try {
      batch = await this.#withRoom(() => this.#spool.beginBatch(chunker.session));
      const frames = await writeBatch(body, batch);
      if (frames.length === 0) await this.#spool.abandonBatch(batch);
      return { batch, frames };
    } catch (error) {
      if (batch !== undefined) await this.#spool.abandonBatch(batch);
      if (isSystemError(error)) this.#tellRefusedBatch(error, chunker);
      else if (isSlow) this.#complaints.set("frames", undefined);
      throw error;
    } finally {
      cancelSlow();
    }
  }

  #tellRefusedBatch(error: unknown, { lastFrameAtMs, session }: Chunker): void {
    const sentence = `${describeFailure("The frames can't be kept", error)}.`;
    this.#complaints.set("frames", sentence);
    // Of what the lost frames have shown, the last ones that were kept know nothing.
    this.#gaps.begin("disk", lastFrameAtMs ?? session.startedAtMs, diskCause(error));
    this.#dependencies.onGap?.(sentence);
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
