import { dirname, join } from "node:path";
import { errorCode, isSystemError } from "../base/failure.ts";
import { Mutex } from "../base/mutex.ts";
import { parseJson } from "../json/value.ts";
import { writeJson } from "../json/writer.ts";
import { parseRecord } from "../wire/schema.ts";
import { BatchWriter } from "./batchWriter.ts";
import type { Disk } from "./disk.ts";
import {
  chunkFileName,
  isUnfinished,
  refusalsFileName,
  resultFileName,
  type SpoolLayout,
  unfinished,
} from "./layout.ts";
import { leaveFramesOut } from "./leaveFramesOut.ts";
import type { PictureStore } from "./pictureStore.ts";
import {
  Chunk,
  ChunkResult,
  type Cursor,
  cursorOf,
  endOf,
  extentOf,
  type Gap,
  pictureName,
  type QueueState,
  Refusals,
  rangesOf,
  type Session,
  type SpooledFrame,
  type TimeRange,
} from "./records.ts";

/** What the queue knows of a chunk without reading it. */
export interface PendingChunk {
  readonly id: number;
  readonly hasFrames: boolean;
  readonly hasGaps: boolean;
  /** From its earliest frame to its latest; undefined where it has none. */
  readonly extent: TimeRange | undefined;
  /** An answer is stored, so nobody need be asked about it. */
  readonly hasAnswer: boolean;
}

export function pendingChunk({ id, frames, gaps }: Chunk, hasAnswer = false): PendingChunk {
  const extent = extentOf(frames);
  return { id, hasFrames: frames.length > 0, hasGaps: gaps !== undefined, extent, hasAnswer };
}

/** Where chunks go whose lines stand in the journal. */
export interface FinishedChunks {
  /**
   * Takes the chunk's folder over by one durable rename, or leaves it to be thrown away: false.
   * Nothing there is no error. It may be asked for the same folder again after a failure.
   */
  take(folder: string): Promise<boolean>;
}

/** Nobody wants them. */
export const thrownAway: FinishedChunks = { take: async () => false };

