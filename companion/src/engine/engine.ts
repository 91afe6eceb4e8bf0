import type { Clock } from "../base/clock.ts";
import { describeFailure } from "../base/failure.ts";
import { PrivacyUnreadable } from "../privacy/privacyFile.ts";
import { ProviderFailure } from "../providers/failures.ts";
import { chosenProvider, isSameProvider, type Provider } from "../settings/provider.ts";
import type { PendingChunks } from "../spool/pendingChunks.ts";
import type { ChunkResult } from "../spool/records.ts";
import type { Preview } from "../wire/records.ts";
import {
  ChunkWork,
  type ChunkWorkDependencies,
  JournalFailure,
  UnusableChunk,
} from "./chunkWork.ts";
import { Deferrals, UnreadableChunk } from "./deferrals.ts";
import { ModelPause } from "./modelPause.ts";
import { previewOf } from "./preview.ts";
import { Sieve, type SieveDependencies } from "./sieve.ts";
import { Suspects } from "./suspects.ts";

export interface EngineDependencies extends ChunkWorkDependencies, SieveDependencies {
  readonly clock: Clock;
  /** At least 0 and below 1. */
  random(): number;
}

const firstRetryMs = 5_000;
const greatestRetryMs = 600_000;
/** How often a model may refuse a chunk before it is put aside. */
const mostRefusals = 3;
/** When so many chunks were put aside in a row, it is not the chunks. */
const mostPutAside = 3;

/**
 * Works off the queue of chunks, one at a time: in order for the built-in analyser, whose memory
 * goes from one to the next, and the newest first for a model, so that days without network don't
 * delay today. What can't be read for now is passed over.
 */
export class Engine {
  readonly #dependencies: EngineDependencies;
  readonly #sieve: Sieve;
  readonly #work: ChunkWork;
  readonly #pause: ModelPause;
  readonly #deferrals: Deferrals;
  readonly #suspects = new Suspects();
  #isOpen = false;
  /** How many want it to stand still. */
  #holds = 0;
  readonly #opened: Promise<void>;
  #resolveOpened: () => void = () => {};
  #isWanted = false;
  #running: Promise<void> | undefined;
  /** Why the disk or the journal holds up the queue. */
  #stuckReason: string | undefined;
  #retryMs = firstRetryMs;
  #cancelRetry: (() => void) | undefined;
  /** The question that is out, which a change of the settings takes back. */
  #question: AbortController | undefined;
  #lastSettings;
  #putAsideInRow = 0;
  #waiters: (() => void)[] = [];

