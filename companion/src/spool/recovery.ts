import { dirname, join } from "node:path";
import { describeFailure, errorCode, isSystemError } from "../base/failure.ts";
import { parseJson } from "../json/value.ts";
import { parseRecord } from "../wire/schema.ts";
import { Chunker } from "./chunker.ts";
import { type Disk, replacementOf } from "./disk.ts";
import {
  chunkFileName,
  folderIds,
  frameListName,
  resultFileName,
  type SpoolLayout,
  unfinished,
} from "./layout.ts";
import { PictureStore } from "./pictureStore.ts";
import {
  BatchHeader,
  Chunk,
  type Cursor,
  endOf,
  type Gap,
  isAfter,
  isDone,
  pictureName,
  QueueState,
  type Session,
  SpooledFrame,
  type TimeRange,
} from "./records.ts";
import {
  discard,
  type FinishedChunks,
  moveIntoPending,
  type PendingChunk,
  pendingChunk,
  release,
  Spool,
  setAside,
  thrownAway,
} from "./spool.ts";

/** Frames of one session that were accepted and are in no chunk. */
interface LooseRun {
  readonly session: Session;
  readonly frames: SpooledFrame[];
}

type SessionProgress = Pick<QueueState, "through" | "sessionId" | "sessionEnded" | "lastFrameAtMs">;

/** What is worth remembering of a waiting chunk; there may be days of them. */
interface ChunkSummary {
  readonly pending: PendingChunk;
  /** Undefined where the disk keeps it back. */
  readonly progress: SessionProgress | undefined;
}

interface WaitingChunk {
  readonly summary: ChunkSummary;
  readonly chunk: Chunk | undefined;
  /** Bytes of each frame's picture, 0 where there is none. */
  readonly pictureSizes: readonly number[];
}

/** How many waiting chunks are read at the same time. */
const mostReadAtOnce = 32;
const allTime: TimeRange = { fromMs: 0, toMs: 8.64e15 };

/** What a start found, besides the spool that works on. */
export interface Recovery {
  readonly spool: Spool;
  /** Sentences about what could not be read and was put aside. */
  readonly complaints: readonly string[];
  /** What no kill may leave behind, and still has to be put right. */
  readonly leftovers: Leftovers;
}

/** Opens the spool and brings to its end what a kill has left half done. */
export async function recover(
  disk: Disk,
  layout: SpoolLayout,
  nowMs: number,
  finished: FinishedChunks = thrownAway,
): Promise<Recovery> {
  return new RecoveryRun(disk, layout, nowMs, finished).run();
}

/** Frames without a chunk and a session without an end: a new session has to wait for both. */
export class Leftovers {
  readonly #spool: Spool;
  readonly #chunkers: Chunker[];
  readonly #last: SessionProgress | undefined;
  /** Of a session without loose frames. */
  #ending: Chunker | undefined;
  /** The one that is told already. */
  #gap: Gap | undefined;

  constructor(spool: Spool, runs: readonly LooseRun[], last: SessionProgress | undefined) {
    this.#spool = spool;
    this.#last = last;
    this.#chunkers = runs.map(({ session, frames }) => {
      const chunker = new Chunker(spool, session);
      chunker.add(frames);
      return chunker;
    });
  }

  /** Those that are in no chunk yet. */
  get frames(): readonly SpooledFrame[] {
    return this.#chunkers.flatMap((chunker) => [...chunker.frames]);
  }

  /**
   * Makes chunks of the frames. A session that a kill has ended ends with its last frame, and with a
   * gap from there until now; `open` is the one that was running, if any. Resolves with that gap.
   * After a failure it may be called again.
   */
  async putRight(
    open: Session | undefined,
    chunkLengthMs: number,
    nowMs: number,
  ): Promise<Gap | undefined> {
    let gap: Gap | undefined;
    const isLoose = this.#chunkers.some((chunker) => chunker.session.id === open?.id);
    if (open !== undefined && !isLoose) gap = await this.#endSession(open, nowMs);
    for (let chunker = this.#chunkers[0]; chunker; chunker = this.#chunkers[0]) {
      await chunker.closeComplete(chunkLengthMs);
      const endMs = chunker.lastFrameAtMs ?? chunker.session.startedAtMs;
      if (chunker.session.id === open?.id) gap = await this.#endWithGap(chunker, endMs, nowMs);
      else await chunker.finish(endMs);
      this.#chunkers.shift();
    }
    return gap;
  }

  /** All its frames are in chunks; the last of these has the end already, or needs one. */
  async #endSession(session: Session, nowMs: number): Promise<Gap | undefined> {
    const hasChunks = this.#last?.sessionId === session.id;
    if (hasChunks && this.#last?.sessionEnded) return undefined;
    const lastFrameAtMs = (hasChunks ? this.#last?.lastFrameAtMs : undefined) ?? 0;
    const endMs = Math.max(lastFrameAtMs, session.startedAtMs);
    this.#ending ??= new Chunker(this.#spool, session);
    return this.#endWithGap(this.#ending, endMs, nowMs);
  }

  async #endWithGap(chunker: Chunker, endMs: number, nowMs: number): Promise<Gap> {
    if (this.#gap === undefined) {
      const gap: Gap = { fromMs: endMs, toMs: nowMs, cause: "the observer ended unexpectedly" };
      await chunker.addGap(gap);
      this.#gap = gap;
    }
    await chunker.finish(endMs);
    return this.#gap;
  }
}

