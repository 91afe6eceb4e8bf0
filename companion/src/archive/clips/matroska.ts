import { date, type Element, encoded, float, head, text, unsigned } from "./ebml.ts";

export interface ClipFrame {
  readonly atMs: number;
  /** Of the picture. */
  readonly bytes: number;
  readonly path: string;
}

/** A clip of one display, of one size. */
export interface Clip {
  readonly title: string;
  readonly width: number;
  readonly height: number;
  /** In order; at least one, and no two at the same time. */
  readonly frames: readonly ClipFrame[];
  /** Attached to it as "frames.json". */
  readonly index: Buffer;
}

/** How long the last picture is shown, since nothing comes after it. */
const lastFrameMs = 1_000;
const track = 1;
const isKeyFrame = 0x80;

/** A block's head: the track, no time beside the cluster's own, and the flags. */
function blockHead(flags: number): Buffer {
  return Buffer.from([0x80 | track, 0, 0, flags]);
}

function fileHead(): Buffer {
  return encoded([
    "1a45dfa3",
    [
      ["4286", unsigned(1)],
      ["42f7", unsigned(1)],
      ["42f2", unsigned(4)],
      ["42f3", unsigned(8)],
      ["4282", text("matroska")],
      ["4287", unsigned(4)],
      ["4285", unsigned(2)],
    ],
  ]);
}

function info(clip: Clip, startMs: number, durationMs: number): Element {
  return [
    "1549a966",
    [
      ["2ad7b1", unsigned(1_000_000)],
      ["4489", float(durationMs)],
      ["4461", date(startMs)],
      ["7ba9", text(clip.title)],
      ["4d80", text("ostrel")],
      ["5741", text("ostrel")],
    ],
  ];
}

function tracks(clip: Clip): Element {
  const size: Element = [
    "e0",
    [
      ["b0", unsigned(clip.width)],
      ["ba", unsigned(clip.height)],
    ],
  ];
  const entry: Element = [
    "ae",
    [
      ["d7", unsigned(track)],
      ["73c5", unsigned(track)],
      ["83", unsigned(1)],
      ["9c", unsigned(0)],
      ["86", text("V_MJPEG")],
      ["536e", text(clip.title)],
      size,
    ],
  ];
  return ["1654ae6b", [entry]];
}

function attachments(clip: Clip): Element {
  const file: Element = [
    "61a7",
    [
      ["466e", text("frames.json")],
      ["4660", text("application/json")],
      ["46ae", unsigned(1)],
      ["465c", clip.index],
    ],
  ];
  return ["1941a469", [file]];
}

/** What stands before the picture of a cluster that holds just this one. */
function clusterHead(frame: ClipFrame, startMs: number, isLast: boolean): Buffer {
  const time = encoded(["e7", unsigned(frame.atMs - startMs)]);
  if (!isLast) {
    const block = Buffer.concat([head("a3", frame.bytes + 4), blockHead(isKeyFrame)]);
    return cluster(time, block, frame.bytes);
  }
  const duration = encoded(["9b", unsigned(lastFrameMs)]);
  const block = Buffer.concat([duration, head("a1", frame.bytes + 4), blockHead(0)]);
  const group = Buffer.concat([head("a0", block.length + frame.bytes), block]);
  return cluster(time, group, frame.bytes);
}

function cluster(time: Buffer, block: Buffer, pictureBytes: number): Buffer {
  const length = time.length + block.length + pictureBytes;
  return Buffer.concat([head("1f43b675", length), time, block]);
}

/**
 * The clip as a Matroska file, its pictures bit for bit as they are; one of them in memory at a
 * time. Written here because it is little, and so needs no other program.
 */
export async function* matroska(
  clip: Clip,
  readPicture: (frame: ClipFrame) => Promise<Uint8Array>,
): AsyncGenerator<Uint8Array> {
  const [first, last] = [clip.frames[0], clip.frames.at(-1)];
  if (first === undefined || last === undefined) throw new Error("a clip has at least one picture");
  const durationMs = last.atMs - first.atMs + lastFrameMs;
  const beginning = Buffer.concat(
    [info(clip, first.atMs, durationMs), tracks(clip), attachments(clip)].map(encoded),
  );
  const heads = clip.frames.map((frame) => clusterHead(frame, first.atMs, frame === last));
  const pictureBytes = clip.frames.reduce((sum, frame) => sum + frame.bytes, 0);
  const headBytes = heads.reduce((sum, bytes) => sum + bytes.length, 0);
  yield Buffer.concat([
    fileHead(),
    head("18538067", beginning.length + headBytes + pictureBytes),
    beginning,
  ]);
  for (const [index, frame] of clip.frames.entries()) {
    const picture = await readPicture(frame);
    if (picture.length !== frame.bytes) throw new Error("a picture has changed");
    yield heads[index] ?? Buffer.alloc(0);
    yield picture;
  }
}
