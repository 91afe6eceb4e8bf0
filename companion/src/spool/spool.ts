import { join } from "node:path";
import { errorCode, isSystemError } from "../base/failure.ts";
import { Mutex } from "../base/mutex.ts";
import { writeJson } from "../json/writer.ts";
import { BatchWriter } from "./batchWriter.ts";
import { ChunkFiles } from "./chunkFiles.ts";
import type { Disk } from "./disk.ts";
import { chunkFileName, type SpoolLayout, unfinished } from "./layout.ts";
import { leaveFramesOut } from "./leaveFramesOut.ts";
import { type FinishedChunks, moveIntoPending, release, setAside, thrownAway } from "./moves.ts";
import { type PendingChunks, pendingChunk } from "./pendingChunks.ts";
import { type PictureStore, picturesOnDisk } from "./pictureStore.ts";
import {
  type Chunk,
  type ChunkResult,
  type Cursor,
  cursorOf,
  endOf,
  type Gap,
  type QueueState,
  rangesOf,
  type Session,
  type SpooledFrame,
} from "./records.ts";

/** What a start found on the disk. */
export interface SpoolContents {
  readonly queueState: QueueState | undefined;
  /** The chunks that wait, and their pictures. */
  readonly pendingChunks: PendingChunks;
  readonly pictures: PictureStore;
  /** The last frame that is in a chunk; undefined when none ever was. */
  readonly cursor: Cursor | undefined;
  readonly nextBatch: number;
  readonly nextChunk: number;
  /** How many frames of each batch are in no chunk yet. */
  readonly looseFrames: ReadonlyMap<number, number>;
}

/**
 * The frames on the disk, on their way from `incoming/` through `pending/` and `trash/`. Every
 * step is one rename or one replaced file, and what a kill leaves half done is found by the next
 * start. Callers run one operation at a time; only reading and completing a pending chunk may
 * overlap with the receiving side.
 */
export class Spool {
  readonly disk: Disk;
  readonly layout: SpoolLayout;
  readonly pictures: PictureStore;
  /** The chunks that wait for analysis. */
  readonly pendingChunks: PendingChunks;
  readonly #files: ChunkFiles;
  #queueState: QueueState | undefined;
  #nextBatch: number;
  #nextChunk: number;
  readonly #looseFrames: Map<number, number>;
  /** Chunks whose record is durable and whose pictures have not all been moved yet. */
  readonly #closing: Chunk[] = [];
  /** Folders that nobody needs any more and that could not be removed yet. */
  readonly #leaving = new Set<string>();
  readonly #removals = new Mutex();
  readonly #finished: FinishedChunks;
  #lastCursor: Cursor;

  constructor(
    disk: Disk,
    layout: SpoolLayout,
    contents: SpoolContents,
    finished: FinishedChunks = thrownAway,
  ) {
    this.disk = disk;
    this.layout = layout;
    this.#finished = finished;
    this.pictures = contents.pictures;
    this.#queueState = contents.queueState;
    this.#nextBatch = contents.nextBatch;
    this.#nextChunk = contents.nextChunk;
    this.#looseFrames = new Map(contents.looseFrames);
    this.pendingChunks = contents.pendingChunks;
    this.#files = new ChunkFiles(disk, layout);
    this.#lastCursor = contents.cursor ?? { batch: -1, frame: -1 };
  }

  get queueState(): QueueState | undefined {
    return this.#queueState;
  }

  /** Frames of chunks that are closed and don't wait for analysis yet. */
  get closingFrames(): readonly SpooledFrame[] {
    return this.#closing.flatMap(({ frames }) => frames);
  }

  /** Whether something is left to do that the disk refused: see `finishClosing`. */
  get isUnfinished(): boolean {
    return this.#closing.length > 0 || this.#leaving.size > 0;
  }

