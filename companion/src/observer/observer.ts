import type { Clock } from "../base/clock.ts";
import { Mutex } from "../base/mutex.ts";
import { Engine, type EngineDependencies } from "../engine/engine.ts";
import { Forgetting, type ForgettingDependencies } from "../forget/forgetting.ts";
import { ForgottenRanges } from "../forget/forgottenRanges.ts";
import { WrittenFolders } from "../forget/writtenFolders.ts";
import { chunkLengthMs } from "../settings/chunkLength.ts";
import type { Secrets, SettingsInUse } from "../settings/settingsInUse.ts";
import type { Backlog } from "../spool/backlog.ts";
import type { FinishedChunks } from "../spool/moves.ts";
import type { TimeRange } from "../spool/records.ts";
import { type Recovery, recover } from "../spool/recovery.ts";
import type { Spool } from "../spool/spool.ts";
import type { ForgetReport, ObserverSettings, ObserverStatus, Preview } from "../wire/records.ts";
import { Complaints } from "./complaints.ts";
import { NotRecording, ShuttingDown } from "./errors.ts";
import { Intake } from "./intake.ts";
import type { QuotaDependencies } from "./quota.ts";
import { Recording } from "./recording.ts";
import { Room } from "./room.ts";
import { SessionLedger } from "./sessionFile.ts";

export interface ObserverDependencies
  extends Omit<
      EngineDependencies,
      | "spool"
      | "onWritten"
      | "onComplaint"
      | "withRoom"
      | "looseFrames"
      | "isForgotten"
      | "noteFolder"
    >,
    Pick<ForgettingDependencies, "forgetInJournal" | "forgetInArchive">,
    QuotaDependencies {
  readonly settings: SettingsInUse;
  readonly clock: Clock;
  /** Why the user's rules of analysis are not in use. */
  readonly rulesComplaint?: string | undefined;
  /** Who takes the pictures of finished chunks over. */
  readonly finishedChunks?: FinishedChunks | undefined;
  /** How many of the chunks that wait already are read before it opens; 256 unless told. */
  readonly readAtOnce?: number | undefined;
  /** Frames are missing, or are no more: a sentence for the log. */
  onGap?(sentence: string): void;
}

