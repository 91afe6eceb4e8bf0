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

/** A stretch of a recording of which nothing was kept, and why in a few words. */
export const Gap = z.object({ fromMs: wallClockMs, toMs: wallClockMs, cause: z.string() });
export type Gap = z.infer<typeof Gap>;

export const Chunk = z.object({
  version,
  id: count,
  session: Session,
  /** Set on a session's last chunk: when recording stopped. */
  stoppedAtMs: optional(wallClockMs),
  through: Cursor,
  /** Its frames had their turn late, so it says nothing about how far the recording has come. */
  isLate: z.optional(z.literal(true)),
  /** Only a chunk that has nothing else has gaps: they are told whoever analyses the frames. */
  gaps: optional(z.array(Gap)),
  frames: z.array(SpooledFrame),
});
export type Chunk = z.infer<typeof Chunk>;

/** How often an analyser has refused a chunk. */
export const Refusals = z.object({ version, count });

/** What an analyser made of a chunk, kept because a second answer may differ from the first. */
export const ChunkResult = z.object({
  version,
  /** Absent where it stays as it was. */
  state: z.optional(z.unknown()),
  bullets: z.array(z.object({ key: z.string(), atMs: wallClockMs, text: z.string() })),
});
export type ChunkResult = z.infer<typeof ChunkResult>;

/** How far the queue has come: written after a chunk's lines stand in the journal. */
export const QueueState = z.object({
  version,
  /** The newest chunk that is done. */
  lastChunk: count,
  /** Older ones that are not, as ranges of their numbers, both ends included. */
  left: optional(z.array(z.tuple([count, count]))),
  through: Cursor,
  /** Of the session whose chunk that is. */
  sessionId: z.string(),
  sessionEnded: z.boolean(),
  lastFrameAtMs: optional(wallClockMs),
  /** The analysers' own states after the chunk that was done last. */
  state: z.optional(z.unknown()),
});
export type QueueState = z.infer<typeof QueueState>;

export const SessionFile = z.object({
  version,
  /** Counts the sessions, so that no two bear one name. */
  number: count,
  open: optional(Session),
});
export type SessionFile = z.infer<typeof SessionFile>;

/** The time up to which frames and gaps tell what was. */
export function endOf(
  frames: readonly SpooledFrame[],
  gaps: readonly Gap[] | undefined,
): number | undefined {
  return frames.at(-1)?.receivedAtMs ?? gaps?.at(-1)?.toMs;
}

/** A stretch of time, both ends included; UTC milliseconds. */
export const TimeRange = z.object({ fromMs: wallClockMs, toMs: wallClockMs });
export type TimeRange = z.infer<typeof TimeRange>;

/** Undefined where there is no frame. */
export function extentOf(frames: readonly SpooledFrame[]): TimeRange | undefined {
  if (frames.length === 0) return undefined;
  // Not by their order: a clock may have been set back, and a chunk may have very many frames.
  return frames.reduce<TimeRange>(
    ({ fromMs, toMs }, { receivedAtMs: atMs }) => ({
      fromMs: Math.min(fromMs, atMs),
      toMs: Math.max(toMs, atMs),
    }),
    { fromMs: Number.MAX_SAFE_INTEGER, toMs: 0 },
  );
}

export function overlaps(one: TimeRange, other: TimeRange): boolean {
  return one.fromMs <= other.toMs && other.fromMs <= one.toMs;
}

export function isWithin(atMs: number, { fromMs, toMs }: TimeRange): boolean {
  return fromMs <= atMs && atMs <= toMs;
}

/** The time between two, in whatever order they are. */
export function rangeOver(one: number, other: number): TimeRange {
  return { fromMs: Math.min(one, other), toMs: Math.max(one, other) };
}

export function widened({ fromMs, toMs }: TimeRange, byMs: number): TimeRange {
  return { fromMs: fromMs - byMs, toMs: toMs + byMs };
}

/** When frames were private that are no more, because of what others near them are not to show. */
export const MomentsFile = z.object({ version, atMs: z.array(wallClockMs) });

/** Whether the chunk of that number needs no more work. */
export function isDone({ lastChunk, left }: QueueState, id: number): boolean {
  return id <= lastChunk && !left?.some(([from, to]) => from <= id && id <= to);
}

/** Numbers in ascending order as ranges. */
export function rangesOf(ids: readonly number[]): [number, number][] {
  const ranges: [number, number][] = [];
  for (const id of ids) {
    const last = ranges.at(-1);
    if (last !== undefined && last[1] === id - 1) last[1] = id;
    else ranges.push([id, id]);
  }
  return ranges;
}

/** The name of a frame's picture, the same in every folder that it passes through. */
export function pictureName(frame: SpooledFrame): string {
  const ending = frame.videoMimeType === "image/jpeg" ? "jpg" : "img";
  return `${frame.batch}-${frame.frame}.${ending}`;
}

/** Of which frame the file is the picture; undefined for other files. */
export function cursorOfPicture(name: string): Cursor | undefined {
  const [, batch, frame] = /^([0-9]{1,15})-([0-9]{1,15})\.(?:jpg|img)$/.exec(name) ?? [];
  if (batch === undefined || frame === undefined) return undefined;
  return { batch: Number(batch), frame: Number(frame) };
}

/** The later one of two, where there are two. */
export function later(one: Cursor | undefined, other: Cursor | undefined): Cursor | undefined {
  if (one === undefined || other === undefined) return one ?? other;
  const isLater = one.batch > other.batch || (one.batch === other.batch && one.frame > other.frame);
  return isLater ? one : other;
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
