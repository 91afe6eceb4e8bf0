import * as z from "zod/mini";
import { errorCode } from "../base/failure.ts";
import { Mutex } from "../base/mutex.ts";
import { parseJson } from "../json/value.ts";
import { writeJson } from "../json/writer.ts";
import type { Disk } from "../spool/disk.ts";
import { isWithin, TimeRange } from "../spool/records.ts";
import { parseRecord } from "../wire/schema.ts";

/** Where a forgotten time may still stand: on this machine, and in the archive. */
export type ForgetPlace = "here" | "archive";

const Entry = z.object({
  range: TimeRange,
  askedAtMs: z.int(),
  /** Where it is still to be done. */
  left: z.array(z.enum(["here", "archive"])),
});
type Entry = z.infer<typeof Entry>;

const ForgottenFile = z.object({ version: z.literal(1), entries: z.array(Entry) });

/** So long after it was asked for, frames of that time may still arrive: the application sends late. */
const lateFramesMs = 600_000;

/** The file was there and could not be read; what it asks for must not be passed over. */
export class UnreadableForgotten extends Error {
  override readonly name = "UnreadableForgotten";
}

/** What the user has had forgotten, noted before anything is done about it, until all of it is done. */
export class ForgottenRanges {
  readonly #disk: Disk;
  readonly #path: string;
  readonly #turns = new Mutex();
  #entries: readonly Entry[];

  private constructor(disk: Disk, path: string, entries: readonly Entry[]) {
    this.#disk = disk;
    this.#path = path;
    this.#entries = entries;
  }

  static async open(disk: Disk, path: string): Promise<ForgottenRanges> {
    try {
      const { entries } = parseRecord(ForgottenFile, parseJson(await disk.readText(path)));
      return new ForgottenRanges(disk, path, entries);
    } catch (error) {
      if (errorCode(error) === "ENOENT") return new ForgottenRanges(disk, path, []);
      const why = error instanceof Error ? error.message : String(error);
      throw new UnreadableForgotten(
        `${path} can't be read (${why}); delete it to go on without it`,
      );
    }
  }

  /**
   * Durable when it resolves, with the range as it is kept: what comes after now was not meant, however
   * late it is that all of it is done.
   */
  async add({ fromMs, toMs }: TimeRange, nowMs: number): Promise<TimeRange> {
    const range = { fromMs, toMs: Math.max(fromMs, Math.min(toMs, nowMs)) };
    const entry: Entry = { range, askedAtMs: nowMs, left: ["here", "archive"] };
    await this.#change((entries) => [...entries.filter((one) => isWanted(one, nowMs)), entry]);
    return range;
  }

  /** What is still to be done there. */
  leftIn(place: ForgetPlace): TimeRange[] {
    return this.#entries.filter(({ left }) => left.includes(place)).map(({ range }) => range);
  }

  /** It is done there. */
  done(range: TimeRange, place: ForgetPlace): Promise<void> {
    return this.#change((entries) =>
      entries.map((entry) =>
        isSame(entry.range, range)
          ? { ...entry, left: entry.left.filter((one) => one !== place) }
          : entry,
      ),
    );
  }

  /** Not of what came after it was asked for, should the time reach further than that. */
  covers(atMs: number): boolean {
    return this.#entries.some(({ range, askedAtMs }) => isWithin(atMs, range) && atMs <= askedAtMs);
  }

  #change(change: (entries: readonly Entry[]) => readonly Entry[]): Promise<void> {
    return this.#turns.run(async () => {
      const entries = change(this.#entries);
      await this.#disk.replaceFile(this.#path, writeJson({ version: 1, entries }));
      this.#entries = entries;
    });
  }
}

function isWanted({ left, askedAtMs }: Entry, nowMs: number): boolean {
  const ageMs = nowMs - askedAtMs;
  return left.length > 0 || (ageMs >= 0 && ageMs < lateFramesMs);
}

function isSame(one: TimeRange, other: TimeRange): boolean {
  return one.fromMs === other.fromMs && one.toMs === other.toMs;
}
