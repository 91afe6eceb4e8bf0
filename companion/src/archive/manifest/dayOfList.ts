import { createHash } from "node:crypto";
import { writeJson } from "../../json/writer.ts";
import type { ClipEntry } from "../clips/records.ts";
import type { Vault } from "../keys/vault.ts";
import type { Mirror } from "./mirror.ts";
import { ForgedSegment, openSegment, type Segment, type SegmentName } from "./segment.ts";

interface KnownClip {
  readonly bytes: number;
  /** Differs where anything that is said of the clip differs. */
  readonly mark: number;
}

/**
 * One day of the archive's list, from the parts that were found whole. Of each clip only its name and
 * its size stay in memory; everything else is read again, from the parts that this machine keeps.
 */
export class DayOfList {
  #known = new Map<string, KnownClip>();
  #forgotten = new Set<string>();
  readonly #parts: SegmentName[] = [];
  #names = new Set<string>();
  #count = 0;
  #bytes = 0;

  get count(): number {
    return this.#count;
  }

  get bytes(): number {
    return this.#bytes;
  }

  /**
   * Adds a part, and returns the clips that were listed before as other ones. A machine that was set
   * back to a former state lists again what waited then, as it was.
   */
  add(segment: Segment): string[] {
    const { writer, sequence, day } = segment;
    this.#parts.push({ writer, sequence, day });
    for (const name of segment.forgotten ?? []) this.#forgotten.add(ownCopy(name));
    return segment.clips.flatMap((clip) => (this.#isAnother(clip) ? [clip.name] : []));
  }

  /** To be called when all parts are there: takes out what was forgotten. */
  finish(): this {
    for (const name of this.#forgotten) this.#known.delete(name);
    this.#count = this.#known.size;
    this.#bytes = [...this.#known.values()].reduce((sum, { bytes }) => sum + bytes, 0);
    this.#names = new Set(this.#known.keys());
    this.#known = new Map();
    this.#forgotten = new Set();
    return this;
  }

  /** The clips by time, each once. */
  async clips(mirror: Mirror, vault: Vault): Promise<ClipEntry[]> {
    const clips = new Map<string, ClipEntry>();
    for (const part of this.#parts) {
      const object = await mirror.read(part);
      if (object === undefined)
        throw new ForgedSegment("a part of the list is gone from this disk");
      for (const clip of (await openSegment(object, vault, part)).clips) {
        if (this.#names.has(clip.name) && !clips.has(clip.name)) clips.set(clip.name, clip);
      }
    }
    return [...clips.values()].sort((a, b) => a.startMs - b.startMs);
  }

  #isAnother(clip: ClipEntry): boolean {
    const known = this.#known.get(clip.name);
    const mark = markOf(clip);
    if (known === undefined) this.#known.set(ownCopy(clip.name), { bytes: clip.bytes, mark });
    return known !== undefined && known.mark !== mark;
  }
}

/** 48 bits of a hash: as much as a number holds. */
function markOf(clip: ClipEntry): number {
  return createHash("sha256").update(writeJson(clip)).digest().readUIntBE(0, 6);
}

/** A text of its own: what was cut out of a longer one may keep all of that in memory. */
function ownCopy(text: string): string {
  return Buffer.from(text).toString();
}
