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
