import { describeFailure, isDiskFull } from "../base/failure.ts";
import type { Chunker } from "../spool/chunker.ts";
import type { PictureStore } from "../spool/pictureStore.ts";
import type { Complaints } from "./complaints.ts";
import { keepQuota, type QuotaDependencies, thinnedSentence } from "./quota.ts";

/** The room on the disk: waiting pictures keep to their quota, and give way where there is none left. */
export class Room {
  readonly #dependencies: QuotaDependencies;
  readonly #pictures: PictureStore;
  readonly #complaints: Complaints;
  readonly #picturesKnown: Promise<void>;

  /** `picturesKnown` resolves when all pictures that wait are known. */
  constructor(
    dependencies: QuotaDependencies,
    pictures: PictureStore,
    complaints: Complaints,
    picturesKnown: Promise<void>,
  ) {
    this.#dependencies = dependencies;
    this.#pictures = pictures;
    this.#complaints = complaints;
    this.#picturesKnown = picturesKnown;
  }

  /** Thins the waiting pictures as far as they have to be; `closeOpen` closes the chunker's chunk. */
  async keepQuota(chunker: Chunker | undefined, closeOpen: () => Promise<void>): Promise<void> {
    try {
      const thinned = await keepQuota(this.#dependencies, this.#pictures, chunker, closeOpen);
      if (thinned > 0) this.#complaints.set("quota", thinnedSentence(thinned));
      else if (this.#pictures.bytes === 0) this.#complaints.set("quota", undefined);
      this.#complaints.set("space", undefined);
    } catch (error) {
      this.#complaints.set("space", `${describeFailure("The free space can't be kept", error)}.`);
    }
  }

  /** On a full disk waiting pictures give way, half of them at a time: texts are worth more. */
  async making<Result>(task: () => Promise<Result>): Promise<Result> {
    for (;;) {
      try {
        return await task();
      } catch (error) {
        if (!isDiskFull(error)) throw error;
        await this.#picturesKnown;
        if (this.#pictures.bytes === 0) throw error;
        const thinned = await this.#pictures.shrinkTo(Math.floor(this.#pictures.bytes / 2));
        if (thinned > 0) this.#complaints.set("quota", thinnedSentence(thinned));
      }
    }
  }
}
