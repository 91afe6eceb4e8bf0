import { join } from "node:path";
import type { Disk } from "./disk.ts";
import type { SpoolLayout } from "./layout.ts";
import { type Chunk, pictureName } from "./records.ts";

interface Picture {
  readonly name: string;
  readonly bytes: number;
  /** The first or the last picture of its display in the chunk. */
  readonly isEdge: boolean;
}

const greatestQuotaBytes = 2_000_000_000;
const shareOfFreeDisk = 0.05;

/** How much the waiting pictures may take up: 2 GB, or 5 % of the free disk where that is less. */
export function defaultQuotaBytes(freeBytes: number): number {
  return Math.min(greatestQuotaBytes, Math.floor(freeBytes * shareOfFreeDisk));
}

/** The pictures of the waiting chunks. The texts stay whatever happens to the pictures. */
export class PictureStore {
  readonly #disk: Disk;
  readonly #layout: SpoolLayout;
  readonly #chunks = new Map<number, Set<Picture>>();
  #bytes = 0;

  constructor(disk: Disk, layout: SpoolLayout) {
    this.#disk = disk;
    this.#layout = layout;
  }

  get bytes(): number {
    return this.#bytes;
  }

  /** `sizes` has the bytes of each frame's picture on the disk, 0 where there is none. */
  add(chunk: Chunk, sizes: readonly number[]): void {
    const edges = edgeFrames(chunk);
    const pictures = chunk.frames
      .map((frame, index) => ({
        name: pictureName(frame),
        bytes: sizes[index] ?? 0,
        isEdge: edges.has(index),
      }))
      .filter((picture) => picture.bytes > 0);
    this.#chunks.set(chunk.id, new Set(pictures));
    for (const picture of pictures) this.#bytes += picture.bytes;
  }

  forget(id: number): void {
    for (const picture of this.#chunks.get(id) ?? []) this.#bytes -= picture.bytes;
    this.#chunks.delete(id);
  }

  /** Pictures of the chunk that are there no more. */
  forgetPictures(id: number, names: ReadonlySet<string>): void {
    const pictures = this.#chunks.get(id);
    for (const picture of pictures ?? []) {
      if (names.has(picture.name) && pictures?.delete(picture)) this.#bytes -= picture.bytes;
    }
  }

  /**
   * Removes pictures until they fit, oldest chunks first: all but each display's first and last,
   * and when that is not enough those too. Resolves with how many chunks lost pictures.
   */
  async shrinkTo(quotaBytes: number): Promise<number> {
    const thinned = new Set<number>();
    for (const goes of [(picture: Picture) => !picture.isEdge, () => true]) {
      for (const id of this.#chunks.keys()) {
        if (this.#bytes <= quotaBytes) return thinned.size;
        if (await this.#remove(id, goes)) thinned.add(id);
      }
    }
    return thinned.size;
  }

  async #remove(id: number, goes: (picture: Picture) => boolean): Promise<boolean> {
    const pictures = this.#chunks.get(id) ?? new Set();
    let hasLost = false;
    for (const picture of pictures) {
      if (!goes(picture)) continue;
      await this.#disk.remove(join(this.#layout.chunk(id), picture.name));
      hasLost = true;
      // Meanwhile the chunk may have been analysed; then its pictures are counted no more.
      if (this.#chunks.get(id) !== pictures) break;
      // So may somebody else have made room, with the same picture.
      if (pictures.delete(picture)) this.#bytes -= picture.bytes;
    }
    return hasLost;
  }
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
