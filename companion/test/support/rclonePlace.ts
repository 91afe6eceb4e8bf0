import assert from "node:assert/strict";
import { mkdirSync, writeFileSync } from "node:fs";
import { join } from "node:path";
import { openTarget } from "../../src/archive/targets/openTarget.ts";
import type { ArchiveTarget } from "../../src/archive/targets/target.ts";
import { systemClock } from "../../src/base/clock.ts";
import { realFileSystem } from "../../src/base/fileSystem.ts";
import { temporaryHome } from "./temporaryHome.ts";
import { vault } from "./uploads.ts";

export interface Place {
  readonly target: ArchiveTarget;
  /** Puts other bytes under the name, as nobody should. */
  exchange(name: string, bytes: Buffer): void;
}

/** A remote of rclone's own kind for a folder, in a configuration of the test's own. */
export function rclonePlace(): Place {
  const home = temporaryHome();
  mkdirSync(join(home, ".config", "rclone"), { recursive: true });
  mkdirSync(join(home, "store"));
  writeFileSync(
    join(home, ".config", "rclone", "rclone.conf"),
    `[nas]\ntype = alias\nremote = ${join(home, "store")}\n`,
  );
  return {
    target: rcloneTarget(home, "nas:my archive"),
    exchange: exchangeIn(join(home, "store", "my archive")),
  };
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
