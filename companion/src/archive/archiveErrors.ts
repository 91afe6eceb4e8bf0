/** What was asked for can't be done as things stand; the message tells the user what to do first. */
export class ArchiveNotReady extends Error {
  override readonly name = "ArchiveNotReady";
}

export const noTargetChosen =
  "No place for the archive is chosen yet. Choose one first: a folder, a bucket, or a remote of rclone.";
export const noVault = "There is no archive yet. Turn it on, or use a recovery key.";
