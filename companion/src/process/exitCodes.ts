/** Why the observer ended. The application tells them apart by the log only; scripts by these. */
export const exitCodes = {
  orderly: 0,
  unexpected: 1,
  noToken: 64,
  unusablePort: 78,
  stateFolderUnusable: 73,
  stateFolderLocked: 75,
  portTaken: 69,
} as const;
