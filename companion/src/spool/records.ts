import * as z from "zod/mini";
import type { ObservedFrame } from "../analysis/types.ts";
import { CapturedFramePayload } from "../wire/records.ts";
import { int64, optional } from "../wire/schema.ts";

/** The records of the spool's files. Each file carries its version, so that a later one can tell. */

const version = z.literal(1);
const count = z.int().check(z.nonnegative());
/** A time that can be written out as a date. */
const wallClockMs = z.int().check(z.gte(0), z.lte(8.64e15));

export const Session = z.object({ id: z.string(), startedAtMs: wallClockMs });
export type Session = z.infer<typeof Session>;

/**
 * A frame on the disk. `batch` and `frame` identify it for good, in order of arrival; `frameIndex`
 * is the recorder's own count, which starts anew after a recovery.
 */
export const SpooledFrame = z.object({
  batch: count,
  frame: count,
  pictureBytes: count,
  receivedAtMs: wallClockMs,
  frameIndex: int64,
  videoMimeType: z.string(),
  text: CapturedFramePayload.shape.text,
  displayId: z.string(),
  displayLabel: z.string(),
  displayWidth: int64,
  displayHeight: int64,
  activeDisplayId: CapturedFramePayload.shape.activeDisplayId,
  activeDisplayLabel: CapturedFramePayload.shape.activeDisplayLabel,
  activeDisplayReason: CapturedFramePayload.shape.activeDisplayReason,
});
export type SpooledFrame = z.infer<typeof SpooledFrame>;

/** The first line of a batch's frame list; each further line is a SpooledFrame. */
export const BatchHeader = z.object({ version, session: Session });

/** The last frame, in order of arrival, that a chunk has taken. */
export const Cursor = z.object({ batch: z.int(), frame: z.int() });
export type Cursor = z.infer<typeof Cursor>;

export const Chunk = z.object({
  version,
  id: count,
  session: Session,
  /** Set on a session's last chunk: when recording stopped. */
  stoppedAtMs: optional(wallClockMs),
  through: Cursor,
  frames: z.array(SpooledFrame),
});
export type Chunk = z.infer<typeof Chunk>;

/** What an analyser made of a chunk, kept because a second answer may differ from the first. */
export const ChunkResult = z.object({
  version,
  state: z.unknown(),
  bullets: z.array(z.object({ key: z.string(), atMs: wallClockMs, text: z.string() })),
});
export type ChunkResult = z.infer<typeof ChunkResult>;

/** How far the queue has come: written after a chunk's lines stand in the journal. */
export const QueueState = z.object({
  version,
  lastChunk: count,
  through: Cursor,
  /** Of the session whose chunk was the last one. */
  sessionId: z.string(),
  sessionEnded: z.boolean(),
  lastFrameAtMs: optional(wallClockMs),
  /** The analyser's own state after that chunk. */
  state: z.unknown(),
});
export type QueueState = z.infer<typeof QueueState>;

export const SessionFile = z.object({
  version,
  /** Counts the sessions, so that no two bear one name. */
  number: count,
  open: optional(Session),
});
export type SessionFile = z.infer<typeof SessionFile>;

/** The name of a frame's picture, the same in every folder that it passes through. */
export function pictureName(frame: SpooledFrame): string {
  const ending = frame.videoMimeType === "image/jpeg" ? "jpg" : "img";
  return `${frame.batch}-${frame.frame}.${ending}`;
}

export function isAfter(frame: SpooledFrame, cursor: Cursor): boolean {
  return frame.batch > cursor.batch || (frame.batch === cursor.batch && frame.frame > cursor.frame);
}

export function cursorOf(frame: SpooledFrame): Cursor {
  return { batch: frame.batch, frame: frame.frame };
}

/** What an analyser gets to see. */
export function observed(frame: SpooledFrame): ObservedFrame {
  const { receivedAtMs, displayId, displayLabel } = frame;
  const { text, activeDisplayId, activeDisplayLabel, activeDisplayReason } = frame;
  return {
    receivedAtMs,
    displayId,
    displayLabel,
    ...(text !== undefined && { text }),
    ...(activeDisplayId !== undefined && { activeDisplayId }),
    ...(activeDisplayLabel !== undefined && { activeDisplayLabel }),
    ...(activeDisplayReason !== undefined && { activeDisplayReason }),
  };
}
