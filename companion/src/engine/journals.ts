import { JournalWriter } from "../journal/journalWriter.ts";
import type { JournalSession, KeyedBullet } from "../journal/types.ts";

/** One writer for the directory in use; another directory gets another one. */
export class Journals {
  #directory: string | undefined;
  #writer: JournalWriter | undefined;

  async append(
    directory: string,
    session: JournalSession,
    bullets: readonly KeyedBullet[],
  ): Promise<void> {
    if (this.#writer === undefined || this.#directory !== directory) {
      this.#writer = new JournalWriter({ outputDirectory: directory });
      this.#directory = directory;
    }
    await this.#writer.append(session, bullets);
  }
}