  /** Begins a batch; the caller commits it and then calls `accepted`, or calls `abandonBatch`. */
  async beginBatch(session: Session): Promise<BatchWriter> {
    const id = this.#nextBatch;
    this.#nextBatch += 1;
    try {
      return await BatchWriter.begin(this.disk, this.layout, id, session);
    } catch (error) {
      await this.#letGo(unfinished(this.layout.batch(id)));
      throw error;
    }
  }

  /** Removes every trace of a batch that was not committed. */
  async abandonBatch(batch: BatchWriter): Promise<void> {
    await batch.abandon();
    const folder = this.layout.batch(batch.id);
    // The last name, too: a commit can fail when only the name still had to be made durable.
    await this.#letGo(unfinished(folder), folder);
  }

  /** The batch is committed: its folder goes when its last frame is in a chunk. */
  accepted(batch: number, frameCount: number): void {
    this.#looseFrames.set(batch, frameCount);
  }

  /**
   * Makes a chunk of the frames, which are the oldest loose ones. When it throws, they are as
   * loose as before. `finishClosing` does the rest, and has to follow.
   */
  async closeChunk(
    session: Session,
    frames: readonly SpooledFrame[],
    stoppedAtMs: number | undefined,
    gaps?: readonly Gap[],
  ): Promise<void> {
    await this.finishClosing();
    const last = frames.at(-1);
    const id = this.#nextChunk;
    const through = last === undefined ? this.#lastCursor : cursorOf(last);
    const chunk: Chunk = {
      version: 1,
      id,
      session,
      stoppedAtMs,
      through,
      gaps: gaps && [...gaps],
      frames: [...frames],
    };
    await this.#writeRecord(chunk);
    this.#nextChunk += 1;
    this.#lastCursor = through;
    this.#closing.push(chunk);
  }

