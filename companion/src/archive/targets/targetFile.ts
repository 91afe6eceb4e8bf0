import { dirname } from "node:path";
import { errorCode } from "../../base/failure.ts";
import { parseJson } from "../../json/value.ts";
import { writeJson } from "../../json/writer.ts";
import type { Disk } from "../../spool/disk.ts";
import { InvalidRecord, parseRecord } from "../../wire/schema.ts";
import { ArchiveNotReady } from "../archiveErrors.ts";
import { TargetRecord } from "./targetRecord.ts";

/** The user's choice of a target: a file for this user alone, since it may hold a secret. */
export class TargetFile {
  readonly #disk: Disk;
  readonly #path: string;

  constructor(disk: Disk, path: string) {
    this.#disk = disk;
    this.#path = path;
  }

  /** No file is no target; throws ArchiveNotReady where it can't be understood. */
  async read(): Promise<TargetRecord> {
    let text: string;
    try {
      text = await this.#disk.readText(this.#path);
    } catch (error) {
      if (errorCode(error) === "ENOENT") return { kind: "none", lossless: false };
      throw error;
    }
    try {
      return parseRecord(TargetRecord, parseJson(text));
    } catch (error) {
      // Not what stands there: it may be a secret.
      const where = error instanceof InvalidRecord ? ` at "${error.path}"` : "";
      throw new ArchiveNotReady(`${this.#path} can't be understood${where}.`);
    }
  }

  async write(record: TargetRecord): Promise<void> {
    await this.#disk.makeFolder(dirname(this.#path));
    await this.#disk.replaceFile(this.#path, `${writeJson(record)}\n`);
  }
}
