import type { Clock } from "../base/clock.ts";
import { describeFailure } from "../base/failure.ts";
import { isoLocalTime, sortableLocalTime } from "../base/localTime.ts";
import { gapText } from "../engine/gapText.ts";
import { chunkLengthMs } from "../settings/chunkLength.ts";
import type { SettingsInUse } from "../settings/settingsInUse.ts";
import { Chunker } from "../spool/chunker.ts";
import type { Leftovers } from "../spool/leftovers.ts";
import type { Gap, SpooledFrame } from "../spool/records.ts";
import type { Spool } from "../spool/spool.ts";
import type { Complaints } from "./complaints.ts";
import { type GapArea, OpenGaps } from "./openGaps.ts";
import type { Room } from "./room.ts";
import type { SessionLedger } from "./sessionFile.ts";

export interface RecordingDependencies {
  readonly clock: Clock;
  readonly settings: SettingsInUse;
  readonly spool: Spool;
  readonly room: Room;
  readonly complaints: Complaints;
  readonly ledger: SessionLedger;
  /** A sentence for the log. */
  onGap(sentence: string): void;
  /** What the status is to tell as the last action. */
  onAction(sentence: string): void;
  /** Chunks may have been closed. */
  onChunks(): void;
}

/**
 * The session that runs, if any, and its frames on their way into chunks; before it, what a kill has
 * left of the last one. Callers take turns.
 */
export class Recording {
  readonly gaps = new OpenGaps();
  readonly #dependencies: RecordingDependencies;
  #leftovers: Leftovers | undefined;
  #chunker: Chunker | undefined;
  /** A session whose end could not be stored; the next start or stop tries again. */
  #isStopping = false;
  #sessionId: string | undefined;
  #chunkIndex = 0;
  #lastChunkAt: string | undefined;

  constructor(dependencies: RecordingDependencies, leftovers: Leftovers) {
    this.#dependencies = dependencies;
    this.#leftovers = leftovers;
  }

  /** Undefined while no session runs that takes frames. */
  get open(): Chunker | undefined {
    return this.#isStopping ? undefined : this.#chunker;
  }

  /** Frames of this session that are in no chunk yet. */
  get frames(): readonly SpooledFrame[] {
    return this.#chunker?.frames ?? [];
  }

