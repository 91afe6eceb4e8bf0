import type { Clock } from "../../base/clock.ts";
import { describeFailure, isDiskFull, isSystemError } from "../../base/failure.ts";
import { Recipient } from "../age/x25519.ts";
import { type ArchiveState, UnreadableState } from "../archiveState.ts";
import { clipName, type PackerDependencies, packChunk } from "../clips/packer.ts";
import type { PackedChunk } from "../clips/records.ts";
import { SecretStoreFailure } from "../keys/secretStore.ts";
import type { Vault } from "../keys/vault.ts";
import { type ArchiveTarget, ObjectConflict, TargetFailure } from "../targets/target.ts";
import type { Items } from "./items.ts";
import type { ListWriter } from "./listWriter.ts";

export interface OutboxDependencies {
  readonly clock: Clock;
  readonly items: Items;
  readonly state: ArchiveState;
  readonly list: ListWriter;
  /** As the target in use wants it. */
  packer(): PackerDependencies;
  /** The target, ready for this machine's list; throws TargetFailure. */
  target(signal: AbortSignal): Promise<ArchiveTarget>;
  /** Throws where the keyring refuses. */
  vault(): Promise<Vault>;
  /** Why nothing moves; undefined when it moves again. */
  onTrouble(sentence: string | undefined): void;
  /** Something will never get there. */
  onLoss(sentence: string): void;
}

/** So long stored clips may wait for others, so that the list has few parts. */
const greatestListDelayMs = 600_000;
const greatestListItems = 50;
const firstRetryMs = 5_000;
const greatestRetryMs = 600_000;

/**
 * Packs what was taken and stores what is packed, one after the other, oldest first. What fails is
 * tried again; what is stored and not yet listed is only remembered, since to store it again changes
 * nothing.
 */
export class Outbox {
  readonly #dependencies: OutboxDependencies;
  /** Ends what is under way for a target that is no longer the one. */
  #current = new AbortController();
  #running: Promise<void> | undefined;
  #isWanted = false;
  #isFlushing = false;
  /** How many want it to stand still. */
  #holds = 0;
  #isClosed = false;
  /** Stored and not listed, and since when the first of them. */
  readonly #stored = new Set<string>();
  #storedSinceMs = 0;
  /** What could not be packed, and why: tried again with the next attempt. */
  readonly #unpacked = new Map<string, unknown>();
  #retryMs = firstRetryMs;
  #notBeforeMs = 0;
  #cancelTimer: (() => void) | undefined;

  constructor(dependencies: OutboxDependencies) {
    this.#dependencies = dependencies;
  }

  /** Works if there is work: when something was taken, and when anything was put right. */
  wake(): void {
    if (this.#isClosed || this.#holds > 0) return;
    this.#isWanted = true;
    this.#running ??= this.#run();
  }

  /** As `wake`, and what has failed is tried at once. */
  retry(): void {
    this.#notBeforeMs = 0;
    this.#retryMs = firstRetryMs;
    this.wake();
  }

  /** Lists everything that is there, as far as it can be done now. */
  async flush(): Promise<void> {
    this.#isFlushing = true;
    this.retry();
    await this.settled();
  }

  /** Resolves when there is nothing more to do for now. */
  async settled(): Promise<void> {
    while (this.#running !== undefined) await this.#running;
  }

  /**
   * Does the task while nothing else happens here, so that it may change what the work relies on;
   * then goes on. What was under way begins anew; for so long it may come to its end.
   */
  async whilePaused<Result>(task: () => Promise<Result>, patienceMs = 0): Promise<Result> {
    this.#holds += 1;
    if (patienceMs > 0) await this.#settledWithin(patienceMs);
    this.#current.abort(new Paused());
    try {
      await this.settled();
      this.#stored.clear();
      return await task();
    } finally {
      this.#holds -= 1;
      if (this.#holds === 0) {
        this.#current = new AbortController();
        this.retry();
      }
    }
  }

  async #settledWithin(patienceMs: number): Promise<void> {
    let cancel = () => {};
    const timeIsUp = new Promise<void>((resolve) => {
      cancel = this.#dependencies.clock.after(patienceMs, resolve);
    });
    await Promise.race([this.settled(), timeIsUp]);
    cancel();
  }

  async close(): Promise<void> {
    this.#isClosed = true;
    this.#current.abort(new Paused());
    this.#cancelTimer?.();
    await this.#running;
  }

  async #run(): Promise<void> {
    while (this.#isWanted && !this.#isClosed && this.#holds === 0) {
      this.#isWanted = false;
      this.#cancelTimer?.();
      await this.#attempt();
    }
    this.#isWanted = false;
    this.#running = undefined;
  }

