import { dirname, join } from "node:path";
import { describeFailure, errorCode, isRefusal } from "../base/failure.ts";
import { parseJson } from "../json/value.ts";
import { parseRecord } from "../wire/schema.ts";
import {
  Backlog,
  type ChunkProgress,
  type SessionProgress,
  unreadableSentence,
} from "./backlog.ts";
import { type Disk, replacementOf } from "./disk.ts";
import { type Batch, holdBatch, readBatch } from "./heldBatch.ts";
import { chunkFileName, folderIds, type SpoolLayout, unfinished } from "./layout.ts";
import { Leftovers, type LooseRun } from "./leftovers.ts";
import {
  discard,
  type FinishedChunks,
  moveIntoPending,
  release,
  setAside,
  thrownAway,
} from "./moves.ts";
import { PendingChunks, unreadChunk } from "./pendingChunks.ts";
import { PictureStore } from "./pictureStore.ts";
import {
  Chunk,
  type Cursor,
  cursorOfPicture,
  isAfter,
  isDone,
  later,
  QueueState,
  rangeOver,
  type Session,
  type SpooledFrame,
  type TimeRange,
} from "./records.ts";
import { Spool } from "./spool.ts";

/** So many of the waiting chunks are read by the start itself; more would keep its caller waiting. */
const readByTheStart = 256;

/** What a start found, besides the spool that works on. */
export interface Recovery {
  readonly spool: Spool;
  /** Waiting chunks of which more has to be known before they are worked on. */
  readonly backlog: Backlog;
  /** Sentences about what could not be read, and goes on without it. */
  readonly complaints: readonly string[];
  /** About frames that wait until the disk gives them, in a sentence. */
  readonly refusal: string | undefined;
  /** What no kill may leave behind, and still has to be put right. */
  readonly leftovers: Leftovers;
}

export interface RecoveryOptions {
  readonly finished?: FinishedChunks | undefined;
  /** How many waiting chunks are read before it resolves. */
  readonly readAtOnce?: number | undefined;
}

/** Opens the spool and brings to its end what a kill has left half done. */
export async function recover(
  disk: Disk,
  layout: SpoolLayout,
  nowMs: number,
  options: RecoveryOptions = {},
): Promise<Recovery> {
  return new RecoveryRun(disk, layout, nowMs, options).run();
}

class RecoveryRun {
  readonly #disk: Disk;
  readonly #layout: SpoolLayout;
  readonly #nowMs: number;
  readonly #finished: FinishedChunks;
  readonly #readAtOnce: number;
  readonly #complaints: string[] = [];
  #refusal: string | undefined;
  #hasLost = false;

  constructor(disk: Disk, layout: SpoolLayout, nowMs: number, options: RecoveryOptions) {
    this.#disk = disk;
    this.#layout = layout;
    this.#nowMs = nowMs;
    this.#finished = options.finished ?? thrownAway;
    this.#readAtOnce = options.readAtOnce ?? readByTheStart;
  }

