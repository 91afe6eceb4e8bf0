const greatestBytes = 4_000_000_000;
const shareOfFreeDisk = 0.1;

/** How much may wait for the archive: 4 GB, or 10 % of the free disk where that is less. */
export function defaultOutboxBytes(freeBytes: number): number {
  return Math.min(greatestBytes, Math.floor(freeBytes * shareOfFreeDisk));
}

export function fullSentence(bytes: number): string {
  const megabytes = Math.round(bytes / 1e6);
  return `The space for footage that waits for its archive is used up (${megabytes} MB): new footage is not archived until the place of the archive takes some, or there is more room on the disk.`;
}