  /** The same, with those that a kill has left. */
  get looseFrames(): readonly SpooledFrame[] {
    return [...(this.#leftovers?.frames ?? []), ...this.frames];
  }

  get hasLeftovers(): boolean {
    return this.#leftovers !== undefined;
  }

  get isUnfinished(): boolean {
    return this.hasLeftovers || this.#isStopping;
  }

  /** What the status tells of it. */
  get facts() {
    return {
      running: this.open !== undefined,
      sessionId: this.#sessionId,
      chunkIndex: this.#chunkIndex,
      lastChunkAt: this.#lastChunkAt,
    };
  }

  /** Begins a session; while one runs it goes on. */
  async begin(): Promise<void> {
    const { clock, room, spool, ledger, complaints, onAction } = this.#dependencies;
    if (this.#isStopping) await this.end();
    // The disk may have filled up since the last recording, and this one needs room.
    await this.keepQuota();
    if (this.#chunker !== undefined) return;
    const nowMs = clock.nowMs();
    try {
      const session = await room.making(() => ledger.begin(sortableLocalTime(nowMs), nowMs));
      complaints.forgetRecording();
      this.#chunker = new Chunker(spool, session);
      this.#sessionId = session.id;
      this.#chunkIndex = 0;
      onAction("Recording started.");
    } catch (error) {
      complaints.set("frames", `${describeFailure("The recording can't be started", error)}.`);
      throw error;
    }
  }

  /** Ends the session, if one runs or is about to end. */
  async end(): Promise<void> {
    const { clock, room, ledger, complaints, onAction, onChunks } = this.#dependencies;
    const chunker = this.#chunker;
    if (chunker === undefined) return;
    this.#isStopping = true;
    const nowMs = clock.nowMs();
    try {
      for (const area of this.gaps.areas) await this.#writeGap(chunker, area, nowMs);
      await room.making(() => chunker.finish(nowMs));
      this.#noteChunks(chunker);
      await room.making(() => ledger.end());
    } catch (error) {
      complaints.set("frames", `${describeFailure("The recording can't be ended", error)}.`);
      throw error;
    }
    this.#chunker = undefined;
    this.#isStopping = false;
    complaints.set("frames", undefined);
    onAction("Recording stopped.");
    onChunks();
  }

  /** Takes frames that are safe, and closes the chunks that are complete with them. */
  async add(frames: readonly SpooledFrame[], chunker: Chunker): Promise<void> {
    const [first] = frames;
    if (first === undefined) return;
    await this.endGap("disk", first.receivedAtMs);
    chunker.add(frames);
    const { settings, onAction } = this.#dependencies;
    onAction(`Received ${frames.length} ${frames.length === 1 ? "frame" : "frames"}.`);
    await this.#closeChunks(() => chunker.closeComplete(chunkLengthMs(settings.record)));
    await this.keepQuota();
  }

  /** Closes what is open; a failure is told and tried again. */
  async closeOpen(): Promise<void> {
    const chunker = this.#chunker;
    if (chunker !== undefined) await this.#closeChunks(() => chunker.closeOpen());
  }

  /** As `closeOpen`, but throws the failure; ends a session that is about to end. */
  async closeForGood(): Promise<void> {
    if (this.#isStopping) await this.end();
    const chunker = this.#chunker;
    if (chunker === undefined) return;
    await this.#dependencies.room.making(() => chunker.closeOpen());
    this.#noteChunks(chunker);
  }

  /** What a kill has left comes before any new session; on a full disk it may take more attempts. */
  async putRight(): Promise<void> {
    if (this.#leftovers === undefined) return;
    const { clock, settings, ledger, complaints, onChunks } = this.#dependencies;
    try {
      const lengthMs = chunkLengthMs(settings.record);
      const gap = await this.#leftovers.putRight(ledger.open, lengthMs, clock.nowMs());
      if (gap !== undefined) this.#tellInterruption(gap);
      if (ledger.open !== undefined) await ledger.end();
    } catch (error) {
      complaints.set("leftovers", `${describeFailure("Frames can't be recovered", error)}.`);
      throw error;
    }
    this.#leftovers = undefined;
    complaints.set("leftovers", undefined);
    onChunks();
  }

  /** The frames that end the gap are safe already; its line is tried again with the next ones. */
  async endGap(area: GapArea, toMs: number): Promise<void> {
    const chunker = this.#chunker;
    if (chunker === undefined || !this.gaps.areas.includes(area)) return;
    await this.#closeChunks(async () => {
      await this.#writeGap(chunker, area, toMs);
      await chunker.closeOpen();
    });
  }

  keepQuota(): Promise<void> {
    return this.#dependencies.room.keepQuota(this.#chunker, () => this.closeOpen());
  }

  #tellInterruption(gap: Gap): void {
    const sentence = `The last recording ended unexpectedly. In the journal: ${gapText(gap)}.`;
    this.#dependencies.complaints.set("interruption", sentence);
    this.#dependencies.onGap(sentence);
  }

  async #writeGap(chunker: Chunker, area: GapArea, toMs: number): Promise<void> {
    const gap = this.gaps.ending(area, toMs);
    if (gap === undefined) return;
    await this.#dependencies.room.making(() => chunker.addGap(gap));
    this.gaps.forget(area);
    this.#dependencies.onGap(`In the journal: ${gapText(gap)}.`);
  }

  /** The frames are safe already, so a failure here is told and tried again, and no more. */
  async #closeChunks(close: () => Promise<void>): Promise<void> {
    const { room, complaints, onChunks } = this.#dependencies;
    try {
      await room.making(close);
      complaints.set("closing", undefined);
    } catch (error) {
      complaints.set("closing", `${describeFailure("A chunk can't be closed", error)}.`);
    }
    if (this.#chunker !== undefined) this.#noteChunks(this.#chunker);
    onChunks();
  }

  #noteChunks(chunker: Chunker): void {
    if (chunker.closedCount === this.#chunkIndex) return;
    this.#chunkIndex = chunker.closedCount;
    this.#lastChunkAt = isoLocalTime(this.#dependencies.clock.nowMs());
  }
}
