import { join } from "node:path";
import * as z from "zod/mini";
import { errorCode } from "../base/failure.ts";
import { parseJson } from "../json/value.ts";
import { writeJson } from "../json/writer.ts";
import type { Disk } from "../spool/disk.ts";
import { optional, parseRecord } from "../wire/schema.ts";
import { sha256Text } from "./clips/records.ts";

/** A vault as everybody may know it. */
const VaultRecord = z.object({ id: z.string(), recipient: z.string() });
export type VaultRecord = z.infer<typeof VaultRecord>;

/** This machine as a writer of lists in one place. */
const Binding = z.object({
  /** Another place is begun with the first part of a new writer's list. */
  place: z.string(),
  writer: z.string(),
  /** Of the last part that the target has confirmed; 0 before the first. */
  sequence: z.int(),
  head: sha256Text,
});
export type Binding = z.infer<typeof Binding>;

/** Where this machine has stored footage before, and of which vault. */
const FormerPlace = z.object({ place: z.string(), vault: z.string(), untilMs: z.int() });
export type FormerPlace = z.infer<typeof FormerPlace>;

/** A part of the list on its way: its bytes are in the mirror already. */
const PendingSegment = z.object({
  name: z.string(),
  sequence: z.int(),
  bytes: z.int(),
  sha256: sha256Text,
  /** The items whose clips are in it. */
  items: z.array(z.string()),
});
export type PendingSegment = z.infer<typeof PendingSegment>;

const StateRecord = z.object({
  version: z.literal(1),
  enabled: z.boolean(),
  vault: optional(VaultRecord),
  /** A vault whose recovery key was shown, and which is not in use yet. */
  prepared: optional(VaultRecord),
  binding: optional(Binding),
  segment: optional(PendingSegment),
  /** Items that are in the list for good and only have to be cleared away. */
  listed: z.array(z.string()),
  formerPlaces: optional(z.array(FormerPlace)),
});
export type StateRecord = z.infer<typeof StateRecord>;

const initial: StateRecord = {
  version: 1,
  enabled: false,
  vault: undefined,
  prepared: undefined,
  binding: undefined,
  segment: undefined,
  listed: [],
  formerPlaces: undefined,
};

/** Where everything of the archive lies in the state folder. */
export class ArchiveLayout {
  readonly root: string;
  readonly items: string;
  readonly mirror: string;
  readonly keys: string;
  readonly stateFile: string;
  readonly targetFile: string;
  readonly headsFile: string;

  constructor(root: string) {
    this.root = root;
    this.items = join(root, "items");
    this.mirror = join(root, "manifest");
    this.keys = join(root, "keys");
    this.stateFile = join(root, "state.json");
    this.targetFile = join(root, "target.json");
    this.headsFile = join(root, "heads.json");
  }

  /** The vault's identity, encrypted to its recovery key. */
  vaultFile(id: string): string {
    return join(this.root, `${id}.vault.age`);
  }
}

/** The state file was there and could not be read; nothing may be done as if there were none. */
export class UnreadableState extends Error {
  override readonly name = "UnreadableState";
}

/** What has to be remembered over restarts, in one file that is replaced as a whole. */
export class ArchiveState {
  readonly #disk: Disk;
  readonly #path: string;
  #record: StateRecord;

  private constructor(disk: Disk, path: string, record: StateRecord) {
    this.#disk = disk;
    this.#path = path;
    this.#record = record;
  }

  static async open(disk: Disk, path: string): Promise<ArchiveState> {
    let text: string;
    try {
      text = await disk.readText(path);
    } catch (error) {
      if (errorCode(error) !== "ENOENT") throw error;
      return new ArchiveState(disk, path, initial);
    }
    try {
      return new ArchiveState(disk, path, parseRecord(StateRecord, parseJson(text)));
    } catch (error) {
      throw new UnreadableState(error instanceof Error ? error.message : String(error));
    }
  }

  get record(): StateRecord {
    return this.#record;
  }

  /** Durable when it resolves; when it throws, the record is as it was. */
  async change(change: Partial<StateRecord>): Promise<void> {
    const record = { ...this.#record, ...change };
    await this.#disk.replaceFile(this.#path, writeJson(record));
    this.#record = record;
  }
}
