/** Frames were sent while no session runs. */
export class NotRecording extends Error {
  override readonly name = "NotRecording";
}

/** The observer is on its way out and begins nothing new. */
export class ShuttingDown extends Error {
  override readonly name = "ShuttingDown";
}