class RecoveryRun {
  readonly #disk: Disk;
  readonly #layout: SpoolLayout;
  readonly #nowMs: number;
  readonly #finished: FinishedChunks;
  readonly #pictures: PictureStore;
  readonly #complaints: string[] = [];

  constructor(disk: Disk, layout: SpoolLayout, nowMs: number, finished: FinishedChunks) {
    this.#disk = disk;
    this.#layout = layout;
    this.#nowMs = nowMs;
    this.#finished = finished;
    this.#pictures = new PictureStore(disk, layout);
  }

  async run(): Promise<Recovery> {
    const layout = this.#layout;
    for (const folder of [layout.root, layout.incoming, layout.pending, layout.trash]) {
      await this.#disk.makeFolder(folder);
    }
    await this.#syncNames();
    for (const name of await this.#disk.list(layout.trash)) {
      await this.#disk.remove(join(layout.trash, name));
    }
    for (const file of [layout.stateFile, layout.sessionFile]) {
      await this.#disk.remove(replacementOf(file));
    }
    const queueState = await this.#readQueueState();
    const chunks = await this.#recoverChunks(queueState);
    const last = newest(chunks, queueState);
    const loose = await this.#recoverBatches(last?.through);
    const spool = new Spool(
      this.#disk,
      layout,
      {
        queueState,
        pendingChunks: chunks.map(({ pending }) => pending),
        pictures: this.#pictures,
        cursor: last?.through,
        looseFrames: loose.counts,
        nextBatch: Math.max(last?.through.batch ?? 0, ...loose.ids) + 1,
        nextChunk: this.#nextChunk(queueState, chunks.at(-1)?.pending.id),
      },
      this.#finished,
    );
    const leftovers = new Leftovers(spool, loose.runs, last);
    return { spool, complaints: this.#complaints, leftovers };
  }

  /**
   * Makes durable what is there: a kill may have come between a rename and its sync, and what is
   * done about the one must not outlive it. A folder is as durable as its own name, too.
   */
  async #syncNames(): Promise<void> {
    const { root, incoming, pending } = this.#layout;
    for (const folder of [incoming, pending, root, dirname(root), dirname(dirname(root))]) {
      await this.#disk.syncFolder(folder);
    }
  }

  /**
   * Chunk ids count on from the last one. Where that is lost they go on from the clock's seconds,
   * which no count of chunks has ever reached, so that no key of the journal occurs twice.
   */
  #nextChunk(queueState: QueueState | undefined, lastPending: number | undefined): number {
    const last = Math.max(queueState?.lastChunk ?? 0, lastPending ?? 0);
    const lost = queueState === undefined && this.#complaints.length > 0;
    return lost ? Math.max(last + 1, Math.floor(this.#nowMs / 1000)) : last + 1;
  }

  async #readQueueState(): Promise<QueueState | undefined> {
    try {
      const text = await this.#disk.readText(this.#layout.stateFile);
      return parseRecord(QueueState, parseJson(text));
    } catch (error) {
      if (errorCode(error) !== "ENOENT") this.#complain("the state of the queue", error);
      return undefined;
    }
  }

