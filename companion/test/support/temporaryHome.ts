import { existsSync, mkdirSync, mkdtempSync, rmSync, writeFileSync } from "node:fs";
import { tmpdir } from "node:os";
import { join } from "node:path";

const memoryFolder = "/dev/shm";

/** Where the tests' files lie: in memory where possible, because every step here is synced. */
export const temporaryRoot = existsSync(memoryFolder) ? memoryFolder : tmpdir();

const homes: string[] = [];

// Not after each test: the programs of a test are ended after it too, and may still be writing.
process.on("exit", () => {
  for (const home of homes) rmSync(home, { recursive: true, force: true });
});

/** A home folder of the test's own, removed when all tests of the file are done. */
export function temporaryHome(): string {
  const home = mkdtempSync(join(temporaryRoot, "ostrel-observer-"));
  homes.push(home);
  return home;
}

export function writeSettings(home: string, settings: unknown): void {
  mkdirSync(join(home, ".ostrel"), { recursive: true });
  writeFileSync(join(home, ".ostrel", "settings.json"), JSON.stringify(settings));
}
