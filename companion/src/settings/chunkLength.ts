import { defaultSettings, type ObserverSettings } from "../wire/records.ts";

/** A chunk costs a dozen syncs of the disk, so that one a frame would never let it rest. */
const leastMs = 5_000;
/** A chunk has to fit into memory and into a model's request. */
const greatestMs = 3_600_000;

/** How much time a chunk takes up: what the settings say, within reason; where that is none, the default. */
export function chunkLengthMs({ chunkSizeMs }: Pick<ObserverSettings, "chunkSizeMs">): number {
  const wanted = Number(chunkSizeMs > 0 ? chunkSizeMs : defaultSettings.chunkSizeMs);
  return Math.min(Math.max(wanted, leastMs), greatestMs);
}
