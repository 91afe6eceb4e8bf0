import { createHash } from "node:crypto";
import { join } from "node:path";
import { errorCode } from "../../base/failure.ts";
import { writeJson } from "../../json/writer.ts";
import type { Disk } from "../../spool/disk.ts";
import { type Chunk, pictureName, type SpooledFrame } from "../../spool/records.ts";
import { jpegSize, type PictureSize } from "./jpegSize.ts";
import type { Clip, ClipFrame } from "./matroska.ts";

/** A clip, and what the archive's list says of it. */
export interface PlannedClip {
  readonly clip: Clip;
  readonly displayId: string;
  readonly displayLabel: string;
  readonly startMs: number;
  readonly endMs: number;
}

interface Picture {
  readonly frame: SpooledFrame;
  readonly file: ClipFrame;
  readonly size: PictureSize;
  readonly sha256: string;
}

/** A file that fits into memory. */
export async function readWhole(disk: Disk, path: string): Promise<Buffer> {
  const pieces: Uint8Array[] = [];
  for await (const piece of disk.read(path)) pieces.push(piece);
  return Buffer.concat(pieces);
}

/** One clip for each display and size of pictures; none where no picture is left. */
export async function planClips(disk: Disk, folder: string, chunk: Chunk): Promise<PlannedClip[]> {
  const clips: PlannedClip[] = [];
  for (const frames of grouped(chunk.frames, (frame) => frame.displayId)) {
    const pictures = await readPictures(disk, folder, frames);
    const withPicture = new Set(pictures.map((picture) => picture.frame));
    const without = frames.filter((frame) => !withPicture.has(frame));
    const sizes = grouped(pictures, ({ size }) => `${size.width} ${size.height}`);
    for (const [number, ofOneSize] of sizes.entries()) {
      // What is known of frames without a picture goes with the first clip.
      clips.push(planClip(chunk, ofOneSize, number === 0 ? without : []));
    }
  }
  return clips;
}

function grouped<Item>(items: readonly Item[], keyOf: (item: Item) => string): Item[][] {
  const groups = new Map<string, Item[]>();
  for (const item of items) {
    const group = groups.get(keyOf(item));
    if (group === undefined) groups.set(keyOf(item), [item]);
    else group.push(item);
  }
  return [...groups.values()];
}

function planClip(
  chunk: Chunk,
  pictures: readonly Picture[],
  without: readonly SpooledFrame[],
): PlannedClip {
  const [first, last] = [pictures[0], pictures.at(-1)];
  if (first === undefined || last === undefined) throw new Error("a clip has at least one picture");
  const { displayId, displayLabel } = first.frame;
  // What is known of frames without a picture is in the clip, so it begins and ends with them, too.
  const times = without.map((frame) => frame.receivedAtMs);
  return {
    displayId,
    displayLabel,
    startMs: Math.min(first.file.atMs, ...times),
    endMs: Math.max(last.file.atMs, ...times),
    clip: {
      title: displayLabel,
      ...first.size,
      frames: pictures.map((picture) => picture.file),
      index: indexOf(chunk, without, pictures),
    },
  };
}

/** What is still there of the pictures: the quota may have taken some while the chunk waited. */
async function readPictures(
  disk: Disk,
  folder: string,
  frames: readonly SpooledFrame[],
): Promise<Picture[]> {
  const pictures: Picture[] = [];
  let atMs = -1;
  for (const frame of frames) {
    if (frame.pictureBytes === 0 || frame.videoMimeType !== "image/jpeg") continue;
    const path = join(folder, pictureName(frame));
    const picture = await readWhole(disk, path).catch((error: unknown) => {
      if (errorCode(error) !== "ENOENT") throw error;
    });
    if (picture === undefined || picture.length === 0) continue;
    // A player shows only one picture at a time.
    atMs = Math.max(frame.receivedAtMs, atMs + 1);
    pictures.push({
      frame,
      file: { path, atMs, bytes: picture.length },
      size: sizeOf(picture, frame),
      sha256: createHash("sha256").update(picture).digest("hex"),
    });
  }
  return pictures;
}

/** The picture's own word; decoders take another size for a sign of interlacing. */
function sizeOf(picture: Buffer, frame: SpooledFrame): PictureSize {
  const told = { width: Number(frame.displayWidth), height: Number(frame.displayHeight) };
  return jpegSize(picture) ?? told;
}

/** Everything about the frames but the pictures; those without one keep their text. */
function indexOf(
  chunk: Chunk,
  without: readonly SpooledFrame[],
  pictures: readonly Picture[],
): Buffer {
  const frames = [...pictures.map((picture) => picture.frame), ...without].sort(
    (a, b) => a.batch - b.batch || a.frame - b.frame,
  );
  const pictureOf = new Map(
    pictures.map((picture, number) => [
      picture.frame,
      { number: number + 1, bytes: picture.file.bytes, sha256: picture.sha256 },
    ]),
  );
  const index = {
    format: "ostrel-frames",
    version: 1,
    session: chunk.session,
    chunk: chunk.id,
    frames: frames.map((frame) => {
      const { batch: _batch, frame: _frame, pictureBytes: _bytes, ...told } = frame;
      return { ...told, picture: pictureOf.get(frame) };
    }),
  };
  return Buffer.from(`${writeJson(index)}\n`);
}
