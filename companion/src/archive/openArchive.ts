import { randomBytes } from "node:crypto";
import { join } from "node:path";
import { systemClock } from "../base/clock.ts";
import { realFileSystem } from "../base/fileSystem.ts";
import { realDisk } from "../spool/disk.ts";
import { Archive, type ArchiveDependencies } from "./archive.ts";
import { ArchiveLayout } from "./archiveState.ts";
import { ffmpegEncoder } from "./clips/videoEncoder.ts";
import { SecretFileStore } from "./keys/secretFile.ts";
import { FallbackSecretStore } from "./keys/secretStore.ts";
import { SecretToolStore } from "./keys/secretTool.ts";
import { defaultOutboxBytes } from "./room.ts";
import { openTarget } from "./targets/openTarget.ts";

type Environment = Readonly<Record<string, string | undefined>>;

/** The archive of this machine, in the observer's state folder. */
export function openArchive(
  folder: string,
  home: string,
  environment: Environment,
  onComplaint: ArchiveDependencies["onComplaint"],
): Promise<Archive> {
  const layout = new ArchiveLayout(join(folder, "archive"));
  const shared = { clock: systemClock, fileSystem: realFileSystem, home };
  return Archive.open({
    ...shared,
    layout,
    secrets: new FallbackSecretStore(
      new SecretToolStore(environment),
      new SecretFileStore(realDisk, layout.keys),
    ),
    encodeVideo: ffmpegEncoder(environment["FFMPEG_PATH"] || "ffmpeg", environment),
    openTarget: (record) => openTarget(record, { ...shared, environment }),
    randomName: () => randomBytes(8).toString("hex"),
    outboxBytes: defaultOutboxBytes,
    onComplaint,
  });
}
