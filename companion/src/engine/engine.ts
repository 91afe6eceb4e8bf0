import type { Clock } from "../base/clock.ts";
import { describeFailure, isSystemError } from "../base/failure.ts";
import type { JournalSession, KeyedBullet } from "../journal/types.ts";
import { expandedAbsolutePath } from "../settings/expandedPath.ts";
import { chosenProvider } from "../settings/provider.ts";
import type { SettingsInUse } from "../settings/settingsInUse.ts";
import { type Chunk, type ChunkResult, observed } from "../spool/records.ts";
import type { Spool } from "../spool/spool.ts";
import type { Analyser } from "./analyser.ts";
import { saveRawInputs } from "./rawInputs.ts";

export interface EngineDependencies {
  readonly spool: Spool;
  readonly settings: SettingsInUse;
  readonly analyser: Analyser;
  readonly clock: Clock;
  readonly home: string;
  bulletKey(atMs: number, chunkId: number, n: number): string;
  /** Appends to the journal in the directory; the same keys again change nothing. */
  appendToJournal(
    directory: string,
    session: JournalSession,
    bullets: readonly KeyedBullet[],
  ): Promise<void>;
  /** Does the task, again and again where the disk is full as long as something can give way. */
  withRoom(task: () => Promise<void>): Promise<void>;
  /** Lines were appended. */
  onWritten(lineCount: number): void;
  /** Something went wrong that doesn't hold up the queue; undefined when it goes right again. */
  onComplaint(area: string, sentence: string | undefined): void;
}

const firstRetryMs = 5_000;
const greatestRetryMs = 600_000;

/** The chunk can never be analysed, so the ones behind it must not wait for it. */
class UnusableChunk extends Error {
  override readonly name = "UnusableChunk";
}

/** The journal's folder refused, which the user can do something about. */
class JournalFailure extends Error {
  override readonly name = "JournalFailure";
}

/**
 * Works off the queue of chunks, one at a time and in order. The stages of a chunk are analysis,
 * stored result, journal, stored queue state, removal; each may be repeated after a kill.
 */
export class Engine {
  readonly #dependencies: EngineDependencies;
  #isOpen = false;
  readonly #opened: Promise<void>;
  #resolveOpened: () => void = () => {};
  #isWanted = false;
  #running: Promise<void> | undefined;
  #blockedReason: string | undefined;
  #retryMs = firstRetryMs;
  #cancelRetry: (() => void) | undefined;
  /** The chunk at hand, once its lines stand in the journal: what the user then deletes stays so. */
  #appendedChunk: number | undefined;