const quietFactor = 2;
/** How soon what the disk refused is tried again, should nobody ask for anything before. */
const mendAfterMs = 10_000;
/** Forgetting holds up the analysis, so that it is tried again less and less often, up to this. */
const greatestForgetDelayMs = 600_000;
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
  readonly #backlog: Backlog;
  /** Resolves when it is known what waited when it opened. */
  readonly #backlogRead: Promise<void>;
  readonly #engine: Engine;
  readonly #turns = new Mutex();
  // Pictures that wait are as thin as before, the rules are as they were at the start, and the archive
  // goes on between recordings.
  readonly #complaints = new Complaints([
    "quota",
    "rules",
    "privacy",
    "privacy patterns",
    "unreadable",
    "archive",
    "archive room",
    "forget",
    "archive forget",
  ]);
  readonly #room: Room;
  readonly #intake: Intake;
  readonly #forgotten: ForgottenRanges;
  readonly #forgetting: Forgetting;
  readonly #recording: Recording;
  #isClosing = false;
  #lastAction: string | undefined;
  #cancelQuietTimer: (() => void) | undefined;
  #cancelForgetTimer: (() => void) | undefined;
  #forgetDelayMs = mendAfterMs;

  private constructor(
    dependencies: ObserverDependencies,
    { spool, backlog, leftovers }: Recovery,
    ledger: SessionLedger,
    forgotten: ForgottenRanges,
    folders: WrittenFolders,
  ) {
    this.#dependencies = dependencies;
    this.#spool = spool;
    this.#backlog = backlog;
    this.#forgotten = forgotten;
    const onComplaint = (area: string, sentence: string | undefined) =>
      this.#complaints.set(area, sentence);
    this.#backlogRead = this.#readBacklog();
    this.#room = new Room(dependencies, spool.pictures, this.#complaints, this.#backlogRead);
    const shared = {
      clock: dependencies.clock,
      spool,
      room: this.#room,
      complaints: this.#complaints,
      onGap: (sentence: string) => dependencies.onGap?.(sentence),
    };
    const onAction = (sentence: string) => {
      this.#lastAction = sentence;
    };
    this.#recording = new Recording(
      {
        ...shared,
        settings: dependencies.settings,
        ledger,
        onAction,
        onChunks: () => this.#engine.wake(),
      },
      leftovers,
    );
    this.#intake = new Intake({ ...shared, gaps: this.#recording.gaps });
    this.#forgetting = new Forgetting({
      ...dependencies,
      spool,
      ranges: forgotten,
      folders,
      onComplaint,
    });
    this.#engine = new Engine({
      ...dependencies,
      spool,
      onComplaint,
      looseFrames: () => this.#recording.looseFrames,
      isForgotten: (atMs) => forgotten.covers(atMs),
      noteFolder: (kind, folder) => folders.note(kind, folder),
      onWritten: (count) => onAction(`Wrote ${count} journal ${count === 1 ? "line" : "lines"}.`),
      withRoom: (task) => this.#room.making(task),
    });
  }

  /**
   * Opens the state folder and ends what a kill left open; throws when the folder can't be used.
   * The caller holds the lock. Nothing is analysed before `beginAnalysis`.
   */
  static async open(dependencies: ObserverDependencies): Promise<Observer> {
    const { disk, layout, clock, finishedChunks: finished, readAtOnce } = dependencies;
    const recovery = await recover(disk, layout, clock.nowMs(), { finished, readAtOnce });
    const ledger = await SessionLedger.open(disk, layout.sessionFile, clock.nowMs());
    const forgotten = await ForgottenRanges.open(disk, layout.forgottenFile);
    const folders = await WrittenFolders.open(disk, layout.foldersFile);
    const observer = new Observer(dependencies, recovery, ledger, forgotten, folders);
    for (const complaint of recovery.complaints) observer.#complaints.set("recovery", complaint);
    observer.#complaints.set("unreadable", recovery.refusal);
    if (dependencies.rulesComplaint !== undefined) {
      observer.#complaints.set("rules", dependencies.rulesComplaint);
    }
    await observer.#recording.putRight().catch(() => undefined);
    await observer.#forgetting.noteFolders().catch(() => undefined);
    await observer.#finishForgetting();
    observer.#awaitQuiet();
    observer.#forgetLater();
    return observer;
  }

  /** It begins when it is known what waits. */
  beginAnalysis(): void {
    if (this.#isClosing) return;
    if (this.#backlog.unreadCount > 0) {
      void this.#backlogRead.then(() => this.beginAnalysis());
      return;
    }
    this.#engine.open();
    if (this.#forgotten.leftIn("archive").length > 0) void this.#forgetting.inArchive();
  }

  /** Costs no disk access: the application asks every 1.5 s. */
  status(): ObserverStatus {
    const pending = this.#spool.pendingChunks.count;
    const reason = this.#engine.reason;
    const isBlocked = this.#engine.isBlocked;
    const { running, sessionId, chunkIndex, lastChunkAt } = this.#recording.facts;
    return {
      running,
      sessionId,
      chunkIndex,
      lastAction: this.#recovering ?? this.#lastAction,
      lastError: this.#complaints.newest,
      lastChunkAt,
      pendingAnalysisChunks: pending,
      analysisBackfillActive: pending > 0 && !isBlocked,
      analysisBackfillBlocked: isBlocked,
      analysisBackfillLastError: reason,
    };
  }

  /** Begins a session; while one runs it goes on. */
  start(): Promise<ObserverStatus> {
    return this.#inTurn(async () => {
      await this.#recording.putRight();
      const isNew = this.#recording.open === undefined;
      await this.#recording.begin();
      if (isNew) this.#engine.recordingBegins();
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
      await this.#recording.putRight();
      await this.#recording.end();
    });
    const last = this.#spool.pendingChunks.newest?.id;
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
      const chunker = this.#recording.open;
      if (chunker === undefined) throw new NotRecording("No recording session is running.");
      await this.#recording.add(await this.#intake.receive(body, chunker), chunker);
      return this.status();
    });
  }

  /** What the next request to a model would be. Asks nobody, and changes nothing. */
  preview(withPictures: boolean): Promise<Preview> {
    return this.#engine.preview(withPictures);
  }

  /**
   * Removes a time from everything that is kept of it: waiting frames, a model's kept inputs, journal
   * lines, the archive. What is asked about it at present is taken back. Throws the error of the disk;
   * what could not be removed is tried again until it is, also after a restart.
   */
  async forget(range: TimeRange): Promise<ForgetReport> {
    const here = await this.#inTurn(async () => {
      await this.#recording.putRight();
      const noted = await this.#room.making(() => this.#forgetting.note(range));
      return this.#forgetting.saying(async () => {
        await this.#recording.closeForGood();
        return this.#engine.whilePaused(() => this.#forgetting.here(range, noted));
      });
    });
    const { clips, frames, waits, notSearched } = await this.#forgetting.inArchive();
    const left = [here.notSearched, notSearched].filter((sentence) => sentence !== undefined);
    return {
      ...here,
      notSearched: left.length > 0 ? left.join(" ") : undefined,
      archiveClips: clips,
      archiveFrames: frames,
      archiveWaits: waits,
    };
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
    return this.#recording.open !== undefined;
  }

  /** Nobody asks for anything any more; the sentence says so. */
  silenceBegins(sinceMs: number, sentence: string): void {
    this.#recording.gaps.begin("silence", sinceMs, "the application did not answer");
    this.#complaints.set("silence", sentence);
    this.#dependencies.onGap?.(sentence);
  }

  silenceEnds(): void {
    this.#complaints.set("silence", undefined);
    const nowMs = this.#dependencies.clock.nowMs();
    void this.#inTurn(() => this.#recording.endGap("silence", nowMs)).catch(() => undefined);
  }

  /** Ends the session as a stop would, and then all work. Nothing may be asked of it afterwards. */
  async close(): Promise<void> {
    this.#isClosing = true;
    this.#backlog.close();
    this.#cancelQuietTimer?.();
    this.#cancelForgetTimer?.();
    this.#forgetting.close();
    await this.#turns.run(() => this.#recording.end().catch(() => undefined));
    if (this.#engine.isOpen) await this.#inTime(this.#engine.settled(), closePatienceMs);
    await this.#engine.close();
  }

  /** Undefined unless it is still found out what waits. */
  get #recovering(): string | undefined {
    const { unreadCount } = this.#backlog;
    if (unreadCount === 0) return undefined;
    return `Recovering: ${unreadCount} of ${this.#spool.pendingChunks.count} waiting chunks have to be looked through.`;
  }

  async #readBacklog(): Promise<void> {
    await this.#backlog.readRest();
    for (const complaint of this.#backlog.complaints.splice(0)) {
      this.#complaints.set("recovery", complaint);
    }
    if (this.#backlog.refusal !== undefined) {
      this.#complaints.set("unreadable", this.#backlog.refusal);
    }
  }

  #inTurn<Result>(task: () => Promise<Result>): Promise<Result> {
    return this.#turns.run(async () => {
      if (this.#isClosing) throw new ShuttingDown("The observer is shutting down.");
      try {
        return await task();
      } finally {
        this.#awaitQuiet();
        this.#forgetLater();
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

  /** What was cut off by a kill or refused by the disk. */
  async #finishForgetting(): Promise<void> {
    const isLeft = this.#forgotten.leftIn("here").length > 0;
    if (!isLeft || this.#recording.hasLeftovers || this.#backlog.unreadCount > 0) return;
    if (this.#recording.frames.length > 0) await this.#recording.closeOpen();
    // The status tells why not, and it is tried again.
    await this.#engine.whilePaused(() => this.#forgetting.finishHere()).catch(() => undefined);
  }

  /** What could not be forgotten is tried again, however busy the recording is. */
  #forgetLater(): void {
    if (this.#forgotten.leftIn("here").length === 0) {
      this.#cancelForgetTimer?.();
      this.#cancelForgetTimer = undefined;
      this.#forgetDelayMs = mendAfterMs;
    } else if (this.#cancelForgetTimer === undefined && !this.#isClosing) {
      this.#cancelForgetTimer = this.#dependencies.clock.after(this.#forgetDelayMs, () => {
        this.#cancelForgetTimer = undefined;
        void this.#inTurn(() => this.#finishForgetting()).catch(() => undefined);
      });
      this.#forgetDelayMs = Math.min(this.#forgetDelayMs * 2, greatestForgetDelayMs);
    }
  }

  /**
   * A screen that stays as it is sends no frame, and the chunk before it shall not
   * wait for one; nor shall what the disk has refused wait for somebody to ask again.
   */
  #awaitQuiet(): void {
    this.#cancelQuietTimer?.();
    if (this.#isClosing) return;
    const isUnfinished = this.#recording.isUnfinished || this.#spool.isUnfinished;
    if (!isUnfinished && this.#recording.frames.length === 0) return;
    const hasFailed = isUnfinished || this.#complaints.has("closing");
    const { clock, settings } = this.#dependencies;
    const quietMs = chunkLengthMs(settings.record) * quietFactor;
    this.#cancelQuietTimer = clock.after(hasFailed ? mendAfterMs : quietMs, () => {
      void this.#inTurn(() => this.#tidy()).catch(() => undefined);
    });
  }

  /** Closes what is open, and ends what a refusal of the disk has left half done. */
  async #tidy(): Promise<void> {
    await this.#recording.putRight();
    if (this.#recording.isUnfinished) await this.#recording.end();
    else if (this.#recording.open !== undefined) await this.#recording.closeOpen();
    else await this.#spool.finishClosing();
  }
}
