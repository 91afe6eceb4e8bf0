import { forgetPutAside, isOf } from "../forget/forgetSpooled.ts";
import { localDay } from "../journal/journalPage.ts";
import type { Disk } from "../spool/disk.ts";
import { SpoolLayout } from "../spool/layout.ts";
import { overlaps, type TimeRange } from "../spool/records.ts";
import type { ArchiveLayout, ArchiveState } from "./archiveState.ts";
import type { ClipEntry } from "./clips/records.ts";
import { type ListSource, readList } from "./manifest/listReader.ts";
import type { Items } from "./outbox/items.ts";
import type { ListWriter } from "./outbox/listWriter.ts";
import type { ArchiveTarget } from "./targets/target.ts";

export interface FootageDependencies {
  readonly disk: Disk;
  readonly layout: ArchiveLayout;
  readonly items: Items;
  readonly state: ArchiveState;
  readonly list: ListWriter;
  /** The target, ready for this machine's list; throws TargetFailure. */
  target(signal: AbortSignal): Promise<ArchiveTarget>;
  /** Throws where the keyring refuses. */
  source(): Promise<ListSource>;
}

const oneDayMs = 86_400_000;

/**
 * Removes footage of a time: frames that are not in clips yet, and whole clips that have to do with it,
 * first from the target and then, by a further part, from the list. Each step may be repeated. Nothing
 * else may be at work on the outbox. Throws what the target and the keyring throw.
 */
export class FootageForgetting {
  readonly #dependencies: FootageDependencies;
  readonly #names = new Set<string>();

  constructor(dependencies: FootageDependencies) {
    this.#dependencies = dependencies;
  }

  /** Whether this process has removed the clip of that name. */
  isForgotten(name: string): boolean {
    return this.#names.has(name);
  }

  /** What is here needs neither a place nor a key. Resolves with how many frames went. */
  async unpacked(range: TimeRange): Promise<number> {
    const { disk, layout, items } = this.#dependencies;
    let count = await forgetPutAside(disk, new SpoolLayout(layout.root), range);
    for (const name of items.taken) count += await items.leaveOut(name, isOf(range));
    return count;
  }

  /** Resolves with how many clips went. */
  async clips(range: TimeRange, signal: AbortSignal): Promise<number> {
    if (this.#dependencies.state.record.vault === undefined) return 0;
    const target = await this.#dependencies.target(signal);
    await this.#finishList(target, signal);
    return (
      (await this.#packed(range, target, signal)) + (await this.#listed(range, target, signal))
    );
  }

  /** A part on its way names clips that would come into the list after they were removed. */
  async #finishList(target: ArchiveTarget, signal: AbortSignal): Promise<void> {
    const { state, list, items } = this.#dependencies;
    const { segment } = state.record;
    if (segment !== undefined) await list.store(segment, target, signal);
    for (const name of state.record.listed) await items.discard(name);
    if (state.record.listed.length > 0) await state.change({ listed: [] });
  }

  /** Those that wait, and may be stored already. */
  async #packed(range: TimeRange, target: ArchiveTarget, signal: AbortSignal): Promise<number> {
    const { items } = this.#dependencies;
    let count = 0;
    for (const [name, { vault, clips }] of items.packed) {
      if (!clips.some((clip) => overlaps(extentOf(clip), range))) continue;
      for (const clip of clips) await this.#remove(vault, clip, target, signal);
      await items.discard(name);
      count += clips.length;
    }
    return count;
  }

  async #listed(range: TimeRange, target: ArchiveTarget, signal: AbortSignal): Promise<number> {
    const source = await this.#dependencies.source();
    // A day more at both ends: clips are listed by the day on which they begin, in the zone of then.
    const days = {
      fromDate: localDay(range.fromMs - oneDayMs),
      toDate: localDay(range.toMs + oneDayMs),
    };
    const list = await readList(source, days, false, signal);
    let count = 0;
    for (const day of list.days) {
      const clips = await list.clipsOf(day);
      const gone = clips.filter((clip) => overlaps(extentOf(clip), range));
      if (gone.length === 0) continue;
      for (const clip of gone) await this.#remove(source.vault.id, clip, target, signal);
      const names = gone.map(({ name }) => name);
      await this.#dependencies.list.prepareForgotten(day, names, source.vault);
      await this.#finishList(target, signal);
      count += gone.length;
    }
    return count;
  }

  async #remove(
    vault: string,
    { name }: ClipEntry,
    target: ArchiveTarget,
    signal: AbortSignal,
  ): Promise<void> {
    this.#names.add(name);
    await target.remove(`${vault}/${name}`, signal);
  }
}

function extentOf({ startMs, endMs }: ClipEntry): TimeRange {
  return { fromMs: startMs, toMs: endMs };
}