  async #recoverChunks(queueState: QueueState | undefined): Promise<ChunkSummary[]> {
    const ids = folderIds(await this.#disk.list(this.#layout.pending));
    for (const id of ids.partial) await this.#finishChunk(id);
    const waiting: number[] = [];
    for (const id of folderIds(await this.#disk.list(this.#layout.pending)).finished) {
      const folder = this.#layout.chunk(id);
      if (queueState !== undefined && isDone(queueState, id)) {
        await release(this.#disk, this.#layout, folder, this.#finished);
        continue;
      }
      waiting.push(id);
    }
    return this.#readChunks(waiting);
  }

  /** There may be very many, so several are read at the same time. */
  async #readChunks(ids: readonly number[]): Promise<ChunkSummary[]> {
    const chunks: ChunkSummary[] = [];
    for (let start = 0; start < ids.length; start += mostReadAtOnce) {
      const some = ids.slice(start, start + mostReadAtOnce);
      const found = await Promise.all(some.map((id) => this.#readWaiting(id)));
      for (const one of found) {
        if (one === undefined) continue;
        chunks.push(one.summary);
        if (one.chunk !== undefined) this.#pictures.add(one.chunk, one.pictureSizes);
      }
    }
    return chunks;
  }

  /** Undefined where it is damaged, and was put aside. */
  async #readWaiting(id: number): Promise<WaitingChunk | undefined> {
    const folder = this.#layout.chunk(id);
    try {
      const chunk = await this.#readChunk(folder);
      if (chunk === undefined) {
        await this.#setAside(folder, `chunk-${id}`);
        return undefined;
      }
      const names = new Set(await this.#disk.list(folder));
      const pictureSizes = chunk.frames.map((frame) =>
        names.has(pictureName(frame)) ? frame.pictureBytes : 0,
      );
      return { summary: summary(chunk, names.has(resultFileName)), chunk, pictureSizes };
    } catch (error) {
      if (!isSystemError(error)) throw error;
      this.#complaints.push(`${describeFailure("A waiting chunk can't be read yet", error)}.`);
      return { summary: unread(id), chunk: undefined, pictureSizes: [] };
    }
  }

  /** A chunk whose record was written gets its pictures; before that nothing had been moved. */
  async #finishChunk(id: number): Promise<void> {
    const folder = unfinished(this.#layout.chunk(id));
    const hasRecord = (await this.#disk.list(folder)).includes(chunkFileName);
    const chunk = hasRecord ? await this.#readChunk(folder) : undefined;
    if (chunk !== undefined) await moveIntoPending(this.#disk, this.#layout, chunk);
    else if (hasRecord) await this.#setAside(folder, `chunk-${id}`);
    else await this.#disk.remove(folder);
  }

  async #readChunk(folder: string): Promise<Chunk | undefined> {
    try {
      const text = await this.#disk.readText(join(folder, chunkFileName));
      return parseRecord(Chunk, parseJson(text));
    } catch (error) {
      if (isRefusal(error)) throw error;
      this.#complain("a waiting chunk", error);
      return undefined;
    }
  }

  async #recoverBatches(cursor: Cursor | undefined) {
    const names = await this.#disk.list(this.#layout.incoming);
    const ids = folderIds(names);
    for (const id of ids.partial) await this.#disk.remove(unfinished(this.#layout.batch(id)));
    const runs: LooseRun[] = [];
    const counts = new Map<number, number>();
    for (const id of ids.finished) {
      const batch = await this.#readBatch(id);
      const frames = batch?.frames.filter((frame) => !cursor || isAfter(frame, cursor)) ?? [];
      if (batch === undefined) {
        await this.#setAside(this.#layout.batch(id), `batch-${id}`);
      } else if (frames.length === 0) {
        await discard(this.#disk, this.#layout, this.#layout.batch(id));
      } else {
        counts.set(id, frames.length);
        appendRun(runs, batch.session, frames);
      }
    }
    return { ids: ids.finished, counts, runs };
  }

  async #readBatch(id: number): Promise<LooseRun | undefined> {
    try {
      const text = await this.#disk.readText(join(this.#layout.batch(id), frameListName));
      const [header = "", ...lines] = text.split("\n").filter((line) => line !== "");
      const { session } = parseRecord(BatchHeader, parseJson(header));
      const frames = lines.map((line) => parseRecord(SpooledFrame, parseJson(line)));
      return { session, frames };
    } catch (error) {
      this.#complain("a batch of frames", error);
      return undefined;
    }
  }

  #setAside(folder: string, name: string): Promise<void> {
    return setAside(this.#disk, this.#layout, folder, `${name}-${this.#nowMs}`);
  }

  #complain(what: string, error: unknown): void {
    const why = error instanceof Error ? error.message : String(error);
    this.#complaints.push(`Could not read ${what} (${why}); the work goes on without it.`);
  }
}

function appendRun(runs: LooseRun[], session: Session, frames: SpooledFrame[]): void {
  const last = runs.at(-1);
  if (last?.session.id === session.id) last.frames.push(...frames);
  else runs.push({ session, frames: [...frames] });
}

/** Chunks are not always done in order, so the newest may wait or be done already. */
function newest(
  chunks: readonly ChunkSummary[],
  done: QueueState | undefined,
): SessionProgress | undefined {
  const waiting = chunks.filter(({ progress }) => progress !== undefined).at(-1);
  if (waiting === undefined || done === undefined) return waiting?.progress ?? done;
  return waiting.pending.id > done.lastChunk ? waiting.progress : done;
}

/** Whether the disk kept back what may well be whole; damage is what is there and makes no sense. */
function isRefusal(error: unknown): boolean {
  const isGone = ["ENOENT", "ENOTDIR", "EISDIR"].includes(errorCode(error) ?? "");
  return isSystemError(error) && !isGone;
}

function summary(chunk: Chunk, hasAnswer: boolean): ChunkSummary {
  const { through, session, stoppedAtMs, gaps, frames } = chunk;
  return {
    pending: pendingChunk(chunk, hasAnswer),
    progress: {
      through,
      sessionId: session.id,
      sessionEnded: stoppedAtMs !== undefined,
      lastFrameAtMs: endOf(frames, gaps),
    },
  };
}

/** It waits until it can be read, and may be about any time until then. */
function unread(id: number): ChunkSummary {
  const pending = { id, hasFrames: true, hasGaps: false, extent: allTime, hasAnswer: false };
  return { pending, progress: undefined };
}
