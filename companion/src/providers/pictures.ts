import { join } from "node:path";
import { errorCode } from "../base/failure.ts";
import { type Chunk, pictureName, type SpooledFrame } from "../spool/records.ts";
import { type Blocks, jpegBlocks } from "./jpegBlocks.ts";
import type { Picture } from "./modelRequest.ts";

/** A frame as a model gets to see it. */
export interface ShownFrame {
  readonly frame: SpooledFrame;
  readonly picture: Picture | undefined;
  /** The picture is left out, because the display's one before shows nearly the same. */
  readonly isAsBefore: boolean;
}

/** More than a chunk of the usual length has, and no more than every protocol takes. */
const mostPictures = 20;
/** As base64 it has to stay below the 20 MB that the strictest protocol takes in one request. */
const mostBytes = 12_000_000;
/** The same before those are left out that show nothing new. */
const mostRead = 2 * mostPictures;
const mostBytesRead = 2 * mostBytes;
/** A chunk of the usual length has ten for each display. */
const mostFrames = 100;

/** How many levels of brightness a block may differ by and still be the same. */
const sameLevels = 3;
/** A share of the blocks that a caret, a clock or a word may change. */
const smallShare = 1 / 2000;

/** Whether two pictures of one display differ by no more than a caret, a clock or a word. */
export function areNearlyIdentical(one: Blocks, other: Blocks): boolean {
  if (one.columns !== other.columns || one.rows !== other.rows) return false;
  const mostChanged = Math.floor(one.means.length * smallShare);
  let changed = 0;
  for (let index = 0; index < one.means.length; index += 1) {
    const difference = (one.means[index] ?? 0) - (other.means[index] ?? 0);
    if (difference > sameLevels || difference < -sameLevels) changed += 1;
    if (changed > mostChanged) return false;
  }
  return true;
}

/**
 * The frames of a chunk with the pictures that are worth showing: those that show something new. A
 * chunk may be of an hour, so no more pictures are read than fit into memory.
 */
export async function shownFrames(
  chunk: Chunk,
  folder: string,
  readFile: (path: string) => Promise<Uint8Array>,
): Promise<readonly ShownFrame[]> {
  const frames = fewerFrames(chunk.frames);
  const looked = framesToRead(frames);
  const lastOf = new Map<string, { readonly bytes: Uint8Array; readonly blocks?: Blocks }>();
  const shown: ShownFrame[] = [];
  for (const frame of frames) {
    const bytes = looked.has(frame) ? await pictureBytes(frame, folder, readFile) : undefined;
    if (bytes === undefined) {
      shown.push({ frame, picture: undefined, isAsBefore: false });
      continue;
    }
    const last = lastOf.get(frame.displayId);
    const isEqual = last !== undefined && Buffer.compare(last.bytes, bytes) === 0;
    const blocks = isEqual ? last.blocks : jpegBlocks(bytes);
    const isAsBefore =
      isEqual || (blocks && last?.blocks && areNearlyIdentical(last.blocks, blocks));
    // The next one is compared with one that is shown: many small changes are a large one.
    if (!isAsBefore) lastOf.set(frame.displayId, { bytes, ...(blocks && { blocks }) });
    const picture = isAsBefore ? undefined : shownPicture(frame, bytes);
    shown.push({ frame, picture, isAsBefore: isAsBefore === true });
  }
  return fewerPictures(shown, mostPictures);
}

/** Of a long chunk first those go that say the same as the one before, then all but an even share. */
function fewerFrames(frames: readonly SpooledFrame[]): readonly SpooledFrame[] {
  if (frames.length <= mostFrames) return frames;
  const news = frames.filter((frame, index) => {
    const before = frames[index - 1];
    return frame.pictureBytes > 0 || frame.text !== before?.text;
  });
  return evenShare(news, mostFrames);
}

function framesToRead(frames: readonly SpooledFrame[]): ReadonlySet<SpooledFrame> {
  const withPicture = frames.filter(({ pictureBytes: bytes }) => bytes > 0);
  for (let count = mostRead; ; count = Math.floor(count / 2)) {
    const share = evenShare(withPicture, count);
    const bytes = share.reduce((sum, frame) => sum + frame.pictureBytes, 0);
    if (bytes <= mostBytesRead) return new Set(share);
  }
}

/** So many of the items, the first and the last among them; of a single one the last says the most. */
function evenShare<Item>(items: readonly Item[], count: number): readonly Item[] {
  if (items.length <= count) return items;
  const last = items.length - 1;
  const chosen = new Set(
    Array.from({ length: count }, (_, index) =>
      count === 1 ? last : Math.round((index * last) / (count - 1)),
    ),
  );
  return items.filter((_, index) => chosen.has(index));
}

/** Leaves out pictures evenly, but for the first and last one, until there are so few and they fit. */
export function fewerPictures(
  shown: readonly ShownFrame[],
  greatestCount: number,
): readonly ShownFrame[] {
  let rest = shown;
  for (let count = Math.min(pictureCount(shown), greatestCount); ; count = Math.floor(count / 2)) {
    rest = evenly(rest, count);
    if (pictureBytesOf(rest) <= mostBytes || count === 0) return rest;
  }
}

export function pictureCount(shown: readonly ShownFrame[]): number {
  return shown.filter(({ picture }) => picture !== undefined).length;
}

function pictureBytesOf(shown: readonly ShownFrame[]): number {
  return shown.reduce((sum, { picture }) => sum + (picture?.bytes.length ?? 0), 0);
}

function evenly(shown: readonly ShownFrame[], count: number): readonly ShownFrame[] {
  const withPicture = shown.filter(({ picture }) => picture !== undefined);
  if (withPicture.length <= count) return shown;
  const kept = new Set(evenShare(withPicture, count));
  return shown.map((one) => (kept.has(one) ? one : { ...one, picture: undefined }));
}

/** Undefined when there is none, be it that the quota took it. */
async function pictureBytes(
  frame: SpooledFrame,
  folder: string,
  readFile: (path: string) => Promise<Uint8Array>,
): Promise<Uint8Array | undefined> {
  if (frame.pictureBytes === 0) return undefined;
  try {
    const bytes = await readFile(join(folder, pictureName(frame)));
    return bytes.length === 0 ? undefined : bytes;
  } catch (error) {
    if (errorCode(error) === "ENOENT") return undefined;
    throw error;
  }
}

/** The type is written into the request, and comes from outside. */
function shownPicture(frame: SpooledFrame, bytes: Uint8Array): Picture | undefined {
  const mimeType = frame.videoMimeType.toLowerCase();
  if (!/^image\/(?:jpeg|png|webp)$/.test(mimeType)) return undefined;
  return {
    bytes,
    mimeType,
    name: pictureName(frame),
    width: Number(frame.displayWidth),
    height: Number(frame.displayHeight),
  };
}
