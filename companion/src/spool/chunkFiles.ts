import { join } from "node:path";
import { errorCode, isSystemError } from "../base/failure.ts";
import { parseJson } from "../json/value.ts";
import { writeJson } from "../json/writer.ts";
import { parseRecord } from "../wire/schema.ts";
import type { Disk } from "./disk.ts";
import { chunkOfBatch } from "./heldBatch.ts";
import {
  chunkFileName,
  frameListName,
  refusalsFileName,
  resultFileName,
  type SpoolLayout,
} from "./layout.ts";
import { Chunk, ChunkResult, Refusals } from "./records.ts";

/** The files of the waiting chunks: the record of each, its answer, and how often it was refused. */
export class ChunkFiles {
  readonly #disk: Disk;
  readonly #layout: SpoolLayout;

  constructor(disk: Disk, layout: SpoolLayout) {
    this.#disk = disk;
    this.#layout = layout;
  }

  /** Throws the error of the disk, which may pass; any other means that there is no such chunk. */
  async readChunk(id: number): Promise<Chunk> {
    const folder = this.#layout.chunk(id);
    const path = join(folder, chunkFileName);
    if ((await this.#disk.size(path)) === undefined) {
      if ((await this.#disk.size(join(folder, frameListName))) === undefined) {
        throw new Error("somebody has removed it");
      }
      return chunkOfBatch(this.#disk, folder, id);
    }
    return parseRecord(Chunk, parseJson(await this.#disk.readText(path)));
  }

  /** The stored result, from now on durable; undefined while the chunk has none. */
  async readResult(id: number): Promise<ChunkResult | undefined> {
    const folder = this.#layout.chunk(id);
    try {
      const text = await this.#disk.readText(join(folder, resultFileName));
      // Who stored it may have been killed before its name was; and no second answer is alike.
      await this.#disk.syncFolder(folder);
      return parseRecord(ChunkResult, parseJson(text));
    } catch (error) {
      if (errorCode(error) !== "ENOENT") throw error;
      return undefined;
    }
  }

  storeResult(id: number, result: ChunkResult): Promise<void> {
    const path = join(this.#layout.chunk(id), resultFileName);
    return this.#disk.replaceFile(path, writeJson(result));
  }

  /** Counts one more refusal of the chunk, durably, and resolves with how many there are. */
  async countRefusal(id: number): Promise<number> {
    const path = join(this.#layout.chunk(id), refusalsFileName);
    const count = (await this.#refusalsIn(path)) + 1;
    await this.#disk.replaceFile(path, writeJson({ version: 1, count }));
    return count;
  }

  /** A file that is damaged has counted nothing: it may not hold the queue up. */
  async #refusalsIn(path: string): Promise<number> {
    try {
      return parseRecord(Refusals, parseJson(await this.#disk.readText(path))).count;
    } catch (error) {
      if (isSystemError(error) && errorCode(error) !== "ENOENT") throw error;
      return 0;
    }
  }
}
