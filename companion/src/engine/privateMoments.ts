import { errorCode } from "../base/failure.ts";
import { parseJson } from "../json/value.ts";
import { writeJson } from "../json/writer.ts";
import type { Disk } from "../spool/disk.ts";
import { MomentsFile } from "../spool/records.ts";
import { parseRecord } from "../wire/schema.ts";

/**
 * When frames were private that are deleted already. Others near them are private, too, and may come
 * only later to their turn, perhaps after a restart.
 */
export class PrivateMoments {
  readonly #disk: Disk;
  readonly #path: string;
  #atMs: readonly number[] | undefined;

  constructor(disk: Disk, path: string) {
    this.#disk = disk;
    this.#path = path;
  }

  /** A file that is lost or damaged makes no difference but that less is known. */
  async all(): Promise<readonly number[]> {
    this.#atMs ??= await this.#read();
    return this.#atMs;
  }

  /** Adds some, durably, and drops those that can't matter any more. */
  async add(atMs: readonly number[], matters: (atMs: number) => boolean): Promise<void> {
    const before = await this.all();
    const after = [...new Set([...before, ...atMs])].filter(matters).sort((a, b) => a - b);
    if (after.length === before.length && after.every((ms, index) => ms === before[index])) return;
    await this.#disk.replaceFile(this.#path, writeJson({ version: 1, atMs: after }));
    this.#atMs = after;
  }

  async #read(): Promise<readonly number[]> {
    try {
      return parseRecord(MomentsFile, parseJson(await this.#disk.readText(this.#path))).atMs;
    } catch (error) {
      if (errorCode(error) !== undefined && errorCode(error) !== "ENOENT") throw error;
      return [];
    }
  }
}
