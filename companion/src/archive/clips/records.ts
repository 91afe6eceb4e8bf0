import * as z from "zod/mini";

const count = z.int().check(z.nonnegative());
export const sha256Text = z.string().check(z.regex(/^[0-9a-f]{64}$/));
export const dayText = z.string().check(z.regex(/^[0-9]{4}-[0-9]{2}-[0-9]{2}$/));

/** A clip as the archive's list tells of it. */
export const ClipEntry = z.object({
  /** Of the object, in the folder of the vault. */
  name: z.string().check(z.regex(/^clips\/[0-9-]{10}\/[0-9a-z.-]+\.mkv\.age$/)),
  /** Of the object, encrypted as it is. */
  bytes: count,
  sha256: sha256Text,
  /** Of what is in it. */
  contentBytes: count,
  contentSha256: sha256Text,
  encoding: z.enum(["mjpeg", "h264"]),
  day: dayText,
  startMs: count,
  endMs: count,
  displayId: z.string(),
  displayLabel: z.string(),
  width: count,
  height: count,
  frames: count,
});
export type ClipEntry = z.infer<typeof ClipEntry>;

/** A packed chunk: its clips, each in a file of its number. */
export const PackedChunk = z.object({
  version: z.literal(1),
  vault: z.string(),
  clips: z.array(ClipEntry),
});
export type PackedChunk = z.infer<typeof PackedChunk>;
