import { describeFailure, isSystemError } from "../base/failure.ts";
import type { ForgottenFootage } from "../forget/forgetting.ts";
import type { FinishedChunks } from "../spool/moves.ts";
import type { TimeRange } from "../spool/records.ts";
import type { Archive, ArchiveDependencies } from "./archive.ts";
import { ArchiveNotReady } from "./archiveErrors.ts";
import type { ArchiveApi } from "./archiveRoutes.ts";

type OnComplaint = ArchiveDependencies["onComplaint"];

/**
 * The archive's place in the observer, which works on without it: where its files can't be read
 * nothing is archived, nothing of them is touched, and the status says so.
 */
export class ArchiveSlot implements FinishedChunks {
  #archive: Archive | undefined;
  #reason = "";
  /** What is said before there is anybody to hear it. */
  readonly #unheard = new Map<string, string | undefined>();
  #onComplaint: OnComplaint = (area, sentence) => this.#unheard.set(area, sentence);

  static async open(openArchive: (onComplaint: OnComplaint) => Promise<Archive>) {
    const slot = new ArchiveSlot();
    const onComplaint: OnComplaint = (...complaint) => slot.#onComplaint(...complaint);
    try {
      slot.#archive = await openArchive(onComplaint);
    } catch (error) {
      slot.#reason = `${describeFailure("The archive's own files can't be used", error)}.`;
      onComplaint("archive", slot.#reason);
    }
    return slot;
  }

  /** Throws ArchiveNotReady. */
  get api(): ArchiveApi {
    if (this.#archive === undefined) throw new ArchiveNotReady(this.#reason);
    return this.#archive;
  }

  get settings() {
    return this.#archive?.settings ?? { archiveEnabled: false, archiveVaultId: "" };
  }

  /** Tells what was said so far, and from now on everything. */
  tellTo(onComplaint: OnComplaint): void {
    this.#onComplaint = onComplaint;
    for (const complaint of this.#unheard) onComplaint(...complaint);
    this.#unheard.clear();
  }

  /** Only the disk's own refusals pass through: the journal doesn't wait for the archive. */
  async take(folder: string): Promise<boolean> {
    try {
      return (await this.#archive?.take(folder)) ?? false;
    } catch (error) {
      if (isSystemError(error)) throw error;
      this.#onComplaint("archive", `${describeFailure("A chunk can't be archived", error)}.`);
      return false;
    }
  }

  /** Throws ArchiveNotReady, or what the archive throws. */
  async forget(range: TimeRange): Promise<ForgottenFootage> {
    if (this.#archive === undefined) throw new ArchiveNotReady(this.#reason);
    return this.#archive.forget(range);
  }

  async close(): Promise<void> {
    await this.#archive?.close();
  }
}