  async run(): Promise<Recovery> {
    await this.#prepareFolders();
    const queueState = await this.#readQueueState();
    const pending = new PendingChunks(await this.#waitingChunks(queueState));
    const pictures = new PictureStore(this.#disk, this.#layout);
    const backlog = new Backlog(this.#disk, this.#layout, this.#nowMs, pending, pictures);
    // Before any is put aside: its number is not given again.
    const newestId = pending.newest?.id;
    const last = newer(await backlog.readNewest(this.#readAtOnce), queueState);
    const lost = this.#hasLost || backlog.hasLost;
    const nextChunk = this.#nextChunk(queueState, newestId, lost);
    const cursor = later(last?.through, backlog.keptBackThrough);
    const loose = await this.#recoverBatches(cursor, nextChunk, last?.lastFrameAtMs);
    for (const { chunk, between } of loose.held) pending.put(unreadChunk(chunk, between));
    const spool = new Spool(
      this.#disk,
      this.#layout,
      {
        queueState,
        pendingChunks: pending,
        pictures,
        cursor,
        looseFrames: loose.counts,
        nextBatch: Math.max(cursor?.batch ?? 0, backlog.newestBatch, ...loose.ids) + 1,
        nextChunk: nextChunk + loose.held.length,
      },
      this.#finished,
    );
    const complaints = [...this.#complaints, ...backlog.complaints.splice(0)];
    const refusal = this.#refusal ?? backlog.refusal;
    return {
      spool,
      backlog,
      complaints,
      refusal,
      leftovers: new Leftovers(spool, loose.runs, last),
    };
  }

  async #prepareFolders(): Promise<void> {
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
  #nextChunk(
    queueState: QueueState | undefined,
    lastPending: number | undefined,
    hasLost: boolean,
  ): number {
    const last = Math.max(queueState?.lastChunk ?? 0, lastPending ?? 0);
    const isUnknown = queueState === undefined && hasLost;
    return isUnknown ? Math.max(last + 1, Math.floor(this.#nowMs / 1000)) : last + 1;
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

  async #waitingChunks(queueState: QueueState | undefined) {
    const { partial } = folderIds(await this.#disk.list(this.#layout.pending));
    for (const id of partial) await this.#finishChunk(id);
    const waiting: number[] = [];
    for (const id of folderIds(await this.#disk.list(this.#layout.pending)).finished) {
      if (queueState === undefined || !isDone(queueState, id)) waiting.push(id);
      else await release(this.#disk, this.#layout, this.#layout.chunk(id), this.#finished);
    }
    return waiting.map((id) => unreadChunk(id, { fromMs: 0, toMs: this.#nowMs }));
  }

  /** A chunk whose record was written gets its pictures; before that nothing had been moved. */
  async #finishChunk(id: number): Promise<void> {
    const folder = unfinished(this.#layout.chunk(id));
    let chunk: Chunk | undefined;
    try {
      if ((await this.#disk.list(folder)).includes(chunkFileName)) {
        const text = await this.#disk.readText(join(folder, chunkFileName));
        chunk = parseRecord(Chunk, parseJson(text));
      }
    } catch (error) {
      this.#complain("a chunk that was being closed", error);
      await this.#undoChunk(id);
      return;
    }
    if (chunk === undefined) await this.#disk.remove(folder);
    else await moveIntoPending(this.#disk, this.#layout, chunk);
  }

  /**
   * A chunk that was being closed can't be read. Its frames are in their batches still, and become a
   * chunk anew; what it has of their pictures goes back to them.
   */
  async #undoChunk(id: number): Promise<void> {
    const folder = unfinished(this.#layout.chunk(id));
    const names = await this.#disk.list(folder).catch(() => []);
    for (const name of names) {
      const frame = cursorOfPicture(name);
      if (frame === undefined) continue;
      const home = join(this.#layout.batch(frame.batch), name);
      await this.#disk.moveIfThere(join(folder, name), home).catch(() => false);
    }
    await this.#setAside(folder, `chunk-${id}`);
  }

  /** `sinceMs` is the time of the last frame that is in a chunk. */
  async #recoverBatches(cursor: Cursor | undefined, firstHeld: number, sinceMs = 0) {
    const ids = folderIds(await this.#disk.list(this.#layout.incoming));
    for (const id of ids.partial) await this.#disk.remove(unfinished(this.#layout.batch(id)));
    const runs: LooseRun[] = [];
    const counts = new Map<number, number>();
    const held: HeldBatch[] = [];
    let lastMs = sinceMs;
    for (const id of ids.finished) {
      if (cursor !== undefined && id < cursor.batch) {
        await discard(this.#disk, this.#layout, this.#layout.batch(id));
        continue;
      }
      const chunk = firstHeld + held.length;
      const batch = await this.#readBatch(id, chunk, cursor);
      if (batch === "held") held.push({ chunk, between: rangeOver(lastMs, this.#nowMs) });
      if (typeof batch === "string") continue;
      lastMs = batch.frames.at(-1)?.receivedAtMs ?? lastMs;
      const frames = batch.frames.filter((frame) => !cursor || isAfter(frame, cursor));
      if (frames.length === 0) {
        await discard(this.#disk, this.#layout, this.#layout.batch(id));
      } else {
        counts.set(id, frames.length);
        appendRun(runs, batch.session, frames);
      }
    }
    return { ids: ids.finished, counts, runs, held };
  }

  /** What is damaged is put aside; what the disk keeps back becomes the chunk of that number. */
  async #readBatch(
    id: number,
    chunk: number,
    cursor: Cursor | undefined,
  ): Promise<Batch | "held" | "damaged"> {
    const folder = this.#layout.batch(id);
    try {
      return await readBatch(this.#disk, folder);
    } catch (error) {
      if (isRefusal(error)) {
        this.#refusal = `${describeFailure("A batch of frames can't be read yet", error)}.`;
        await holdBatch(this.#disk, this.#layout, id, chunk, cursor);
        return "held";
      }
      this.#complain("a batch of frames", error);
      await this.#setAside(folder, `batch-${id}`);
      return "damaged";
    }
  }

  #setAside(folder: string, name: string): Promise<void> {
    return setAside(this.#disk, this.#layout, folder, `${name}-${this.#nowMs}`);
  }

  #complain(what: string, error: unknown): void {
    this.#hasLost = true;
    this.#complaints.push(unreadableSentence(what, error));
  }
}

/** A batch that has become the chunk of that number, and between which times its frames are. */
interface HeldBatch {
  readonly chunk: number;
  readonly between: TimeRange;
}

function appendRun(runs: LooseRun[], session: Session, frames: SpooledFrame[]): void {
  const last = runs.at(-1);
  if (last?.session.id === session.id) last.frames.push(...frames);
  else runs.push({ session, frames: [...frames] });
}

/** Chunks are not always done in order, so the newest may wait or be done already. */
function newer(
  waiting: ChunkProgress | undefined,
  done: QueueState | undefined,
): SessionProgress | undefined {
  if (waiting === undefined || done === undefined) return waiting ?? done;
  return waiting.chunk > done.lastChunk ? waiting : done;
}
