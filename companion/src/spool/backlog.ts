import { describeFailure, isRefusal } from "../base/failure.ts";
import { ChunkFiles } from "./chunkFiles.ts";
import type { Disk } from "./disk.ts";
import { frameListName, resultFileName, type SpoolLayout } from "./layout.ts";
import { setAside } from "./moves.ts";
import { type PendingChunks, pendingChunk } from "./pendingChunks.ts";
import { type PictureStore, picturesOnDisk } from "./pictureStore.ts";
import {
  type Chunk,
  type Cursor,
  cursorOfPicture,
  endOf,
  later,
  type QueueState,
  rangeOver,
  type TimeRange,
} from "./records.ts";

export type SessionProgress = Pick<
  QueueState,
  "through" | "sessionId" | "sessionEnded" | "lastFrameAtMs"
>;

/** What a chunk tells of how far its recording had come. */
export interface ChunkProgress extends SessionProgress {
  readonly chunk: number;
}

/** How many chunks are read at the same time. */
const mostReadAtOnce = 8;

/**
 * The chunks that waited when the observer started, of which it knows no more than that they are there.
 * There may be weeks of them, so they are read a part at a time, the newest first. Nothing may be done
 * with them before all are read.
 */
export class Backlog {
  /** About what was damaged, in sentences; whoever has told them takes them out. */
  readonly complaints: string[] = [];
  readonly #disk: Disk;
  readonly #layout: SpoolLayout;
  readonly #nowMs: number;
  readonly #pending: PendingChunks;
  readonly #pictures: PictureStore;
  readonly #files: ChunkFiles;
  /** The newest last. */
  readonly #unread: number[];
  readonly #keptBack = new Set<number>();
  #keptBackThrough: Cursor | undefined;
  #newestBatch = 0;
  #refusal: string | undefined;
  #hasLost = false;
  #isClosed = false;

  constructor(
    disk: Disk,
    layout: SpoolLayout,
    nowMs: number,
    pending: PendingChunks,
    pictures: PictureStore,
  ) {
    this.#disk = disk;
    this.#layout = layout;
    this.#nowMs = nowMs;
    this.#pending = pending;
    this.#pictures = pictures;
    this.#files = new ChunkFiles(disk, layout);
    this.#unread = [...pending].map(({ id }) => id);
  }

  /** How many are left to read. */
  get unreadCount(): number {
    return this.#unread.length;
  }

  /** Up to where frames are in chunks that the disk keeps back, as far as their pictures tell. */
  get keptBackThrough(): Cursor | undefined {
    return this.#keptBackThrough;
  }

  /** The newest batch of which there are frames in a chunk, as far as they were read. */
  get newestBatch(): number {
    return this.#newestBatch;
  }

  /** About chunks that the disk keeps back, in a sentence. */
  get refusal(): string | undefined {
    return this.#refusal;
  }

  /** Whether a damaged chunk was found, and put aside. */
  get hasLost(): boolean {
    return this.#hasLost;
  }

  /**
   * Reads so many, and more where none of these tells how far the recording had come. Resolves with
   * what the newest of those tells that do.
   */
  async readNewest(count: number): Promise<ChunkProgress | undefined> {
    let known: ChunkProgress | undefined;
    let left = count;
    while (this.#unread.length > 0 && (left > 0 || known === undefined)) {
      const found = await this.#readSome();
      left -= mostReadAtOnce;
      known ??= found;
    }
    if (this.#unread.length === 0) this.#narrow();
    return known;
  }

  /** Reads all that are left. */
  async readRest(): Promise<void> {
    while (this.#unread.length > 0) {
      if (this.#isClosed) return;
      await this.#readSome();
    }
    this.#narrow();
  }

  /** Ends the reading soon. */
  close(): void {
    this.#isClosed = true;
  }

  async #readSome(): Promise<ChunkProgress | undefined> {
    const ids = this.#unread.slice(-mostReadAtOnce).reverse();
    const found = await Promise.all(ids.map((id) => this.#read(id)));
    this.#unread.splice(-ids.length);
    return found.find((progress) => progress !== undefined);
  }

  async #read(id: number): Promise<ChunkProgress | undefined> {
    const folder = this.#layout.chunk(id);
    try {
      const chunk = await this.#files.readChunk(id);
      const names = new Set(await this.#disk.list(folder));
      this.#pending.put(pendingChunk(chunk, names.has(resultFileName)));
      this.#pictures.add(chunk, picturesOnDisk(chunk, names));
      this.#newestBatch = Math.max(this.#newestBatch, chunk.frames.at(-1)?.batch ?? 0);
      return chunk.isLate ? undefined : progressOf(chunk);
    } catch (error) {
      if (isRefusal(error)) await this.#keepBack(id, error);
      else await this.#putAside(id, folder, error);
      return undefined;
    }
  }

  async #keepBack(id: number, error: Error): Promise<void> {
    this.#keptBack.add(id);
    const names: string[] = await this.#disk.list(this.#layout.chunk(id)).catch(() => []);
    // What was held back as a batch says nothing about the batches before it.
    const isLate = names.includes(frameListName);
    for (const name of names) {
      const cursor = cursorOfPicture(name);
      if (cursor === undefined) continue;
      this.#newestBatch = Math.max(this.#newestBatch, cursor.batch);
      if (!isLate) this.#keptBackThrough = later(this.#keptBackThrough, cursor);
    }
    this.#refusal = `${describeFailure("A waiting chunk can't be read yet", error)}.`;
  }

  async #putAside(id: number, folder: string, error: unknown): Promise<void> {
    this.#hasLost = true;
    try {
      await setAside(this.#disk, this.#layout, folder, `chunk-${id}-${this.#nowMs}`);
      this.#pending.delete(id);
      this.complaints.push(unreadableSentence("a waiting chunk", error));
    } catch (refusal) {
      if (!isRefusal(refusal)) throw refusal;
      await this.#keepBack(id, refusal);
    }
  }

  /** What can't be read is from between its neighbours, which therefore alone may have to wait for it. */
  #narrow(): void {
    if (this.#keptBack.size === 0) return;
    let earliestMs = 0;
    const around = new Map<number, TimeRange>();
    for (const { id, extent } of this.#pending) {
      if (this.#keptBack.has(id)) around.set(id, { fromMs: earliestMs, toMs: this.#nowMs });
      else earliestMs = extent?.toMs ?? earliestMs;
    }
    let latestMs = this.#nowMs;
    for (const { id, extent } of [...this.#pending].reverse()) {
      const fromMs = around.get(id)?.fromMs;
      if (fromMs === undefined) latestMs = extent?.fromMs ?? latestMs;
      // A clock that was set back between the two has them the other way round.
      else this.#pending.update(id, { extent: rangeOver(fromMs, latestMs) });
    }
  }
}

export function unreadableSentence(what: string, error: unknown): string {
  const why = error instanceof Error ? error.message : String(error);
  return `Could not read ${what} (${why}); the work goes on without it.`;
}

function progressOf({ id, through, session, stoppedAtMs, gaps, frames }: Chunk): ChunkProgress {
  return {
    chunk: id,
    through,
    sessionId: session.id,
    sessionEnded: stoppedAtMs !== undefined,
    lastFrameAtMs: endOf(frames, gaps),
  };
}
