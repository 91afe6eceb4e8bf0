import { join } from "node:path";
import { Mutex } from "../base/mutex.ts";
import { ChunkFiles } from "./chunkFiles.ts";
import type { Disk } from "./disk.ts";
import type { SpoolLayout } from "./layout.ts";
import { type Chunk, pictureName } from "./records.ts";

/** How much of a chunk's pictures is on the disk. */
interface Bytes {
  /** Of the first and the last picture of each display. */
  edges: number;
  /** Of those in between. */
  middles: number;
}

const greatestQuotaBytes = 2_000_000_000;
const shareOfFreeDisk = 0.05;

/** How much the waiting pictures may take up: 2 GB, or 5 % of the free disk where that is less. */
export function defaultQuotaBytes(freeBytes: number): number {
  return Math.min(greatestQuotaBytes, Math.floor(freeBytes * shareOfFreeDisk));
}

/**
 * How much room the pictures of the waiting chunks take up; there may be weeks of them, so no more is
 * known of each. The texts stay whatever happens to the pictures.
 */
export class PictureStore {
  readonly #disk: Disk;
  readonly #layout: SpoolLayout;
  readonly #files: ChunkFiles;
  readonly #chunks = new Map<number, Bytes>();
  readonly #turns = new Mutex();
  #bytes = 0;

  constructor(disk: Disk, layout: SpoolLayout) {
    this.#disk = disk;
    this.#layout = layout;
    this.#files = new ChunkFiles(disk, layout);
  }

  get bytes(): number {
    return this.#bytes;
  }

  /** `sizes` has the bytes of each frame's picture on the disk, 0 where there is none. */
  add(chunk: Chunk, sizes: readonly number[]): void {
    this.forget(chunk.id);
    const edges = edgeFrames(chunk);
    const bytes: Bytes = { edges: 0, middles: 0 };
    sizes.forEach((size, index) => {
      bytes[edges.has(index) ? "edges" : "middles"] += size;
    });
    if (bytes.edges + bytes.middles === 0) return;
    this.#chunks.set(chunk.id, bytes);
    this.#bytes += bytes.edges + bytes.middles;
  }

  forget(id: number): void {
    const bytes = this.#chunks.get(id);
    if (bytes !== undefined) this.#bytes -= bytes.edges + bytes.middles;
    this.#chunks.delete(id);
  }

  /**
   * Removes pictures until they fit, oldest chunks first: all but each display's first and last,
   * and when that is not enough those too. Resolves with how many chunks lost pictures.
   */
  shrinkTo(quotaBytes: number): Promise<number> {
    return this.#turns.run(async () => {
      if (this.#bytes <= quotaBytes) return 0;
      const thinned = new Set<number>();
      const ids = [...this.#chunks.keys()].sort((a, b) => a - b);
      for (const kind of ["middles", "edges"] as const) {
        for (const id of ids) {
          if (this.#bytes <= quotaBytes) return thinned.size;
          if (await this.#remove(id, kind)) thinned.add(id);
        }
      }
      return thinned.size;
    });
  }

  async #remove(id: number, kind: keyof Bytes): Promise<boolean> {
    const bytes = this.#chunks.get(id);
    if (bytes === undefined || bytes[kind] === 0) return false;
    const chunk = await this.#readChunk(id);
    if (chunk === undefined) return false;
    const edges = edgeFrames(chunk);
    for (const [index, frame] of chunk.frames.entries()) {
      if (frame.pictureBytes === 0 || edges.has(index) !== (kind === "edges")) continue;
      await this.#disk.remove(join(this.#layout.chunk(id), pictureName(frame)));
      // Meanwhile the chunk may have been analysed; then its pictures are counted no more.
      if (this.#chunks.get(id) !== bytes) return true;
    }
    this.#bytes -= bytes[kind];
    bytes[kind] = 0;
    return true;
  }

  /** Undefined where it can't be read, and its pictures have to stay. */
  async #readChunk(id: number): Promise<Chunk | undefined> {
    return this.#files.readChunk(id).catch(() => undefined);
  }
}

/** Bytes of each frame's picture, 0 where there is none, given the names in the chunk's folder. */
export function picturesOnDisk(chunk: Chunk, names: ReadonlySet<string>): number[] {
  return chunk.frames.map((frame) => (names.has(pictureName(frame)) ? frame.pictureBytes : 0));
}

function edgeFrames(chunk: Chunk): Set<number> {
  const first = new Map<string, number>();
  const last = new Map<string, number>();
  chunk.frames.forEach((frame, index) => {
    if (!first.has(frame.displayId)) first.set(frame.displayId, index);
    last.set(frame.displayId, index);
  });
  return new Set([...first.values(), ...last.values()]);
}
