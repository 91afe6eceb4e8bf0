import { readAhead } from "../../base/readAhead.ts";
import type { DayRange } from "../archiveRequests.ts";
import type { ClipEntry } from "../clips/records.ts";
import type { Vault } from "../keys/vault.ts";
import { type ArchiveTarget, ObjectMissing, ObjectUnreadable } from "../targets/target.ts";
import { DayOfList } from "./dayOfList.ts";
import type { Head, Heads } from "./heads.ts";
import type { Mirror } from "./mirror.ts";
import {
  ForgedSegment,
  noPrevious,
  openSegment,
  parseSegmentName,
  type Segment,
  type SegmentName,
  segmentName,
  sha256Of,
} from "./segment.ts";

/** An archive to read the list of. */
export interface ListSource {
  readonly mirror: Mirror;
  readonly heads: Heads;
  readonly target: ArchiveTarget;
  /** Which place the heads are of. */
  readonly place: string;
  readonly vault: Vault;
  /** What this machine itself has last written there. */
  readonly ownHead: (Head & { readonly writer: string }) | undefined;
}

/** The list as it was read: what of it is kept in memory is small, for there may be very many clips. */
export interface ArchiveList {
  /** Those of the days that were asked for on which there are clips, in order. */
  readonly days: readonly string[];
  /** How many clips there are on these days. */
  readonly count: number;
  /** How large they are together, encrypted. */
  readonly bytes: number;
  /** Sentences about what is missing from the list, or isn't ours. */
  readonly problems: readonly string[];
  /** The clips of a day, by time. */
  clipsOf(day: string): Promise<ClipEntry[]>;
}

/** By writer and number. */
type Parts = Map<string, Map<number, SegmentName>>;

/** How many parts are on their way beside the one that is waited for: a distant place takes its time for each. */
const partsAhead = 8;

/** More than any part has. */
const greatestSegmentBytes = 8 * 1024 * 1024;

/**
 * The clips of a range of days. A thorough reading takes the parts of these days from the target
 * even where this machine keeps them, so that what was altered there is found. Throws TargetFailure.
 */
export function readList(
  source: ListSource,
  { fromDate, toDate }: DayRange,
  isThorough: boolean,
  signal: AbortSignal,
): Promise<ArchiveList> {
  return new ListReader(source, isThorough).read(fromDate, toDate, signal);
}

/**
 * Reads the list of an archive and checks it: each part's code and name, each chain without a gap,
 * and that no chain ends before where this machine has seen it. Parts that were read once are kept
 * here, so that the next time takes one listing.
 */
class ListReader {
  readonly #dependencies: ListSource;
  readonly #isThorough: boolean;
  readonly #problems: string[] = [];
  readonly #days = new Map<string, DayOfList>();

  constructor(dependencies: ListSource, isThorough: boolean) {
    this.#dependencies = dependencies;
    this.#isThorough = isThorough;
  }

