import { dirname } from "node:path";
import { errorCode } from "../base/failure.ts";
import { parseJson } from "../json/value.ts";
import { writeJson } from "../json/writer.ts";
import type { Disk } from "../spool/disk.ts";
import { type Session, SessionFile } from "../spool/records.ts";
import { parseRecord } from "../wire/schema.ts";

/** The count of sessions, and the one that is open, so that a start after a kill can end it. */
export class SessionLedger {
  readonly #disk: Disk;
  readonly #path: string;
  #file: SessionFile;

  private constructor(disk: Disk, path: string, file: SessionFile) {
    this.#disk = disk;
    this.#path = path;
    this.#file = file;
  }

  /** A file that is lost or damaged counts on from the clock's seconds: no name occurs twice. */
  static async open(disk: Disk, path: string, nowMs: number): Promise<SessionLedger> {
    let file: SessionFile = { version: 1, number: 0, open: undefined };
    try {
      file = parseRecord(SessionFile, parseJson(await disk.readText(path)));
    } catch (error) {
      if (errorCode(error) !== "ENOENT") file = { ...file, number: Math.floor(nowMs / 1000) };
    }
    return new SessionLedger(disk, path, file);
  }

  get open(): Session | undefined {
    return this.#file.open;
  }

  /** Opens a session whose id is the name with the next number behind it. */
  async begin(name: string, startedAtMs: number): Promise<Session> {
    const number = this.#file.number + 1;
    const session = { id: `${name}-${number}`, startedAtMs };
    await this.#write({ version: 1, number, open: session });
    return session;
  }

  async end(): Promise<void> {
    await this.#write({ ...this.#file, open: undefined });
  }

  async #write(file: SessionFile): Promise<void> {
    // Somebody may have deleted the folder under us.
    await this.#disk.makeFolder(dirname(this.#path));
    await this.#disk.replaceFile(this.#path, writeJson(file));
    this.#file = file;
  }
}
