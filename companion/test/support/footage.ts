import { readdirSync, readFileSync } from "node:fs";
import { join } from "node:path";
import {
  ArchiveHarness,
  type ArchiveHarnessOptions,
  type TestFrame,
  TestKeyring,
} from "./archiveHarness.ts";
import { MemoryTarget } from "./memoryTarget.ts";
import { temporaryHome } from "./temporaryHome.ts";

export const startMs = new Date(2026, 10, 21, 9, 30, 5).getTime();
/** The day of `startMs`. */
export const day = "2026-11-21";
export const anyFolder = { kind: "folder", path: "/archive", lossless: true } as const;

export function picture(number: number): Buffer {
  return Buffer.from(`a picture, number ${number}, `.repeat(50 + number));
}

export function frames(from: number, count: number, displayId = "1"): TestFrame[] {
  return Array.from({ length: count }, (_, index) => ({
    atMs: startMs + (from + index) * 2_000,
    picture: picture(from + index),
    displayId,
    displayLabel: `Display ${displayId}`,
    text: `frame ${from + index}`,
  }));
}

/** Everything below a folder, by its path there. */
export function filesIn(folder: string): Map<string, Buffer> {
  const files = new Map<string, Buffer>();
  for (const entry of readdirSync(folder, { withFileTypes: true })) {
    const path = join(folder, entry.name);
    if (!entry.isDirectory()) files.set(entry.name, readFileSync(path));
    else for (const [name, bytes] of filesIn(path)) files.set(join(entry.name, name), bytes);
  }
  return files;
}

/** What outlives one observer after the other: the disk, the keyring, and the place. */
export function survivors() {
  return { home: temporaryHome(), keyring: new TestKeyring(), target: new MemoryTarget() };
}

/** An archive with a place in memory, and on. */
export async function archiveTurnedOn<Target extends MemoryTarget = MemoryTarget>(
  options: Omit<ArchiveHarnessOptions, "target"> & { readonly target?: Target } = {},
) {
  const target = options.target ?? new MemoryTarget();
  const harness = await ArchiveHarness.open({ ...options, target });
  const recoveryKey = await harness.turnOn(anyFolder);
  return { harness, target: target as Target, recoveryKey };
}

/** Three clips of two chunks, listed. */
export async function archiveWithTwoChunks(place = new MemoryTarget()) {
  const { harness, target, recoveryKey } = await archiveTurnedOn({ target: place });
  await harness.finish(1, [...frames(0, 5), ...frames(0, 5, "2")]);
  await harness.finish(2, frames(5, 5));
  await harness.archive.estimate({ fromDate: day, toDate: day });
  return { harness, target, recoveryKey };
}
