import { analyseChunk, finishSession, initialState } from "../../src/analysis/localAnalyser.ts";
import type { Bullet, ObservedFrame } from "../../src/analysis/types.ts";
import { START_MS } from "./observedFrames.ts";

/** Seconds after the start, and the text, of each bullet. */
export function told(bullets: readonly Bullet[]): (readonly [number, string])[] {
  return bullets.map((bullet) => [(bullet.atMs - START_MS) / 1000, bullet.text]);
}

export function analyse(frames: readonly ObservedFrame[]): (readonly [number, string])[] {
  return told(analyseChunk(initialState(), frames).bullets);
}

export function analyseToStop(
  frames: readonly ObservedFrame[],
  stop: number,
): (readonly [number, string])[] {
  const { state, bullets } = analyseChunk(initialState(), frames);
  return told([...bullets, ...finishSession(state, START_MS + stop * 1000).bullets]);
}
