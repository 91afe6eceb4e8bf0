import type { Clock } from "../base/clock.ts";
import { describeFailure, isSystemError } from "../base/failure.ts";
import type { BatchWriter } from "../spool/batchWriter.ts";
import type { Chunker } from "../spool/chunker.ts";
import type { SpooledFrame } from "../spool/records.ts";
import type { Spool } from "../spool/spool.ts";
import type { Complaints } from "./complaints.ts";
import { diskCause, type OpenGaps } from "./openGaps.ts";
import { lostPicturesSentence, writeBatch } from "./receiving.ts";
import type { Room } from "./room.ts";

export interface IntakeDependencies {
  readonly clock: Clock;
  readonly spool: Spool;
  readonly room: Room;
  readonly complaints: Complaints;
  readonly gaps: OpenGaps;
  /** A sentence for the log. */
  onGap(sentence: string): void;
}

/** How long the disk may take for a batch before that is said. */
const slowBatchMs = 25_000;

/** Takes batches of frames from the application to the disk. */
export class Intake {
  readonly #dependencies: IntakeDependencies;

  constructor(dependencies: IntakeDependencies) {
    this.#dependencies = dependencies;
  }

  /**
   * Resolves with the frames once they are safe; none where the body had none. Throws JsonError,
   * InvalidRecord, or the error of the disk or the body; nothing of the batch is kept then.
   */
  async receive(
    body: AsyncIterable<Uint8Array>,
    chunker: Chunker,
  ): Promise<readonly SpooledFrame[]> {
    const { spool, room, complaints } = this.#dependencies;
    let batch: BatchWriter | undefined;
    const watch = this.#watchForSlowness();
    try {
      batch = await room.making(() => spool.beginBatch(chunker.session));
      const frames = await writeBatch(body, batch);
      if (frames.length === 0) await spool.abandonBatch(batch);
      else spool.accepted(batch.id, frames.length);
      complaints.set("frames", undefined);
      complaints.set("pictures", lostPicturesSentence(batch.lostPictures));
      return frames;
    } catch (error) {
      if (batch !== undefined) await spool.abandonBatch(batch);
      if (isSystemError(error)) this.#tellRefusal(error, chunker);
      else if (watch.isSlow()) complaints.set("frames", undefined);
      throw error;
    } finally {
      watch.end();
    }
  }

  #watchForSlowness() {
    const { clock, complaints, onGap } = this.#dependencies;
    let isSlow = false;
    const end = clock.after(slowBatchMs, () => {
      const sentence = "The disk has been taking the frames for 25 s, and has not kept them yet.";
      isSlow = true;
      complaints.set("frames", sentence);
      onGap(sentence);
    });
    return { end, isSlow: () => isSlow };
  }

  #tellRefusal(error: unknown, { lastFrameAtMs, session }: Chunker): void {
    const { complaints, gaps, onGap } = this.#dependencies;
    const sentence = `${describeFailure("The frames can't be kept", error)}.`;
    complaints.set("frames", sentence);
    // Of what the lost frames have shown, the last ones that were kept know nothing.
    gaps.begin("disk", lastFrameAtMs ?? session.startedAtMs, diskCause(error));
    onGap(sentence);
  }
}
