import { isRefusal } from "../base/failure.ts";
import type { RulesNow } from "../privacy/privacyFile.ts";
import type { PrivacyRules } from "../privacy/privacyRules.ts";
import { privateMarginMs } from "../spool/chunker.ts";
import {
  type Chunk,
  extentOf,
  isWithin,
  overlaps,
  type SpooledFrame,
  type TimeRange,
  widened,
} from "../spool/records.ts";
import type { Spool } from "../spool/spool.ts";
import { UnreadableChunk } from "./deferrals.ts";
import { PrivateMoments } from "./privateMoments.ts";

export interface SieveDependencies {
  readonly spool: Spool;
  /** The user's privacy rules as they are now; throws PrivacyUnreadable. */
  readonly privacyRules: RulesNow;
  /** Frames that are in no chunk yet. */
  looseFrames(): readonly SpooledFrame[];
  /** Whether the user has had that time forgotten. */
  isForgotten(atMs: number): boolean;
}

/** What of a chunk may go on, and what may not. */
export interface Sifted {
  readonly kept: readonly SpooledFrame[];
  /** Nobody's business by the rules, or within a second of such a frame. */
  readonly secret: readonly SpooledFrame[];
  /** Of a time that the user has had forgotten. */
  readonly forgotten: readonly SpooledFrame[];
  /** When frames of the chunk itself were private by the rules. */
  readonly moments: readonly number[];
}

/**
 * Keeps in the spool what is nobody's business. A chunk passes through it when its turn comes, by the
 * rules as they are then, before anybody else sees anything of it.
 */
export class Sieve {
  readonly #dependencies: SieveDependencies;
  readonly #moments: PrivateMoments;
  #rulesComplaint: string | undefined;

  constructor(dependencies: SieveDependencies) {
    this.#dependencies = dependencies;
    const { disk, layout } = dependencies.spool;
    this.#moments = new PrivateMoments(disk, layout.momentsFile);
  }

  /** What the user should know of the rules as they were the last time that they were applied. */
  get rulesComplaint(): string | undefined {
    return this.#rulesComplaint;
  }

  /** Judges, and changes nothing. Throws PrivacyUnreadable. */
  async judge(chunk: Chunk): Promise<Sifted> {
    const rules = await this.#dependencies.privacyRules();
    const moments = await privateTimes(chunk.frames, rules);
    const all = [...moments, ...(await this.#momentsAround(chunk, rules))];
    this.#rulesComplaint = rules.complaint;
    const isForgotten = (frame: SpooledFrame) => this.#dependencies.isForgotten(frame.receivedAtMs);
    const isSecret = ({ receivedAtMs }: SpooledFrame) =>
      all.some((atMs) => Math.abs(receivedAtMs - atMs) <= privateMarginMs);
    const rest = chunk.frames.filter((frame) => !isForgotten(frame));
    return {
      kept: rest.filter((frame) => !isSecret(frame)),
      secret: rest.filter(isSecret),
      forgotten: chunk.frames.filter(isForgotten),
      moments,
    };
  }

  /** Deletes what may not go on, and resolves with the rest. Throws PrivacyUnreadable. */
  async sift(chunk: Chunk): Promise<Chunk> {
    if (chunk.frames.length === 0) return chunk;
    const { kept, moments } = await this.judge(chunk);
    if (kept.length === chunk.frames.length) return chunk;
    // Before they are gone: a frame near them may have its turn after a kill.
    if (moments.length > 0) await this.#moments.add(moments, (atMs) => this.#matters(atMs, chunk));
    const stays = new Set(kept);
    return this.#dependencies.spool.leaveOut(chunk, (frame) => !stays.has(frame));
  }

  /** The private moments of others that are near enough. */
  async #momentsAround(chunk: Chunk, rules: PrivacyRules): Promise<number[]> {
    const extent = extentOf(chunk.frames);
    if (extent === undefined) return [];
    const around = widened(extent, privateMarginMs);
    const { spool, looseFrames } = this.#dependencies;
    const near: SpooledFrame[] = [...looseFrames(), ...spool.closingFrames];
    for (const other of spool.pendingChunks) {
      if (other.id === chunk.id || other.extent === undefined) continue;
      if (overlaps(other.extent, around)) near.push(...(await this.#framesOf(other.id)));
    }
    const times = [...(await privateTimes(near, rules)), ...(await this.#moments.all())];
    return times.filter((atMs) => isWithin(atMs, around));
  }

  /** What is gone or damaged tells nothing; for what the disk keeps back its neighbours have to wait. */
  async #framesOf(id: number): Promise<readonly SpooledFrame[]> {
    try {
      return (await this.#dependencies.spool.readChunk(id)).frames;
    } catch (error) {
      if (isRefusal(error)) throw new UnreadableChunk(error);
      return [];
    }
  }

  /** Whether a frame that waits, or is still to come, may be near. */
  #matters(atMs: number, chunk: Chunk): boolean {
    const { spool } = this.#dependencies;
    const extents: TimeRange[] = [];
    let newestMs = Math.max(
      spool.queueState?.lastFrameAtMs ?? 0,
      extentOf(chunk.frames)?.toMs ?? 0,
    );
    for (const { extent } of spool.pendingChunks) {
      if (extent === undefined) continue;
      extents.push(extent);
      newestMs = Math.max(newestMs, extent.toMs);
    }
    const isNear = extents.some((extent) => isWithin(atMs, widened(extent, privateMarginMs)));
    return isNear || atMs >= newestMs - privateMarginMs;
  }
}

async function privateTimes(
  frames: readonly SpooledFrame[],
  rules: PrivacyRules,
): Promise<number[]> {
  const times: number[] = [];
  for (const { text, receivedAtMs } of frames) {
    if (await rules.excludes(text)) times.push(receivedAtMs);
  }
  return times;
}
