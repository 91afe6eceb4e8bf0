import assert from "node:assert/strict";
import { mkdirSync, writeFileSync } from "node:fs";
import { join } from "node:path";
import { openTarget } from "../../src/archive/targets/openTarget.ts";
import type { ArchiveTarget } from "../../src/archive/targets/target.ts";
import type { S3Record } from "../../src/archive/targets/targetRecord.ts";
import { systemClock } from "../../src/base/clock.ts";
import { realFileSystem } from "../../src/base/fileSystem.ts";
import type { Place } from "./targetSuite.ts";
import { temporaryHome } from "./temporaryHome.ts";
import { vault } from "./uploads.ts";

/** A remote of rclone's own kind for a folder, in a configuration of the test's own. */
export function rclonePlace(): Place {
  const home = temporaryHome();
  mkdirSync(join(home, "store"));
  configure(home, ["[nas]", "type = alias", `remote = ${join(home, "store")}`]);
  return {
    target: rcloneTarget(home, "nas:my archive"),
    exchange: exchangeIn(join(home, "store", "my archive")),
  };
}

/** rclone's own way to the place in the bucket. */
export function rcloneOfBucket(record: S3Record): ArchiveTarget {
  const home = temporaryHome();
  configure(home, [
    "[bucket]",
    "type = s3",
    "provider = Other",
    `access_key_id = ${record.accessKeyId}`,
    `secret_access_key = ${record.secretAccessKey}`,
    `region = ${record.region}`,
    `endpoint = ${record.endpoint}`,
    "force_path_style = true",
    "no_check_bucket = true",
  ]);
  return rcloneTarget(home, `bucket:${record.bucket}/${record.prefix}`);
}

function configure(home: string, lines: readonly string[]): void {
  mkdirSync(join(home, ".config", "rclone"), { recursive: true });
  writeFileSync(join(home, ".config", "rclone", "rclone.conf"), `${lines.join("\n")}\n`);
}

function exchangeIn(root: string) {
  return (name: string, bytes: Buffer) => writeFileSync(join(root, vault, name), bytes);
}

export function rcloneTarget(home: string, remote: string): ArchiveTarget {
  const environment = { PATH: process.env["PATH"], HOME: home, RCLONE_CONFIG: "/nonexistent" };
  const record = { kind: "rclone", remote, lossless: true } as const;
  const target = openTarget(record, {
    clock: systemClock,
    home,
    fileSystem: realFileSystem,
    environment,
  });
  assert.ok(target !== undefined);
  return target;
}