/** What a start found on the disk. */
export interface SpoolContents {
  readonly queueState: QueueState | undefined;
  /** The chunks that wait, in order, and their pictures. */
  readonly pendingChunks: readonly PendingChunk[];
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
  #queueState: QueueState | undefined;
  #nextBatch: number;
  #nextChunk: number;
  readonly #looseFrames: Map<number, number>;
  readonly #pending: PendingChunk[];
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
    this.#pending = [...contents.pendingChunks];
    this.#lastCursor = contents.cursor ?? { batch: -1, frame: -1 };
  }

  get queueState(): QueueState | undefined {
    return this.#queueState;
  }

  /** The chunks that wait for analysis, in order. */
  get pendingChunks(): readonly PendingChunk[] {
    return this.#pending;
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
      this.#pending.push(pendingChunk(chunk));
      await this.#dropEmptyBatches(chunk.frames);
    }
    if (this.#leaving.size > 0) await this.#letGo();
  }

  async readChunk(id: number): Promise<Chunk> {
    const path = join(this.layout.chunk(id), chunkFileName);
    if ((await this.disk.size(path)) === undefined) throw new Error("somebody has removed it");
    return parseRecord(Chunk, parseJson(await this.disk.readText(path)));
  }

  /** The stored result, from now on durable; undefined while the chunk has none. */
  async readResult(id: number): Promise<ChunkResult | undefined> {
    const folder = this.layout.chunk(id);
    try {
      const text = await this.disk.readText(join(folder, resultFileName));
      // Who stored it may have been killed before its name was; and no second answer is alike.
      await this.disk.syncFolder(folder);
      return parseRecord(ChunkResult, parseJson(text));
    } catch (error) {
      if (errorCode(error) !== "ENOENT") throw error;
      this.#update(id, { hasAnswer: false });
      return undefined;
    }
  }

  /**
   * Takes frames out of a waiting chunk for good, with their pictures, and resolves with what is left
   * of it. The pictures go first: a kill in between leaves frames that are found again.
   */
  async leaveOut(chunk: Chunk, goes: (frame: SpooledFrame) => boolean): Promise<Chunk> {
    const rest = await leaveFramesOut(this.disk, this.layout.chunk(chunk.id), chunk, goes);
    const gone = chunk.frames.filter((frame) => !rest.frames.includes(frame));
    this.pictures.forgetPictures(chunk.id, new Set(gone.map(pictureName)));
    const { hasFrames, extent } = pendingChunk(rest);
    this.#update(chunk.id, { hasFrames, extent });
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
    await this.disk.replaceFile(join(this.layout.chunk(id), resultFileName), writeJson(result));
    this.#update(id, { hasAnswer: true });
  }

  /** Counts one more refusal of the chunk, durably, and resolves with how many there are. */
  async countRefusal(id: number): Promise<number> {
    const path = join(this.layout.chunk(id), refusalsFileName);
    const count = (await this.#refusalsIn(path)) + 1;
    await this.disk.replaceFile(path, writeJson({ version: 1, count }));
    return count;
  }

  /** A file that is damaged has counted nothing: it may not hold the queue up. */
  async #refusalsIn(path: string): Promise<number> {
    try {
      return parseRecord(Refusals, parseJson(await this.disk.readText(path))).count;
    } catch (error) {
      if (isSystemError(error) && errorCode(error) !== "ENOENT") throw error;
      return 0;
    }
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
    const left = this.#pending
      .map(({ id }) => id)
      .filter((id) => id !== chunk.id && id < lastChunk);
    const ranges = left.length === 0 ? undefined : rangesOf(left);
    if (!isNewest) return { ...before, left: ranges };
    return {
      version: 1,
      lastChunk,
      left: ranges,
      through: chunk.through,
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

  #update(id: number, changed: Partial<PendingChunk>): void {
    const index = this.#pending.findIndex((chunk) => chunk.id === id);
    const before = this.#pending[index];
    if (before !== undefined) this.#pending[index] = { ...before, ...changed };
  }

  #forget(id: number): void {
    const index = this.#pending.findIndex((chunk) => chunk.id === id);
    if (index >= 0) this.#pending.splice(index, 1);
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

/** The second half of closing a chunk; it may be repeated from any point at which it ended. */
export async function moveIntoPending(
  disk: Disk,
  layout: SpoolLayout,
  chunk: Chunk,
): Promise<void> {
  const folder = unfinished(layout.chunk(chunk.id));
  // Its name has to be durable before it is all that the pictures have.
  await disk.syncFolder(layout.pending);
  for (const frame of chunk.frames) {
    if (frame.pictureBytes === 0) continue;
    const name = pictureName(frame);
    await disk.moveIfThere(join(layout.batch(frame.batch), name), join(folder, name));
  }
  await disk.syncFolder(folder);
  await disk.move(folder, layout.chunk(chunk.id));
}

/** Hands a finished chunk on; throws away what nobody takes, and everything else. */
export async function release(
  disk: Disk,
  layout: SpoolLayout,
  folder: string,
  finished: FinishedChunks,
): Promise<void> {
  const isChunk = dirname(folder) === layout.pending && !isUnfinished(folder);
  if (isChunk && (await finished.take(folder))) return;
  await discard(disk, layout, folder);
}

/**
 * Removes a folder by way of the trash: deleting in place is not one step, and a kill in the
 * middle would leave something that looks like a chunk without its record; only an unfinished folder
 * never looks like one. Nothing there is no error.
 */
export async function discard(disk: Disk, layout: SpoolLayout, folder: string): Promise<void> {
  if (isUnfinished(folder)) {
    await disk.remove(folder);
    return;
  }
  const name = folder.slice(layout.root.length).replaceAll("/", "-").slice(1);
  const target = join(layout.trash, name);
  await disk.makeFolder(layout.trash);
  await disk.remove(target);
  if (!(await disk.moveIfThere(folder, target))) return;
  await disk.syncFolder(dirname(folder));
  await disk.remove(target);
}

/**
 * Keeps a folder that can't be used, out of everybody's way, for whoever wants to look at it.
 * Nothing there is no error.
 */
export async function setAside(
  disk: Disk,
  layout: SpoolLayout,
  folder: string,
  name: string,
): Promise<void> {
  await disk.makeFolder(layout.quarantine);
  if (!(await disk.moveIfThere(folder, join(layout.quarantine, name)))) return;
  await disk.syncFolder(layout.quarantine);
  await disk.syncFolder(dirname(folder));
}
