import { RequestError } from "../http/errors.ts";
import type { JsonValue } from "../json/value.ts";
import { parseRecord } from "../wire/schema.ts";
import type { Archive } from "./archive.ts";
import { ArchiveNotReady } from "./archiveErrors.ts";
import { EstimateRequest, ExportRequest, RecoverRequest } from "./archiveRequests.ts";
import { RecoveryKeyError } from "./keys/recoveryKey.ts";
import { SecretStoreFailure } from "./keys/secretStore.ts";
import { TargetFailure } from "./targets/target.ts";
import { TargetRecord } from "./targets/targetRecord.ts";

/** What the application may ask of the archive. */
export type ArchiveApi = Pick<
  Archive,
  | "status"
  | "prepare"
  | "enable"
  | "disable"
  | "recover"
  | "target"
  | "setTarget"
  | "estimate"
  | "startExport"
  | "exportStatus"
  | "cancelExport"
>;

export interface ArchiveRoute {
  readonly method: "GET" | "POST" | "PUT";
  readonly path: string;
  /** `body` reads what was sent. */
  answer(archive: ArchiveApi, body: () => Promise<JsonValue>): Promise<unknown> | unknown;
}

export const archiveRoutes: readonly ArchiveRoute[] = [
  { method: "GET", path: "/api/archive/status", answer: (archive) => archive.status() },
  { method: "POST", path: "/api/archive/prepare", answer: (archive) => archive.prepare() },
  { method: "POST", path: "/api/archive/enable", answer: (archive) => archive.enable() },
  { method: "POST", path: "/api/archive/disable", answer: (archive) => archive.disable() },
  {
    method: "POST",
    path: "/api/archive/recover",
    answer: async (archive, body) =>
      archive.recover(parseRecord(RecoverRequest, await body()).recoveryKey),
  },
  { method: "GET", path: "/api/archive/target", answer: (archive) => archive.target() },
  {
    method: "PUT",
    path: "/api/archive/target",
    answer: async (archive, body) => archive.setTarget(parseRecord(TargetRecord, await body())),
  },
  {
    method: "POST",
    path: "/api/archive/export/estimate",
    answer: async (archive, body) => archive.estimate(parseRecord(EstimateRequest, await body())),
  },
  {
    method: "POST",
    path: "/api/archive/export",
    answer: async (archive, body) => {
      const { destinationDirectory, ...range } = parseRecord(ExportRequest, await body());
      return archive.startExport(destinationDirectory, range);
    },
  },
  {
    method: "GET",
    path: "/api/archive/export/status",
    answer: (archive) => archive.exportStatus(),
  },
  {
    method: "POST",
    path: "/api/archive/export/cancel",
    answer: (archive) => archive.cancelExport(),
  },
];

/** The answer to what the archive has refused; undefined for errors of others. */
export function archiveRefusal(error: unknown): RequestError | undefined {
  if (error instanceof ArchiveNotReady) return new RequestError("archiveNotReady", error.message);
  if (error instanceof RecoveryKeyError) {
    return new RequestError("recoveryKeyWrong", error.message, "recoveryKey");
  }
  if (error instanceof TargetFailure) return new RequestError("archiveUnreachable", error.message);
  if (error instanceof SecretStoreFailure) return new RequestError("keyringRefused", error.message);
  return undefined;
}