  async read(fromDay: string, toDay: string, signal: AbortSignal): Promise<ArchiveList> {
    const { heads } = this.#dependencies;
    const verified = new Map<string, Head>();
    const stored = await this.#storedParts(signal);
    await this.#compareWithKept(stored);
    for (const [writer, parts] of stored) {
      const key = this.#headKey(writer);
      const head = await this.#readChain(writer, parts, [fromDay, toDay], signal);
      if (head !== undefined) verified.set(key, head);
    }
    await heads.advance(verified);
    const [mirror, vault, problems] = [
      this.#dependencies.mirror,
      this.#dependencies.vault,
      this.#problems,
    ];
    // Only now: whoever had them forgotten may be another writer than the one who has listed them.
    for (const [name, day] of this.#days) if (day.finish().count === 0) this.#days.delete(name);
    const days = [...this.#days].sort(([a], [b]) => (a < b ? -1 : 1));
    return {
      days: days.map(([name]) => name),
      count: days.reduce((sum, [, { count }]) => sum + count, 0),
      bytes: days.reduce((sum, [, { bytes }]) => sum + bytes, 0),
      problems,
      clipsOf: async (day) => (await this.#days.get(day)?.clips(mirror, vault)) ?? [],
    };
  }

  #headKey(writer: string): string {
    const { vault, place } = this.#dependencies;
    return `${vault.id} ${place} ${writer}`;
  }

  /** All that the target shows, and the writers of whom it shows nothing any more. */
  async #storedParts(signal: AbortSignal): Promise<Parts> {
    const { target, vault, heads, ownHead } = this.#dependencies;
    const writers: Parts = new Map();
    const prefix = this.#headKey("");
    for (const key of heads.keysOf(prefix)) writers.set(key.slice(prefix.length), new Map());
    if (ownHead !== undefined && ownHead.sequence > 0) writers.set(ownHead.writer, new Map());
    for await (const object of target.list(`${vault.id}/manifest`, signal)) {
      const name = object.name.slice(vault.id.length + 1);
      const part = parseSegmentName(name);
      if (part === undefined) {
        this.#problems.push(`The list has a part that isn't the observer's: ${name}.`);
        continue;
      }
      const parts = writers.get(part.writer) ?? new Map<number, SegmentName>();
      if (parts.has(part.sequence)) this.#problems.push(`The list has a part twice: ${name}.`);
      else parts.set(part.sequence, part);
      writers.set(part.writer, parts);
    }
    return writers;
  }

  /**
   * Parts that this machine keeps count by the day that they are of, whatever the target's names say.
   */
  async #compareWithKept(stored: Parts): Promise<void> {
    for (const kept of await this.#dependencies.mirror.names()) {
      const parts = stored.get(kept.writer);
      const part = parts?.get(kept.sequence);
      if (parts === undefined || part === undefined || part.day === kept.day) continue;
      const object = await this.#kept(kept);
      if (object === undefined) continue;
      this.#problems.push(`A part of the list stands under another day: ${segmentName(part)}.`);
      parts.set(kept.sequence, kept);
    }
  }

