import { mkdtempSync, readFileSync, rmSync, writeFileSync } from "node:fs";
import { tmpdir } from "node:os";
import { join } from "node:path";
import type { TestContext } from "node:test";
import { type ReadEntry, type ReadSession, readDay } from "./journalGrammar.ts";

/** A private output directory that goes with its test. The folder itself does not exist yet. */
export class JournalFolder {
  readonly path: string;

  constructor(test: TestContext) {
    const root = mkdtempSync(join(tmpdir(), "journal-"));
    test.after(() => rmSync(root, { recursive: true, force: true }));
    this.path = join(root, "a", "journal");
  }

  pathOf(day: string): string {
    return join(this.path, `${day}.md`);
  }

  text(day: string): string {
    return readFileSync(this.pathOf(day), "utf8");
  }

  /** What the user's editor does when it saves in place. */
  save(day: string, text: string): void {
    writeFileSync(this.pathOf(day), text);
  }

  sessions(day: string): ReadSession[] {
    return readDay(readFileSync(this.pathOf(day)));
  }

  entries(day: string): ReadEntry[] {
    return this.sessions(day).flatMap((session) => session.entries);
  }
}