  async #attempt(): Promise<void> {
    const { state, clock, onTrouble } = this.#dependencies;
    if (!state.record.enabled) return;
    const { signal } = this.#current;
    this.#unpacked.clear();
    try {
      await this.#packAll(signal);
      const waitMs = this.#notBeforeMs - clock.nowMs();
      if (waitMs > 0 && waitMs <= greatestRetryMs) return this.#wakeAfter(waitMs);
      await this.#storeAll(signal);
      for (const failure of this.#unpacked.values()) throw failure;
      this.#retryMs = firstRetryMs;
      this.#isFlushing = false;
      onTrouble(undefined);
    } catch (error) {
      if (signal.aborted || error instanceof Paused) return;
      this.#isFlushing = false;
      onTrouble(sentenceFor(error));
      this.#notBeforeMs = clock.nowMs() + this.#retryMs;
      this.#wakeAfter(this.#retryMs);
      this.#retryMs = Math.min(this.#retryMs * 2, greatestRetryMs);
    }
  }

  #wakeAfter(delayMs: number): void {
    this.#cancelTimer?.();
    this.#cancelTimer = this.#dependencies.clock.after(delayMs, () => this.wake());
  }

  /** What can't be packed holds up neither the others nor what is packed, which makes room. */
  async #packAll(signal: AbortSignal): Promise<void> {
    const next = () => this.#dependencies.items.taken.find((name) => !this.#unpacked.has(name));
    for (let name = next(); name !== undefined; name = next()) {
      signal.throwIfAborted();
      this.#throwIfHeld();
      try {
        await this.#pack(name, signal);
      } catch (error) {
        signal.throwIfAborted();
        this.#unpacked.set(name, error);
        if (isDiskFull(error)) return;
      }
    }
  }

  async #pack(name: string, signal: AbortSignal): Promise<void> {
    const { items, state, packer, clock } = this.#dependencies;
    const { vault } = state.record;
    if (vault === undefined) throw new UnreadableState("the vault is not known");
    const folder = items.folderOf(name);
    const recipient = Recipient.parse(vault.recipient);
    const chunk = await items.readChunk(name).catch((error: unknown) => {
      if (isSystemError(error)) throw error;
    });
    if (chunk === undefined) return items.setAside(name, clock.nowMs());
    const clips = await packChunk(packer(), folder, chunk, recipient, signal);
    if (clips.length === 0) return items.discard(name);
    await items.storeClips(name, { version: 1, vault: vault.id, clips });
  }

  async #storeAll(signal: AbortSignal): Promise<void> {
    const { items, state } = this.#dependencies;
    await this.#clearListed();
    if (items.isEmpty && state.record.segment === undefined) return;
    const target = await this.#dependencies.target(signal);
    await this.#storePending(target, signal);
    let canList = true;
    for (const item of items.packed) {
      if (this.#stored.has(item[0])) continue;
      await this.#storeItem(item, target, signal);
      // What came meanwhile takes up less room when it is packed; it is behind those that were there.
      await this.#packAll(signal);
      // Only what is listed leaves this disk, and a backlog may take days.
      const isMuch = this.#stored.size >= greatestListItems;
      if (isMuch && canList) canList = await this.#canListWhatIsDue(target, signal);
    }
    await this.#listWhatIsDue(target, signal);
    if (this.#stored.size > 0) this.#wakeAfter(this.#listDelayMs());
  }

  async #listWhatIsDue(target: ArchiveTarget, signal: AbortSignal): Promise<void> {
    while (this.#isListDue()) {
      this.#throwIfHeld();
      await this.#dependencies.list.prepare(this.#nextForList(), await this.#dependencies.vault());
      await this.#storePending(target, signal);
    }
  }

  /** A keyring that is locked holds up the list, and not the clips. */
  async #canListWhatIsDue(target: ArchiveTarget, signal: AbortSignal): Promise<boolean> {
    try {
      await this.#listWhatIsDue(target, signal);
      return true;
    } catch (error) {
      if (error instanceof SecretStoreFailure) return false;
      throw error;
    }
  }

  async #storeItem(
    [name, packed]: [string, PackedChunk],
    target: ArchiveTarget,
    signal: AbortSignal,
  ): Promise<void> {
    const { items, clock, onLoss } = this.#dependencies;
    // What is stored is listed by the hash that it was made with, and never looked at again.
    if (!(await items.areClipsWhole(name, packed))) {
      await items.setAside(name, clock.nowMs());
      onLoss(
        "Footage was damaged on this disk before it was archived; what is left was put aside.",
      );
      return;
    }
    try {
      for (const upload of items.uploads(name, packed)) {
        this.#throwIfHeld();
        await target.put(upload, signal);
      }
    } catch (error) {
      // What a torn upload has left there, perhaps; nothing is ever overwritten.
      if (error instanceof ObjectConflict) await this.#rename(name, packed);
      throw error;
    }
    if (this.#stored.size === 0) this.#storedSinceMs = clock.nowMs();
    this.#stored.add(name);
  }

  /** Nothing new is begun while somebody waits for what is under way. */
  #throwIfHeld(): void {
    if (this.#holds > 0) throw new Paused();
  }

  async #rename(name: string, packed: PackedChunk): Promise<void> {
    const { items, packer } = this.#dependencies;
    const { randomName } = packer();
    const clips = packed.clips.map((clip) => ({
      ...clip,
      name: clipName(clip.startMs, clip.day, randomName()),
    }));
    await items.storeClips(name, { ...packed, clips });
  }

  async #storePending(target: ArchiveTarget, signal: AbortSignal): Promise<void> {
    const { state, list } = this.#dependencies;
    const { segment } = state.record;
    if (segment === undefined) return;
    await list.store(segment, target, signal);
    await this.#clearListed();
  }

  /** What is in the list for good is here no longer needed. */
  async #clearListed(): Promise<void> {
    const { items, state } = this.#dependencies;
    const { listed } = state.record;
    if (listed.length === 0) return;
    for (const name of listed) {
      await items.discard(name);
      this.#stored.delete(name);
    }
    await state.change({ listed: [] });
  }

  #isListDue(): boolean {
    if (this.#stored.size === 0) return false;
    if (this.#isFlushing || this.#stored.size >= greatestListItems) return true;
    const days = new Set(this.#storedItems().map(([, { clips }]) => clips[0]?.day));
    return days.size > 1 || this.#listDelayMs() <= 0;
  }

  #listDelayMs(): number {
    const waitedMs = this.#dependencies.clock.nowMs() - this.#storedSinceMs;
    // A clock that was set back must not hold the list up.
    return waitedMs < 0 ? 0 : greatestListDelayMs - waitedMs;
  }

  #storedItems(): [string, PackedChunk][] {
    const { items } = this.#dependencies;
    return [...this.#stored].flatMap((name) => {
      const packed = items.packedOf(name);
      return packed === undefined ? [] : [[name, packed] as [string, PackedChunk]];
    });
  }

  /** Those of the day of the oldest. */
  #nextForList(): [string, PackedChunk][] {
    const stored = this.#storedItems();
    const day = stored[0]?.[1].clips[0]?.day;
    return stored.filter(([, { clips }]) => clips[0]?.day === day).slice(0, greatestListItems);
  }
}

class Paused extends Error {
  override readonly name = "Paused";
}

function sentenceFor(error: unknown): string {
  if (error instanceof TargetFailure || error instanceof SecretStoreFailure) {
    return `Footage waits for its archive. ${error.message}`;
  }
  return `${describeFailure("Footage waits for its archive", error)}.`;
}