  /** The chain's head where it has no fault at all. */
  async #readChain(
    writer: string,
    parts: ReadonlyMap<number, SegmentName>,
    days: readonly [from: string, to: string],
    signal: AbortSignal,
  ): Promise<Head | undefined> {
    const known = this.#knownHead(writer);
    const chain = [...parts.values()].sort((a, b) => a.sequence - b.sequence);
    const last = chain.at(-1)?.sequence ?? 0;
    const before = this.#problems.length;
    if (known !== undefined && last < known.sequence) {
      this.#problems.push(
        `The list was rolled back: it had ${known.sequence} parts of writer ${writer}, and has ${last}.`,
      );
    }
    const isWanted = ({ day }: SegmentName) => day >= days[0] && day <= days[1];
    // What was whole before needs no second look, but the last one to go on from.
    const isRead = (part: SegmentName) =>
      known === undefined || part.sequence >= known.sequence || isWanted(part);
    const read = async (part: SegmentName, stop: AbortSignal) => ({
      part,
      object: isRead(part) ? await this.#objectOrFault(part, isWanted(part), stop) : undefined,
    });
    let head: Head = { sequence: 0, sha256: noPrevious };
    for await (const { part, object } of readAhead(chain, partsAhead, read, signal)) {
      signal.throwIfAborted();
      // Whoever can write to the place can give a part any number: what lies before isn't counted through.
      if (part.sequence > head.sequence + 1) {
        this.#problems.push(missingParts(head.sequence + 1, part.sequence - 1, writer));
        head = { sequence: part.sequence - 1, sha256: "" };
      }
      head =
        object === undefined
          ? { sequence: part.sequence, sha256: "" }
          : await this.#checkPart(part, object, head, isWanted(part));
      if (part.sequence === known?.sequence && head.sha256 !== known.sha256) {
        this.#problems.push(`The list was exchanged: part ${part.sequence} of writer ${writer}.`);
      }
    }
    return this.#problems.length === before && last > 0 ? head : undefined;
  }

  #knownHead(writer: string): Head | undefined {
    const { heads, ownHead } = this.#dependencies;
    const seen = heads.get(this.#headKey(writer));
    if (ownHead?.writer !== writer) return seen;
    return seen !== undefined && seen.sequence > ownHead.sequence ? seen : ownHead;
  }

  /** What is wrong with this part and no other is an answer too. */
  #objectOrFault(name: SegmentName, isWanted: boolean, signal: AbortSignal) {
    return this.#objectOf(name, isWanted, signal).catch((error: unknown) => {
      if (error instanceof Error && faultOf(error) !== undefined) return error;
      throw error;
    });
  }

  async #checkPart(
    name: SegmentName,
    object: Buffer | Error,
    before: Head,
    isWanted: boolean,
  ): Promise<Head> {
    try {
      if (object instanceof Error) throw object;
      const segment = await openSegment(object, this.#dependencies.vault, name);
      if (before.sha256 !== "" && segment.previous !== before.sha256) {
        throw new ForgedSegment("it doesn't follow from the one before");
      }
      if (isWanted) this.#add(segment);
      return { sequence: name.sequence, sha256: sha256Of(object) };
    } catch (error) {
      if (faultOf(error) === undefined) throw error;
      this.#problems.push(`A part of the list ${faultOf(error)}: ${segmentName(name)}.`);
      return { sequence: name.sequence, sha256: "" };
    }
  }

  #add(segment: Segment): void {
    const day = this.#days.get(segment.day) ?? new DayOfList();
    this.#days.set(segment.day, day);
    for (const name of day.add(segment)) {
      this.#problems.push(`A clip is listed twice, as two different ones: ${name}.`);
    }
  }

  /** Kept here only when it is the vault's own. */
  async #objectOf(name: SegmentName, isWanted: boolean, signal: AbortSignal): Promise<Buffer> {
    const { mirror, vault } = this.#dependencies;
    const kept = await this.#kept(name);
    if (kept !== undefined && !(this.#isThorough && isWanted)) return kept;
    const object = await this.#fetch(name, signal).catch((error: unknown) => {
      if (kept === undefined || faultOf(error) === undefined) throw error;
    });
    if (object !== undefined && (await isGenuine(object, vault, name))) {
      await mirror.keep(name, object);
      return object;
    }
    if (kept === undefined) return object ?? Buffer.alloc(0);
    // What the machine has kept is as good; but it has to be told.
    this.#problems.push(`A part of the list is not what was stored: ${segmentName(name)}.`);
    return kept;
  }

  async #kept(name: SegmentName): Promise<Buffer | undefined> {
    const { mirror, vault, ownHead } = this.#dependencies;
    // Of our own list, what isn't stored yet may turn out to be another's there.
    if (ownHead?.writer === name.writer && name.sequence > ownHead.sequence) return undefined;
    const kept = await mirror.read(name);
    return kept !== undefined && (await isGenuine(kept, vault, name)) ? kept : undefined;
  }

  async #fetch(name: SegmentName, signal: AbortSignal): Promise<Buffer> {
    const { target, vault } = this.#dependencies;
    const pieces: Uint8Array[] = [];
    let bytes = 0;
    for await (const piece of target.read(`${vault.id}/${segmentName(name)}`, signal)) {
      bytes += piece.length;
      if (bytes > greatestSegmentBytes) throw new ForgedSegment("it is too large");
      pieces.push(piece);
    }
    return Buffer.concat(pieces);
  }
}

function missingParts(from: number, to: number, writer: string): string {
  return from === to
    ? `The list lacks part ${from} of writer ${writer}.`
    : `The list lacks parts ${from} to ${to} of writer ${writer}.`;
}

/** What is wrong with one part and no other; undefined where it is the target. */
function faultOf(error: unknown): string | undefined {
  if (error instanceof ForgedSegment) return "is not what was stored";
  if (error instanceof ObjectMissing) return "is missing";
  if (error instanceof ObjectUnreadable) return "can't be read";
  return undefined;
}

async function isGenuine(object: Buffer, vault: Vault, name: SegmentName): Promise<boolean> {
  try {
    await openSegment(object, vault, name);
    return true;
  } catch {
    return false;
  }
}