  /** Moves the pictures of closed chunks, hands the chunks to the queue, and clears away. */
  async finishClosing(): Promise<void> {
    for (let chunk = this.#closing[0]; chunk !== undefined; chunk = this.#closing[0]) {
      await this.#moveIntoPending(chunk);
      this.#closing.shift();
      this.pictures.add(
        chunk,
        chunk.frames.map((frame) => frame.pictureBytes),
      );
      this.pendingChunks.put(pendingChunk(chunk));
      await this.#dropEmptyBatches(chunk.frames);
    }
    if (this.#leaving.size > 0) await this.#letGo();
  }

  /** As `ChunkFiles.readChunk`. */
  readChunk(id: number): Promise<Chunk> {
    return this.#files.readChunk(id);
  }

  /** The stored result, from now on durable; undefined while the chunk has none. */
  async readResult(id: number): Promise<ChunkResult | undefined> {
    const result = await this.#files.readResult(id);
    if (result === undefined) this.pendingChunks.update(id, { hasAnswer: false });
    return result;
  }

  /**
   * Takes frames out of a waiting chunk for good, with their pictures, and resolves with what is left
   * of it. The pictures go first: a kill in between leaves frames that are found again.
   */
  async leaveOut(chunk: Chunk, goes: (frame: SpooledFrame) => boolean): Promise<Chunk> {
    const rest = await leaveFramesOut(this.disk, this.layout.chunk(chunk.id), chunk, goes);
    if (rest === chunk) return chunk;
    const names = new Set(await this.disk.list(this.layout.chunk(chunk.id)));
    this.pictures.add(rest, picturesOnDisk(rest, names));
    const { hasFrames, extent } = pendingChunk(rest);
    this.pendingChunks.update(chunk.id, { hasFrames, extent });
    return rest;
  }

  /** What the analysers remember of the chunks so far is no more. */
  async forgetStates(): Promise<void> {
    if (this.#queueState?.state === undefined) return;
    const queueState: QueueState = { ...this.#queueState, state: undefined };
    await this.disk.replaceFile(this.layout.stateFile, writeJson(queueState));
    this.#queueState = queueState;
  }

  async storeResult(id: number, result: ChunkResult): Promise<void> {
    await this.#files.storeResult(id, result);
    this.pendingChunks.update(id, { hasAnswer: true });
  }

  /** As `ChunkFiles.countRefusal`. */
  countRefusal(id: number): Promise<number> {
    return this.#files.countRefusal(id);
  }

  /** The chunk's lines stand in the journal: remembers that, then lets go of the chunk. */
  async complete(chunk: Chunk, state: unknown): Promise<void> {
    const queueState: QueueState = { ...this.#progressWith(chunk), state };
    // Somebody may have deleted the folder under us.
    await this.disk.makeFolder(this.layout.root);
    await this.disk.replaceFile(this.layout.stateFile, writeJson(queueState));
    this.#queueState = queueState;
    this.#forget(chunk.id);
    await this.#letGo(this.layout.chunk(chunk.id));
  }

  /** Puts a chunk aside that can't be analysed, so that the ones behind it can. */
  async setAside(id: number, nowMs: number): Promise<void> {
    await setAside(this.disk, this.layout, this.layout.chunk(id), `chunk-${id}-${nowMs}`);
    this.#forget(id);
  }

  /** Chunks may be done in any order, and the record says of the newest how far it has come. */
  #progressWith(chunk: Chunk): Omit<QueueState, "state"> {
    const before = this.#queueState;
    const isNewest = before === undefined || chunk.id > before.lastChunk;
    const lastChunk = isNewest ? chunk.id : before.lastChunk;
    const left = this.pendingChunks.idsBelow(lastChunk).filter((id) => id !== chunk.id);
    const ranges = left.length === 0 ? undefined : rangesOf(left);
    if (!isNewest) return { ...before, left: ranges };
    return {
      version: 1,
      lastChunk,
      left: ranges,
      through: chunk.isLate ? this.#lastCursor : chunk.through,
      sessionId: chunk.session.id,
      sessionEnded: chunk.stoppedAtMs !== undefined,
      lastFrameAtMs: endOf(chunk.frames, chunk.gaps) ?? before?.lastFrameAtMs,
    };
  }

  async #writeRecord(chunk: Chunk): Promise<void> {
    const folder = unfinished(this.layout.chunk(chunk.id));
    try {
      await this.disk.makeFolder(folder);
      await this.disk.replaceFile(join(folder, chunkFileName), writeJson(chunk));
    } catch (error) {
      await this.disk.remove(folder).catch(() => undefined);
      throw error;
    }
  }

  async #moveIntoPending(chunk: Chunk): Promise<void> {
    const folder = this.layout.chunk(chunk.id);
    try {
      await moveIntoPending(this.disk, this.layout, chunk);
    } catch (error) {
      if (errorCode(error) !== "ENOENT") throw error;
      // An attempt that failed at its very end has moved it already, or somebody has deleted it.
      if ((await this.disk.size(join(folder, chunkFileName))) === undefined) {
        await this.#writeRecord(chunk);
        await moveIntoPending(this.disk, this.layout, chunk);
      }
      await this.disk.syncFolder(this.layout.pending);
    }
  }

  /** Removes folders that nobody needs any more; what the disk refuses is tried again later. */
  #letGo(...folders: readonly string[]): Promise<void> {
    for (const folder of folders) this.#leaving.add(folder);
    return this.#removals.run(async () => {
      for (const folder of this.#leaving) {
        try {
          await release(this.disk, this.layout, folder, this.#finished);
          this.#leaving.delete(folder);
        } catch (error) {
          if (!isSystemError(error)) throw error;
        }
      }
    });
  }

  #forget(id: number): void {
    this.pendingChunks.delete(id);
    this.pictures.forget(id);
  }

  async #dropEmptyBatches(taken: readonly SpooledFrame[]): Promise<void> {
    for (const { batch } of taken) {
      const left = this.#looseFrames.get(batch);
      if (left !== undefined) this.#looseFrames.set(batch, left - 1);
    }
    for (const [batch, left] of this.#looseFrames) {
      if (left > 0) continue;
      this.#looseFrames.delete(batch);
      await this.#letGo(this.layout.batch(batch));
    }
  }
}
