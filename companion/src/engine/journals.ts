import { JournalWriter } from "../journal/journalWriter.ts";
import type { JournalSession, KeyedBullet } from "../journal/types.ts";
import type { TimeRange } from "../spool/records.ts";

/** One writer for the directory in use; another directory gets another one. */
export class Journals {
  #directory: string | undefined;
  #writer: JournalWriter | undefined;

  async append(
    directory: string,
    session: JournalSession,
    bullets: readonly KeyedBullet[],
  ): Promise<void> {
    await this.#writerOf(directory).append(session, bullets);
  }

  /** As `JournalWriter.forget`. */
  forget(directory: string, range: TimeRange): Promise<number> {
    return this.#writerOf(directory).forget(range);
  }

  #writerOf(directory: string): JournalWriter {
    if (this.#writer === undefined || this.#directory !== directory) {
      this.#writer = new JournalWriter({ outputDirectory: directory });
      this.#directory = directory;
    }
    return this.#writer;
  }
}