  constructor(dependencies: EngineDependencies) {
    this.#dependencies = dependencies;
    this.#sieve = new Sieve(dependencies);
    this.#work = new ChunkWork(dependencies, this.#sieve);
    this.#deferrals = new Deferrals(dependencies.clock, () => this.wake());
    this.#lastSettings = dependencies.settings.record;
    this.#pause = new ModelPause(dependencies.clock, dependencies.random, () => this.wake());
    this.#opened = new Promise((resolve) => {
      this.#resolveOpened = resolve;
    });
  }

  /** Why no chunk is worked on at present; undefined while one is, or none waits. */
  get reason(): string | undefined {
    return this.#stuckReason ?? this.#modelReason ?? this.#deferredReason;
  }

  /** Whether the reason is one that the user should know of. */
  get isBlocked(): boolean {
    if (this.#stuckReason !== undefined) return true;
    if (this.#modelReason === undefined) return this.#deferredReason !== undefined;
    return this.#pause.reason === undefined || this.#pause.isBlocking;
  }

  /** Until this is called nothing is analysed: before the secrets are known, nor is the provider. */
  open(): void {
    this.#isOpen = true;
    this.#resolveOpened();
    this.wake();
  }

  get isOpen(): boolean {
    return this.#isOpen;
  }

  /** Works if there is work. Call it when a chunk was closed. */
  wake(): void {
    if (!this.#mayWork) return;
    this.#isWanted = true;
    this.#running ??= this.#run();
  }

  /** The settings were changed: whatever was waited for, it is tried at once. */
  settingsChanged(): void {
    const { record } = this.#dependencies.settings;
    if (isSameProvider(record, this.#lastSettings)) this.#pause.end();
    else {
      this.#question?.abort();
      this.#pause.forget();
      this.#suspects.clear();
      // What was said of the other one's model is so no more.
      this.#dependencies.onComplaint("model", undefined);
    }
    this.#lastSettings = record;
    this.#putAsideInRow = 0;
    this.#deferrals.retry();
  }

  /** Somebody begins to record: what they may have put right in the meantime is tried. */
  recordingBegins(): void {
    this.#pause.endConfiguration();
    this.#putAsideInRow = 0;
    this.wake();
  }

  /** What the next request to a model would be, by the code that makes it. Asks nobody. */
  preview(withPictures: boolean): Promise<Preview> {
    const { spool, settings, analyst } = this.#dependencies;
    const { analysisApiToken, byokGoogleVertexApiKey } = settings.record;
    return previewOf({
      chosen: chosenProvider(settings.record),
      secrets: [analysisApiToken, byokGoogleVertexApiKey],
      sieve: this.#sieve,
      spool,
      analyst,
      next: () => this.#nextForModel(),
      waitsFor: () => this.reason,
      isUnderWay: () => this.#question !== undefined,
      withPictures,
    });
  }

  /** Resolves when it is open and there is no more work that can be done now. */
  async settled(): Promise<void> {
    await this.#opened;
    while (this.#running !== undefined) await this.#running;
  }

  /** Resolves when the chunk waits no more, or nothing can be done about it now. */
  async handled(id: number | undefined): Promise<void> {
    await this.#opened;
    // The built-in analyser is done with the last chunk when it is done with all.
    if (chosenProvider(this.#dependencies.settings.record).kind === "local") return this.settled();
    const waits = () => id !== undefined && this.#pending.has(id) && !this.#deferrals.has(id);
    while (this.#running !== undefined && waits()) {
      await new Promise<void>((resolve) => this.#waiters.push(resolve));
    }
  }

  /**
   * Does the task while no chunk is worked on, so that it may change them; then goes on. A question
   * that is out is taken back, and what comes of it is not written.
   */
  async whilePaused<Result>(task: () => Promise<Result>): Promise<Result> {
    this.#holds += 1;
    this.#question?.abort();
    try {
      while (this.#running !== undefined) await this.#running;
      return await task();
    } finally {
      this.#holds -= 1;
      this.wake();
    }
  }

  /** Resolves when the chunk at hand is through its stages, or its question taken back. */
  async close(): Promise<void> {
    this.#isOpen = false;
    this.#isWanted = false;
    this.#cancelRetry?.();
    this.#deferrals.close();
    this.#pause.end();
    this.#question?.abort();
    await this.#running;
  }

  get #mayWork(): boolean {
    return this.#isOpen && this.#holds === 0;
  }

  get #pending(): PendingChunks {
    return this.#dependencies.spool.pendingChunks;
  }

  /** Why no chunk is worked on where all that wait can't be read. */
  get #deferredReason(): string | undefined {
    return this.#running === undefined ? this.#deferrals.reason : undefined;
  }

  /** Why a model can't be asked about the chunks that need one. */
  get #modelReason(): string | undefined {
    if (this.#pending.find((chunk) => chunk.hasFrames) === undefined) return undefined;
    const chosen = chosenProvider(this.#dependencies.settings.record);
    if (chosen.kind === "local") return undefined;
    return chosen.kind === "unavailable" ? chosen.reason : this.#pause.reason;
  }

  async #run(): Promise<void> {
    while (this.#isWanted) {
      this.#isWanted = false;
      this.#cancelRetry?.();
      await this.#drain();
    }
    this.#running = undefined;
    this.#announce();
  }

  #announce(): void {
    for (const resolve of this.#waiters.splice(0)) resolve();
  }

  async #drain(): Promise<void> {
    for (;;) {
      // It holds for a whole chunk, though the settings may change in the meantime.
      const chosen = chosenProvider(this.#dependencies.settings.record);
      const id = this.#next(chosen);
      if (id === undefined) break;
      if (!this.#mayWork) return;
      const goesOn = await this.#attempt(id, chosen);
      this.#announce();
      if (!goesOn) return;
    }
    this.#stuckReason = undefined;
  }

  /** The chunk to work on; undefined when there is none, or all have to wait. */
  #next(chosen: Provider): number | undefined {
    const oldest = this.#pending.find(({ id }) => !this.#deferrals.has(id));
    if (chosen.kind === "local") return oldest?.id;
    // The end of a session comes when all of it is done, should that be by the built-in analyser.
    if (oldest?.hasFrames === false) return oldest.id;
    const free = this.#pending.find(
      ({ id, hasGaps, hasAnswer }) => (hasGaps || hasAnswer) && !this.#deferrals.has(id),
    );
    if (free !== undefined) return free.id;
    if (this.#modelReason !== undefined) return undefined;
    return this.#nextForModel();
  }

  /** The one that somebody has to be asked about first. */
  #nextForModel(): number | undefined {
    const ids = this.#pending.newestFirst(
      ({ id, hasFrames, hasAnswer }) => hasFrames && !hasAnswer && !this.#deferrals.has(id),
    );
    return this.#suspects.choose(ids);
  }

  /** False when the queue has to wait. */
  async #attempt(id: number, chosen: Provider): Promise<boolean> {
    try {
      await this.#work.process(id, chosen, (question) => this.#ask(id, question));
      this.#bearRead(id);
      this.#stuckReason = undefined;
      this.#retryMs = firstRetryMs;
      return true;
    } catch (error) {
      if (this.#question?.signal.aborted === true) return true;
      if (error instanceof UnreadableChunk) return this.#defer(id, error);
      if (error instanceof ProviderFailure && (await this.#bearFailure(id, error))) return true;
      if (error instanceof UnusableChunk && (await this.#setAside(id, error.message))) return true;
      if (error instanceof PrivacyUnreadable) this.#wait(error.message, firstRetryMs);
      else this.#waitForDisk(error);
      return false;
    } finally {
      this.#question = undefined;
    }
  }

  #waitForDisk(error: unknown): void {
    const tried =
      error instanceof JournalFailure ? "The journal can't be written" : "The queue is stuck";
    const cause = error instanceof JournalFailure ? error.cause : error;
    this.#wait(`${describeFailure(tried, cause)}.`, this.#retryMs);
    this.#retryMs = Math.min(this.#retryMs * 2, greatestRetryMs);
  }

  #wait(reason: string, delayMs: number): void {
    this.#stuckReason = reason;
    this.#cancelRetry = this.#dependencies.clock.after(delayMs, () => this.wake());
  }

  /** The ones behind it go on. */
  #defer(id: number, error: UnreadableChunk): boolean {
    this.#deferrals.add(id, error);
    this.#dependencies.onComplaint("unreadable", error.message);
    return true;
  }

  /** The chunk was read, and waits no more. */
  #bearRead(id: number): void {
    this.#deferrals.delete(id);
    this.#dependencies.onComplaint("unreadable", this.#deferrals.reason);
  }

  async #ask(
    id: number,
    question: (signal: AbortSignal) => Promise<ChunkResult>,
  ): Promise<ChunkResult> {
    this.#question = new AbortController();
    const { signal } = this.#question;
    const result = await question(signal);
    signal.throwIfAborted();
    this.#pause.forget();
    this.#suspects.answered(id);
    this.#putAsideInRow = 0;
    return result;
  }

  /** True when the queue can go on at once, be it only to find that it has to wait. */
  async #bearFailure(id: number, failure: ProviderFailure): Promise<boolean> {
    if (!this.#suspects.failed(id, failure) && failure.kind !== "badRequest") {
      this.#pause.begin(failure);
      return true;
    }
    try {
      const refusals = await this.#dependencies.spool.countRefusal(id);
      if (refusals < mostRefusals) {
        this.#pause.begin(failure);
        return true;
      }
    } catch (error) {
      this.#waitForDisk(error);
      return false;
    }
    if (this.#putAsideInRow >= mostPutAside) {
      this.#pause.begin(new ProviderFailure("configuration", failure.message));
      return true;
    }
    return this.#setAsideRefused(id, failure.message);
  }

  async #setAsideRefused(id: number, why: string): Promise<boolean> {
    try {
      await this.#work.noteUndescribed(id);
    } catch (error) {
      this.#waitForDisk(error);
      return false;
    }
    if (!(await this.#setAside(id, why))) return false;
    this.#putAsideInRow += 1;
    this.#pause.forget();
    return true;
  }

  async #setAside(id: number, why: string): Promise<boolean> {
    const { spool, clock, onComplaint } = this.#dependencies;
    try {
      await spool.setAside(id, clock.nowMs());
      this.#suspects.forget(id);
      this.#bearRead(id);
      onComplaint("chunks", `Chunk ${id} was put aside: ${why.replace(/\.$/, "")}.`);
      return true;
    } catch {
      return false;
    }
  }
}
