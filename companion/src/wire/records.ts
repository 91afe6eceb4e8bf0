import * as z from "zod/mini";
import { defaulting, double, int64, optional } from "./schema.ts";

/** The records of the loopback API. Field order is the order of encoding. */

export const ObserverStatus = z.object({
  running: z.boolean(),
  sessionId: optional(z.string()),
  chunkIndex: int64,
  lastAction: optional(z.string()),
  lastError: optional(z.string()),
  lastChunkAt: optional(z.string()),
  pendingAnalysisChunks: optional(int64),
  analysisBackfillActive: optional(z.boolean()),
  analysisBackfillBlocked: optional(z.boolean()),
  analysisBackfillLastError: optional(z.string()),
});
export type ObserverStatus = z.infer<typeof ObserverStatus>;

export const CapturedFramePayload = z.object({
  receivedAtMs: int64,
  frameIndex: int64,
  videoBase64: z.string(),
  videoMimeType: z.string(),
  text: optional(z.string()),
  displayId: z.string(),
  displayLabel: z.string(),
  displayWidth: int64,
  displayHeight: int64,
  activeDisplayId: optional(z.string()),
  activeDisplayLabel: optional(z.string()),
  activeDisplayReason: optional(z.string()),
});
export type CapturedFramePayload = z.infer<typeof CapturedFramePayload>;

export const ArchiveStatus = z.object({
  archiveEnabled: z.boolean(),
  archiveVaultId: z.string(),
  hasRecoveryKey: z.boolean(),
  recoveryKey: optional(z.string()),
});
export type ArchiveStatus = z.infer<typeof ArchiveStatus>;

export const ArchiveExportStatus = z.object({
  state: z.string(),
  exported: int64,
  total: int64,
  skipped: int64,
  currentDay: optional(z.string()),
  error: optional(z.string()),
});
export type ArchiveExportStatus = z.infer<typeof ArchiveExportStatus>;

export const ArchiveExportEstimate = z.object({
  clips: int64,
  bytes: int64,
});
export type ArchiveExportEstimate = z.infer<typeof ArchiveExportEstimate>;

/** There is no managed server yet, and a name that can never resolve says so. */
export const defaultAnalysisServerUrl = "https://analysis.ostrel.invalid";

const defaultInstructions = [
  "You are a private work-memory assistant watching the user's screen.",
  "Output zero or more chronological journal bullets for durable user actions.",
  "Use the format [Workspace] Action: concise literal summary.",
  "Use human-readable, specific workspace labels: [Gmail], [Google Docs], [GitHub], [Cursor], [VS Code], [Terminal], [System Settings], [Slack], [Google Calendar].",
  "Prefer visible artifacts, recipients, subjects, files, commands, URLs, document titles, and settings names.",
  "Ignore partial typing, scrolling, reading, waiting, window switching, and Ostrel/journal activity.",
  "If nothing durable happened, output NOOP.",
].join(" ");

/** No value is range-checked here: that belongs to whoever edits the record. */
export const ObserverSettings = z.object({
  inferenceProvider: defaulting(z.string(), "ostrel"),
  analysisServerUrl: defaulting(z.string(), defaultAnalysisServerUrl),
  analysisApiToken: defaulting(z.string(), ""),
  byokGoogleVertexAuthMode: defaulting(z.string(), "api_key"),
  byokGoogleVertexProjectId: defaulting(z.string(), ""),
  byokGoogleVertexLocation: defaulting(z.string(), "global"),
  byokGoogleVertexApiKey: defaulting(z.string(), ""),
  byokGoogleVertexServiceAccountPath: defaulting(z.string(), ""),
  outputDirectory: defaulting(z.string(), "~/ostrel/journal"),
  rawInputDirectory: defaulting(z.string(), "~/ostrel/model-input"),
  instructions: defaulting(z.string(), defaultInstructions),
  chunkSizeMs: defaulting(int64, 20000),
  chunkOverlapMs: defaulting(int64, 4000),
  frameFps: defaulting(double, 0.5),
  mediaResolution: defaulting(z.string(), "HIGH"),
  model: defaulting(z.string(), "gemini-3.1-flash-lite"),
  thinkingLevel: defaulting(z.string(), "LOW"),
  maxOutputTokens: defaulting(int64, 1024),
  journalTailSize: defaulting(int64, 5),
  saveRawInputs: defaulting(z.boolean(), false),
  archiveEnabled: defaulting(z.boolean(), false),
  archiveVaultId: defaulting(z.string(), ""),
  localPort: defaulting(int64, 8799),
});
export type ObserverSettings = z.infer<typeof ObserverSettings>;

export const defaultSettings: ObserverSettings = ObserverSettings.parse({});

/** The body of "/api/start": frames always come from the application. */
export const StartRequest = z.object({ captureMode: z.literal("external") });

/** The body of "/api/forget": a stretch of time, both ends included, in UTC milliseconds. */
export const ForgetRequest = z
  .object({
    fromMs: z.int().check(z.gte(0), z.lte(8.64e15)),
    toMs: z.int().check(z.gte(0), z.lte(8.64e15)),
  })
  .check(z.refine(({ fromMs, toMs }) => fromMs <= toMs, "Invalid input: it ends before it begins"));
export type ForgetRequest = z.infer<typeof ForgetRequest>;

/** What was removed. */
export const ForgetReport = z.object({
  /** Frames that waited, or were put aside. */
  frames: int64,
  /** Chunks of which a model's inputs were kept. */
  rawInputs: int64,
  /** Such chunks of which nobody knows when they were; they were left. */
  rawInputsUnknown: int64,
  journalLines: int64,
  /** Clips, each of which may begin earlier and end later. */
  archiveClips: int64,
  /** Frames that were not in clips yet. */
  archiveFrames: int64,
  /** Which folders could not be looked into, and what to do about them. */
  notSearched: optional(z.string()),
  /** Why the archive still has some; it is tried again. */
  archiveWaits: optional(z.string()),
});
export type ForgetReport = z.infer<typeof ForgetReport>;

/** A frame of the chunk that is asked about next. */
export interface PreviewFrame {
  readonly atMs: number;
  readonly displayId: string;
  readonly displayLabel: string;
  readonly width: number | bigint;
  readonly height: number | bigint;
  /** Whether the request tells of the frame, with or without its picture. */
  readonly isSent: boolean;
  /** The context text; absent where the frame is left out. */
  readonly text: string | undefined;
  readonly picture: PreviewPicture | undefined;
  /** Why the frame, or its picture, is left out. */
  readonly leftOut: string | undefined;
}

export interface PreviewPicture {
  readonly name: string;
  readonly mimeType: string;
  readonly bytes: number;
  /** Where pictures were asked for. */
  readonly base64: string | undefined;
}

/** What the next request to a model would be; with `request` absent there is none. */
export interface Preview {
  /** Why there is no request, or what it waits for; absent when it is on its way. */
  readonly reason: string | undefined;
  readonly recipient:
    | { readonly url: string; readonly host: string; readonly model: string }
    | undefined;
  readonly instructions: string | undefined;
  /** The texts behind the instructions, in order; a picture stands in its place by name. */
  readonly prompt: readonly string[];
  /** The body but for the pictures. */
  readonly request: string | undefined;
  readonly frames: readonly PreviewFrame[];
}
