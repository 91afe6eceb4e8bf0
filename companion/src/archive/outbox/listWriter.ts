import type { ArchiveState, PendingSegment } from "../archiveState.ts";
import type { PackedChunk } from "../clips/records.ts";
import type { Vault } from "../keys/vault.ts";
import type { Mirror } from "../manifest/mirror.ts";
import {
  noPrevious,
  parseSegmentName,
  type Segment,
  sealSegment,
  segmentName,
  sha256Of,
} from "../manifest/segment.ts";
import { type ArchiveTarget, ObjectConflict, TargetFailure } from "../targets/target.ts";

export interface ListWriterDependencies {
  readonly mirror: Mirror;
  readonly state: ArchiveState;
  /** 16 hexadecimal digits that never come twice. */
  randomName(): string;
}

/**
 * Writes this machine's parts of the archive's list. Each is made once, kept, and stored as the same
 * bytes until the target confirms it; only then does the next one follow.
 */
export class ListWriter {
  readonly #dependencies: ListWriterDependencies;

  constructor(dependencies: ListWriterDependencies) {
    this.#dependencies = dependencies;
  }

  /** Prepares the next part, with the clips of these items, which are of one day. */
  async prepare(
    items: readonly (readonly [name: string, chunk: PackedChunk])[],
    vault: Vault,
  ): Promise<void> {
    const day = items[0]?.[1].clips[0]?.day;
    if (day === undefined) throw new Error("there is nothing to list");
    const clips = items.flatMap(([, chunk]) => chunk.clips);
    await this.#prepare(
      { day, clips },
      items.map(([name]) => name),
      vault,
    );
  }

  /** Prepares a part that tells of listed clips of the day that they are there no more. */
  prepareForgotten(day: string, forgotten: string[], vault: Vault): Promise<void> {
    return this.#prepare({ day, clips: [], forgotten }, [], vault);
  }

  async #prepare(
    contents: Pick<Segment, "day" | "clips" | "forgotten">,
    items: string[],
    vault: Vault,
  ): Promise<void> {
    const { mirror, state } = this.#dependencies;
    const { binding } = state.record;
    if (binding === undefined) throw new Error("there is no list");
    const segment: Segment = {
      format: "ostrel-archive-list",
      version: 1,
      vault: vault.id,
      writer: binding.writer,
      sequence: binding.sequence + 1,
      previous: binding.sequence === 0 ? noPrevious : binding.head,
      ...contents,
    };
    const object = await sealSegment(segment, vault);
    await mirror.keep(segment, object);
    await state.change({
      segment: {
        name: segmentName(segment),
        sequence: segment.sequence,
        bytes: object.length,
        sha256: sha256Of(object),
        items,
      },
    });
  }

  /**
   * Stores the part that is prepared. What its items hold is then in the archive for good. Throws
   * TargetFailure; a part that was damaged here, or where another stands, is then given up.
   */
  async store(pending: PendingSegment, target: ArchiveTarget, signal: AbortSignal): Promise<void> {
    const { mirror, state } = this.#dependencies;
    const { vault, binding } = state.record;
    const name = parseSegmentName(pending.name);
    if (vault === undefined || binding === undefined || name === undefined) {
      throw new Error("there is no archive");
    }
    const { bytes, sha256 } = pending;
    const kept = await mirror.read(name);
    if (kept === undefined || sha256Of(kept) !== sha256) {
      await state.change({ segment: undefined });
      // Whatever it was to tell of is still as it was, and comes into another part.
      throw new TargetFailure("A part of the list was damaged on this disk; it is made anew.");
    }
    const upload = { ...mirror.upload(name), bytes, sha256 };
    try {
      await target.put({ ...upload, name: `${vault.id}/${pending.name}` }, signal);
    } catch (error) {
      if (error instanceof ObjectConflict) {
        await mirror.remove(name);
        await this.#beginAnew();
      }
      throw error;
    }
    await state.change({
      binding: { ...binding, sequence: pending.sequence, head: pending.sha256 },
      segment: undefined,
      listed: [...state.record.listed, ...pending.items],
    });
  }

  /**
   * Somebody else goes on with our list, as the copy of a machine does. We become another writer,
   * whose list begins with what waits.
   */
  async #beginAnew(): Promise<void> {
    const { state, randomName } = this.#dependencies;
    const { binding } = state.record;
    if (binding === undefined) return;
    await state.change({
      segment: undefined,
      binding: { place: binding.place, writer: randomName(), sequence: 0, head: noPrevious },
    });
  }
}
