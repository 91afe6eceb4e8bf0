import type { Clock } from "../../base/clock.ts";
import type { FileSystem } from "../../base/fileSystem.ts";
import { expandedPath } from "../../settings/expandedPath.ts";
import { FolderTarget } from "./folderTarget.ts";
import { RcloneTarget } from "./rcloneTarget.ts";
import { S3Target } from "./s3Target.ts";
import type { ArchiveTarget } from "./target.ts";
import type { TargetRecord } from "./targetRecord.ts";

export interface TargetDependencies {
  readonly clock: Clock;
  readonly home: string;
  readonly fileSystem: FileSystem;
  readonly environment: Readonly<Record<string, string | undefined>>;
}

const idleMs = 60_000;

/** Undefined where none is chosen. Nothing is looked at before it is used. */
export function openTarget(
  record: TargetRecord,
  { clock, home, fileSystem, environment }: TargetDependencies,
): ArchiveTarget | undefined {
  switch (record.kind) {
    case "none":
      return undefined;
    case "folder":
      return new FolderTarget(fileSystem, expandedPath(record.path, home));
    case "s3":
      return new S3Target(record, { clock, idleMs });
    case "rclone":
      return new RcloneTarget(record.remote, environment);
  }
}
