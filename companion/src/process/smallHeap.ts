import { setFlagsFromString } from "node:v8";

/**
 * Has the collector prefer a small heap to few collections, from now on. Behind a hundred thousand
 * waiting chunks the observer then takes 86 MB instead of 143; the second flag without the first made
 * it 169. The application starts node with the program alone, so it is done from within.
 */
export function keepHeapSmall(): void {
  setFlagsFromString("--optimize-for-size");
  setFlagsFromString("--semi-space-growth-factor=1");
}
