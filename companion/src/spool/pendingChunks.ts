import { type Chunk, extentOf, type TimeRange } from "./records.ts";

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

/** One that was not read yet: it may be about any time of that range. */
export function unreadChunk(id: number, extent: TimeRange): PendingChunk {
  return { id, hasFrames: true, hasGaps: false, extent, hasAnswer: false };
}

/** The chunks that wait for analysis, in the order of their numbers; there may be very many. */
export class PendingChunks implements Iterable<PendingChunk> {
  readonly #chunks: PendingChunk[];

  /** In order. */
  constructor(chunks: readonly PendingChunk[]) {
    this.#chunks = [...chunks];
  }

  get count(): number {
    return this.#chunks.length;
  }

  get oldest(): PendingChunk | undefined {
    return this.#chunks[0];
  }

  get newest(): PendingChunk | undefined {
    return this.#chunks.at(-1);
  }

  [Symbol.iterator](): Iterator<PendingChunk> {
    return this.#chunks.values();
  }

  has(id: number): boolean {
    return this.#chunks[this.#indexOf(id)]?.id === id;
  }

  find(matches: (chunk: PendingChunk) => boolean): PendingChunk | undefined {
    return this.#chunks.find(matches);
  }

  /** The numbers of those that match, the newest first. */
  newestFirst(matches: (chunk: PendingChunk) => boolean): number[] {
    const ids: number[] = [];
    for (let index = this.#chunks.length - 1; index >= 0; index -= 1) {
      const chunk = this.#chunks[index];
      if (chunk !== undefined && matches(chunk)) ids.push(chunk.id);
    }
    return ids;
  }

  /** In order. */
  idsBelow(id: number): number[] {
    return this.#chunks.slice(0, this.#indexOf(id)).map((chunk) => chunk.id);
  }

  /** Adds one, or puts it in the place of what was known of it. */
  put(chunk: PendingChunk): void {
    const index = this.#indexOf(chunk.id);
    const isKnown = this.#chunks[index]?.id === chunk.id;
    this.#chunks.splice(index, isKnown ? 1 : 0, chunk);
  }

  /** Nothing happens where it doesn't wait. */
  update(id: number, changed: Partial<PendingChunk>): void {
    const index = this.#indexOf(id);
    const before = this.#chunks[index];
    if (before?.id === id) this.#chunks[index] = { ...before, ...changed };
  }

  delete(id: number): void {
    if (this.has(id)) this.#chunks.splice(this.#indexOf(id), 1);
  }

  /** The place of the first whose number is not below. */
  #indexOf(id: number): number {
    let [from, to] = [0, this.#chunks.length];
    while (from < to) {
      const middle = (from + to) >> 1;
      if ((this.#chunks[middle]?.id ?? id) < id) from = middle + 1;
      else to = middle;
    }
    return from;
  }
}
