import { ProgramFailed, ProgramMissing, runProgram } from "../../base/runProgram.ts";

/**
 * Makes a smaller clip of the one that comes, into a new file. False where that can't be done here,
 * or not without losing a picture; the file may then be there all the same.
 */
export type VideoEncoder = (
  clip: AsyncIterable<Uint8Array>,
  frameCount: number,
  path: string,
  signal: AbortSignal,
) => Promise<boolean>;

const startMs = 60_000;
const frameMs = 5_000;

/** H.264 by ffmpeg's x264, with every picture at its own time, and the attachment as it is. */
function argumentsFor(path: string): string[] {
  return [
    ...["-hide_banner", "-nostats", "-loglevel", "error", "-progress", "pipe:1", "-y"],
    ...["-protocol_whitelist", "pipe,file", "-f", "matroska", "-i", "pipe:0"],
    ...["-map", "0:v:0", "-map", "0:t", "-map_metadata", "0", "-c:t", "copy"],
    ...["-c:v", "libx264", "-preset", "veryfast", "-crf", "20", "-threads", "1"],
    // A dozen pictures gain nothing from looking far ahead, which takes half of the time.
    ...["-rc-lookahead", "2", "-bf", "0"],
    // x264 halves the resolution of colours, which takes sides of even length.
    ...["-vf", "pad=ceil(iw/2)*2:ceil(ih/2)*2,format=yuv420p"],
    ...["-fps_mode", "passthrough", "-enc_time_base", "1:1000"],
    ...["-f", "matroska", path],
  ];
}

export function ffmpegEncoder(
  ffmpeg: string,
  environment: Readonly<Record<string, string | undefined>>,
): VideoEncoder {
  return async (clip, frameCount, path, signal) => {
    try {
      const progress = await runProgram({
        path: ffmpeg,
        arguments: argumentsFor(path),
        environment: { PATH: environment["PATH"], LC_ALL: "C" },
        timeoutMs: startMs + frameCount * frameMs,
        signal,
        input: clip,
        isNice: true,
      });
      return encodedFrames(progress) === frameCount;
    } catch (error) {
      signal.throwIfAborted();
      if (error instanceof ProgramMissing || error instanceof ProgramFailed) return false;
      throw error;
    }
  };
}

function encodedFrames(progress: string): number {
  return Number([...progress.matchAll(/^frame=\s*([0-9]+)$/gm)].at(-1)?.[1]);
}
