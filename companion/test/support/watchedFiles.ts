import {
  type JournalFile,
  type JournalFiles,
  realJournalFiles,
} from "../../src/journal/journalFiles.ts";

/** The operations of a journal's files that tests may come before. */
export type JournalStep =
  | "makeFolder"
  | "open"
  | "read"
  | "size"
  | "append"
  | "sync"
  | "syncFolder"
  | "standsAt"
  | "close";

/** The real files, with a hook before each operation, and with an append that a test may replace. */
export class WatchedFiles implements JournalFiles {
  readonly steps: JournalStep[] = [];
  before: (step: JournalStep) => void = () => undefined;
  append: (file: JournalFile, bytes: Buffer) => Promise<number> = (file, bytes) =>
    file.append(bytes);

  async makeFolder(path: string): Promise<void> {
    this.#note("makeFolder");
    await realJournalFiles.makeFolder(path);
  }

  async open(path: string): Promise<JournalFile> {
    this.#note("open");
    const file = await realJournalFiles.open(path);
    return {
      created: file.created,
      read: () => this.#noted("read", () => file.read()),
      append: (bytes) => this.#noted("append", () => this.append(file, bytes)),
      size: () => this.#noted("size", () => file.size()),
      truncate: (size) => file.truncate(size),
      sync: () => this.#noted("sync", () => file.sync()),
      standsAt: (where) => this.#noted("standsAt", () => file.standsAt(where)),
      // Closed in any case: the system does it for a process that dies.
      close: () => file.close().then(() => this.#note("close")),
    };
  }

  remove(path: string): Promise<void> {
    return realJournalFiles.remove(path);
  }

  list(path: string): Promise<string[]> {
    return realJournalFiles.list(path);
  }

  read(path: string): Promise<string | undefined> {
    this.#note("read");
    return realJournalFiles.read(path);
  }

  replace(path: string, text: string): Promise<void> {
    return realJournalFiles.replace(path, text);
  }

  removeWhole(path: string): Promise<void> {
    return realJournalFiles.removeWhole(path);
  }

  async syncFolder(path: string): Promise<void> {
    this.#note("syncFolder");
    await realJournalFiles.syncFolder(path);
  }

  #note(step: JournalStep): void {
    this.steps.push(step);
    this.before(step);
  }

  async #noted<Result>(step: JournalStep, action: () => Promise<Result>): Promise<Result> {
    this.#note(step);
    return action();
  }
}
