import { createHash } from "node:crypto";
import { basename, dirname, join } from "node:path";
import { sortableLocalTime } from "../../base/localTime.ts";
import type { Disk } from "../../spool/disk.ts";
import type { Chunk } from "../../spool/records.ts";
import { encrypt } from "../age/age.ts";
import type { Recipient } from "../age/x25519.ts";
import { type PlannedClip, planClips, readWhole } from "./chunkClips.ts";
import { matroska } from "./matroska.ts";
import type { ClipEntry } from "./records.ts";
import type { VideoEncoder } from "./videoEncoder.ts";

export interface PackerDependencies {
  readonly disk: Disk;
  /** Makes clips smaller; left out, they stay as they are, bit for bit. */
  readonly encodeVideo: VideoEncoder | undefined;
  /** A new part of a name, of hexadecimal digits; the same never comes twice. */
  randomName(): string;
}

/** The encrypted clip with that number, in the folder of its chunk. */
export function clipPath(folder: string, number: number): string {
  return join(folder, `${number}.age`);
}

/** The name of a clip in the archive. */
export function clipName(startMs: number, day: string, random: string): string {
  return `clips/${day}/${sortableLocalTime(startMs).slice(11)}-${random}.mkv.age`;
}

/** The local day of a chunk: that of its first frame, so that one chunk is all in one day. */
export function dayOf(chunk: Chunk): string {
  const [first] = chunk.frames;
  return sortableLocalTime(first?.receivedAtMs ?? chunk.session.startedAtMs).slice(0, 10);
}

/** A digest and a length of what passes. */
class Measure {
  readonly #hash = createHash("sha256");
  bytes = 0;

  async *of(pieces: AsyncIterable<Uint8Array>): AsyncGenerator<Uint8Array> {
    for await (const piece of pieces) {
      this.#hash.update(piece);
      this.bytes += piece.length;
      yield piece;
    }
  }

  sha256(): string {
    return this.#hash.digest("hex");
  }
}

/**
 * Makes encrypted clips of a chunk's pictures, each in a file beside them. The files are durable
 * when this resolves. It may be repeated: what a former attempt has left is overwritten.
 */
export async function packChunk(
  dependencies: PackerDependencies,
  folder: string,
  chunk: Chunk,
  recipient: Recipient,
  signal: AbortSignal,
): Promise<ClipEntry[]> {
  const { disk } = dependencies;
  const entries: ClipEntry[] = [];
  for (const planned of await planClips(disk, folder, chunk)) {
    signal.throwIfAborted();
    const path = clipPath(folder, entries.length);
    const entry = await packClip(dependencies, planned, dayOf(chunk), path, recipient, signal);
    entries.push(entry);
  }
  await disk.syncFolder(folder);
  return entries;
}

async function packClip(
  { disk, encodeVideo, randomName }: PackerDependencies,
  { clip, ...told }: PlannedClip,
  day: string,
  path: string,
  recipient: Recipient,
  signal: AbortSignal,
): Promise<ClipEntry> {
  const lossless = () => matroska(clip, (frame) => readWhole(disk, frame.path));
  const video = join(dirname(path), `${basename(path, ".age")}.mkv`);
  const isVideo = (await encodeVideo?.(lossless(), clip.frames.length, video, signal)) === true;
  const [content, file] = [new Measure(), new Measure()];
  const plain = content.of(isVideo ? disk.read(video) : lossless());
  await writeFile(disk, path, file.of(encrypt(plain, recipient)));
  if (encodeVideo !== undefined) await disk.remove(video);
  return {
    name: clipName(told.startMs, day, randomName()),
    bytes: file.bytes,
    sha256: file.sha256(),
    contentBytes: content.bytes,
    contentSha256: content.sha256(),
    encoding: isVideo ? "h264" : "mjpeg",
    day,
    ...told,
    width: clip.width,
    height: clip.height,
    frames: clip.frames.length,
  };
}

async function writeFile(
  disk: Disk,
  path: string,
  pieces: AsyncIterable<Uint8Array>,
): Promise<void> {
  const file = await disk.createFile(path);
  try {
    for await (const piece of pieces) await file.write(piece);
  } catch (error) {
    await file.abandon();
    // On a full disk half a clip is in the way.
    await disk.remove(path).catch(() => undefined);
    throw error;
  }
  await file.finish();
}
