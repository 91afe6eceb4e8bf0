import * as z from "zod/mini";
import { parseRecord } from "../wire/schema.ts";

const milliseconds = z.number().check(z.int());
const amount = milliseconds.check(z.nonnegative());

/** A stay in one segment without interruption, on the analyser's clock. */
const visitSchema = z.strictObject({ untilMs: amount, creditMs: amount });

/** A segment that has not been noted yet. */
const segmentSchema = z.strictObject({
  key: z.string(),
  /** The bullet as it would read now. */
  text: z.string(),
  /** Whether the unsaved mark was seen in any of the visits. */
  unsaved: z.boolean(),
  visits: z.array(visitSchema),
});

/** Pictures that came without any context text, one after the other. */
const activitySchema = z.strictObject({
  startedAtMs: milliseconds,
  spanMs: amount,
  creditMs: amount,
  displays: z.array(z.string()),
});

const localStateSchema = z.strictObject({
  version: z.literal(1),
  /** The time of the newest frame; null before the first. */
  lastFrameMs: z.nullable(milliseconds),
  /** The analyser's own clock: only ever advances, whatever the wall clock does. */
  clockMs: amount,
  /** Times of the newest frames, oldest first: a frame that comes again is known by its time. */
  recentFrameMs: z.array(milliseconds),
  /** The segment in front, and the wall time at which this visit to it began. */
  open: z.nullable(z.strictObject({ key: z.string(), startedAtMs: milliseconds })),
  segments: z.array(segmentSchema),
  /** Segments that have their bullet, and when each was last seen on the analyser's clock. */
  noted: z.array(z.strictObject({ key: z.string(), seenMs: amount })),
  activity: z.nullable(activitySchema),
});

/** Everything the built-in analyser keeps between chunks. Plain JSON; treat it as immutable. */
export type LocalState = z.infer<typeof localStateSchema>;
export type Segment = LocalState["segments"][number];
export type Activity = NonNullable<LocalState["activity"]>;

/** The state before the first frame. */
export function initialState(): LocalState {
  return {
    version: 1,
    lastFrameMs: null,
    clockMs: 0,
    recentFrameMs: [],
    open: null,
    segments: [],
    noted: [],
    activity: null,
  };
}

/**
 * Reads a stored state. Throws InvalidRecord with the path of the first wrong field on any other
 * shape, another version included; the caller then starts from `initialState`, which at worst notes
 * something again.
 */
export function parseState(json: unknown): LocalState {
  return parseRecord(localStateSchema, json, ["analyserState"]);
}
