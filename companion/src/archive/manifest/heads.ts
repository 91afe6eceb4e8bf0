import * as z from "zod/mini";
import { errorCode } from "../../base/failure.ts";
import { parseJson } from "../../json/value.ts";
import { writeJson } from "../../json/writer.ts";
import type { Disk } from "../../spool/disk.ts";
import { parseRecord } from "../../wire/schema.ts";
import { sha256Text } from "../clips/records.ts";

/** The last part of a writer's list that this machine has seen, whole up to there. */
export const Head = z.object({ sequence: z.int(), sha256: sha256Text });
export type Head = z.infer<typeof Head>;

const HeadsFile = z.object({ version: z.literal(1), heads: z.record(z.string(), Head) });

/** By vault, place and writer; a list that ends before its head was rolled back. */
export class Heads {
  readonly #disk: Disk;
  readonly #path: string;
  #heads: ReadonlyMap<string, Head>;

  private constructor(disk: Disk, path: string, heads: ReadonlyMap<string, Head>) {
    this.#disk = disk;
    this.#path = path;
    this.#heads = heads;
  }

  /** A file that is lost or damaged makes no difference but that less is known. */
  static async open(disk: Disk, path: string): Promise<Heads> {
    try {
      const { heads } = parseRecord(HeadsFile, parseJson(await disk.readText(path)));
      return new Heads(disk, path, new Map(Object.entries(heads)));
    } catch (error) {
      if (errorCode(error) !== undefined && errorCode(error) !== "ENOENT") throw error;
      return new Heads(disk, path, new Map());
    }
  }

  get(key: string): Head | undefined {
    return this.#heads.get(key);
  }

  /** The writers whose key begins so. */
  keysOf(prefix: string): string[] {
    return [...this.#heads.keys()].filter((key) => key.startsWith(prefix));
  }

  async advance(heads: ReadonlyMap<string, Head>): Promise<void> {
    const changed = [...heads].filter(([key, { sequence }]) => {
      const known = this.#heads.get(key);
      return known === undefined || known.sequence < sequence;
    });
    if (changed.length === 0) return;
    const all = new Map([...this.#heads, ...changed]);
    const file = { version: 1, heads: Object.fromEntries(all) };
    await this.#disk.replaceFile(this.#path, writeJson(file));
    this.#heads = all;
  }
}