  constructor(dependencies: EngineDependencies) {
    this.#dependencies = dependencies;
    this.#opened = new Promise((resolve) => {
      this.#resolveOpened = resolve;
    });
  }

  /** Why the queue stands still; undefined while it moves. */
  get blockedReason(): string | undefined {
    return this.#blockedReason;
  }

  /** Until this is called nothing is analysed: before the secrets are known, nor is the provider. */
  open(): void {
    this.#isOpen = true;
    this.#resolveOpened();
    this.wake();
  }

  /** Works if there is work. Call it when a chunk was closed and when the settings changed. */
  wake(): void {
    if (!this.#isOpen) return;
    this.#isWanted = true;
    this.#running ??= this.#run();
  }

  /** Resolves when it is open and there is no more work that can be done now. */
  async settled(): Promise<void> {
    await this.#opened;
    while (this.#running !== undefined) await this.#running;
  }

  /** Resolves when the chunk at hand is through its stages; no other is begun. */
  async close(): Promise<void> {
    this.#isOpen = false;
    this.#isWanted = false;
    this.#cancelRetry?.();
    await this.#running;
  }

  async #run(): Promise<void> {
    while (this.#isWanted) {
      this.#isWanted = false;
      this.#cancelRetry?.();
      await this.#drain();
    }
    this.#running = undefined;
  }

  async #drain(): Promise<void> {
    const { spool, settings } = this.#dependencies;
    for (let id = spool.pendingChunks[0]; id !== undefined; id = spool.pendingChunks[0]) {
      if (!this.#isOpen) return;
      const provider = chosenProvider(settings.record);
      if (provider.kind === "unavailable") {
        this.#blockedReason = provider.reason;
        return;
      }
      if (!(await this.#attempt(id))) return;
    }
    this.#blockedReason = undefined;
  }

  /** False when the queue has to wait. */
  async #attempt(id: number): Promise<boolean> {
    try {
      await this.#process(id);
      this.#blockedReason = undefined;
      this.#retryMs = firstRetryMs;
      return true;
    } catch (error) {
      if (error instanceof UnusableChunk && (await this.#setAside(id, error))) return true;
      const tried =
        error instanceof JournalFailure ? "The journal can't be written" : "The queue is stuck";
      const cause = error instanceof JournalFailure ? error.cause : error;
      this.#blockedReason = `${describeFailure(tried, cause)}.`;
      this.#cancelRetry = this.#dependencies.clock.after(this.#retryMs, () => this.wake());
      this.#retryMs = Math.min(this.#retryMs * 2, greatestRetryMs);
      return false;
    }
  }

  async #process(id: number): Promise<void> {
    const { spool, withRoom } = this.#dependencies;
    const chunk = await usable("read", () => spool.readChunk(id));
    const stored = await usable("read the result of", () => spool.readResult(id));
    const result = stored ?? (await this.#analyse(chunk));
    if (result.bullets.length > 0 && this.#appendedChunk !== id) {
      await this.#append(chunk, result);
      this.#appendedChunk = id;
    }
    await withRoom(() => spool.complete(chunk, result.state));
  }

  async #append(chunk: Chunk, { bullets }: ChunkResult): Promise<void> {
    const { settings, home, appendToJournal, onWritten } = this.#dependencies;
    try {
      const directory = expandedAbsolutePath(settings.record.outputDirectory, home);
      await appendToJournal(directory, chunk.session, bullets);
    } catch (error) {
      throw new JournalFailure("the journal can't be written", { cause: error });
    }
    onWritten(bullets.length);
  }

  async #analyse(chunk: Chunk): Promise<ChunkResult> {
    await this.#saveRawInputs(chunk);
    const result = await usable("analyse", async () => this.#outcome(chunk));
    const { spool, withRoom } = this.#dependencies;
    await withRoom(() => spool.storeResult(chunk.id, result));
    return result;
  }

  #outcome(chunk: Chunk): ChunkResult {
    const { analyser, bulletKey, spool } = this.#dependencies;
    const states = asStates(spool.queueState?.state);
    let { state, bullets } = analyser.analyseChunk(
      this.#knownState(states[analyser.name]),
      chunk.frames.map(observed),
    );
    if (chunk.stoppedAtMs !== undefined) {
      const ending = analyser.finishSession(state, chunk.stoppedAtMs);
      state = ending.state;
      bullets = [...bullets, ...ending.bullets];
    }
    return {
      version: 1,
      state: { ...states, [analyser.name]: state },
      bullets: bullets.map(({ atMs, text }, n) => ({
        key: bulletKey(atMs, chunk.id, n),
        atMs,
        text,
      })),
    };
  }

  #knownState(kept: unknown): unknown {
    const { analyser, onComplaint } = this.#dependencies;
    if (kept === undefined) return analyser.initialState();
    try {
      return analyser.parseState(kept);
    } catch {
      onComplaint("analyser", "What the analyser remembered could not be read; it starts anew.");
      return analyser.initialState();
    }
  }

  async #saveRawInputs(chunk: Chunk): Promise<void> {
    const { spool, settings, home, onComplaint } = this.#dependencies;
    if (!settings.record.saveRawInputs) return;
    try {
      const directory = expandedAbsolutePath(settings.record.rawInputDirectory, home);
      await saveRawInputs(spool.disk, spool.layout, directory, chunk);
      onComplaint("raw inputs", undefined);
    } catch (error) {
      onComplaint("raw inputs", `${describeFailure("The model inputs can't be kept", error)}.`);
    }
  }

  async #setAside(id: number, error: UnusableChunk): Promise<boolean> {
    const { spool, clock, onComplaint } = this.#dependencies;
    try {
      await spool.setAside(id, clock.nowMs());
      onComplaint("chunks", `Chunk ${id} was put aside: ${error.message}.`);
      return true;
    } catch {
      return false;
    }
  }
}

function asStates(state: unknown): Readonly<Record<string, unknown>> {
  return typeof state === "object" && state !== null ? { ...state } : {};
}

/** Failures of the disk pass through, and are tried again; every other condemns the chunk. */
async function usable<Result>(doing: string, task: () => Promise<Result>): Promise<Result> {
  try {
    return await task();
  } catch (error) {
    if (isSystemError(error)) throw error;
    const why = error instanceof Error ? error.message : String(error);
    throw new UnusableChunk(`could not ${doing} it (${why})`);
  }
}
