import assert from "node:assert/strict";
import { describe, it } from "node:test";
import {
  analyseChunk,
  finishSession,
  initialState,
  parseState,
} from "../../src/analysis/localAnalyser.ts";
import type { Bullet, ObservedFrame } from "../../src/analysis/types.ts";
import { bulletLine } from "../../src/journal/bulletText.ts";
import { parsedWorkspace, parseEntry } from "../support/journalGrammar.ts";
import { contextText, frameAt, START_MS, windowOf } from "../support/observedFrames.ts";
import { hostileText, Random } from "../support/random.ts";

const contexts: readonly (string | undefined)[] = [
  ...["one", "two", "● three", "three", "⠋ four"].map((title) => windowOf("Alpha", title)),
  windowOf("Mousepad", "*a - Mousepad"),
  windowOf("Tamsk Ostrel", "Journal"),
  "XTerm",
  undefined,
];

/** Frames as a desktop sends them: bursts, pauses, a few windows, one or two displays. */
function recording(random: Random, count: number): ObservedFrame[] {
  const frames: ObservedFrame[] = [];
  let context = random.pick(contexts);
  let seconds = 0;
  for (let index = 0; index < count; index += 1) {
    if (random.next() < 0.15) context = random.pick(contexts);
    seconds += random.pick([0, 0.04, 1, 2, 2, 2, 5, 14, 40, random.next() < 0.05 ? 900 : 2]);
    frames.push(frameAt(seconds, context, random.next() < 0.2 ? "2" : "1"));
  }
  return frames;
}

function stopTime(frames: readonly ObservedFrame[]): number {
  return (frames.at(-1)?.receivedAtMs ?? START_MS) + 3_000;
}

function inOneGo(frames: readonly ObservedFrame[]): Bullet[] {
  const { state, bullets } = analyseChunk(initialState(), frames);
  return [...bullets, ...finishSession(state, stopTime(frames)).bullets];
}

/** In chunks that overlap, some of them handled twice, the state stored and read in between. */
function inChunks(frames: readonly ObservedFrame[], random: Random): Bullet[] {
  const bullets: Bullet[] = [];
  let state = initialState();
  let from = 0;
  while (from < frames.length) {
    const until = from + random.integer(1, 12);
    const chunk = frames.slice(Math.max(0, from - random.integer(0, 6)), until);
    for (let times = random.next() < 0.2 ? 2 : 1; times > 0; times -= 1) {
      const outcome = analyseChunk(parseState(JSON.parse(JSON.stringify(state))), chunk);
      bullets.push(...outcome.bullets);
      state = outcome.state;
    }
    from = until;
  }
  return [...bullets, ...finishSession(state, stopTime(frames)).bullets];
}

describe("any recording", () => {
  it("cutIntoOverlappingAndRepeatedChunks_givesTheSameBullets", () => {
    for (let seed = 0; seed < 300; seed += 1) {
      const random = new Random(seed);
      const frames = recording(random, 150);
      assert.deepEqual(inChunks(frames, random), inOneGo(frames), `seed ${seed}`);
    }
  });

  it("bullets_areInTimeOrder_withinTheRecording_andOfFramesThatWere", () => {
    let count = 0;
    for (let seed = 0; seed < 300; seed += 1) {
      const frames = recording(new Random(seed), 200);
      const times = inOneGo(frames).map((bullet) => bullet.atMs);
      count += times.length;
      assert.deepEqual(
        times,
        [...times].sort((one, other) => one - other),
        `seed ${seed}`,
      );
      const received = new Set(frames.map((frame) => frame.receivedAtMs));
      assert.ok(times.every((time) => received.has(time)));
    }
    assert.ok(count > 1000, "the recordings are long enough to tell something");
  });

  it("sameSegment_isNotToldTwiceWithinTenMinutes", () => {
    for (let seed = 0; seed < 300; seed += 1) {
      const last = new Map<string, number>();
      for (const bullet of inOneGo(recording(new Random(seed), 200))) {
        if (bullet.text.startsWith("[Screen]")) continue;
        const identity = bullet.text.replace("Edited", "Viewed").replace(", unsaved changes", "");
        const before = last.get(identity) ?? Number.NEGATIVE_INFINITY;
        assert.ok(bullet.atMs - before >= 600_000, `seed ${seed}: ${bullet.text}`);
        last.set(identity, bullet.atMs);
      }
    }
  });

  it("noMoreIsToldThanFitsIntoTheTime", () => {
    for (let seed = 0; seed < 300; seed += 1) {
      const frames = recording(new Random(seed), 200);
      const lengthMs = stopTime(frames) - START_MS;
      assert.ok(inOneGo(frames).length * 10_000 <= lengthMs, `seed ${seed}`);
    }
  });
});

describe("any title", () => {
  it("bullet_isOneLineThatTheReaderReadsBack", () => {
    const random = new Random(7);
    let told = 0;
    for (let round = 0; round < 4000; round += 1) {
      const hostile = hostileText(random);
      const context = random.pick([
        hostile,
        contextText({ app: hostile, window: hostileText(random) }),
        contextText({ app: "Google Chrome", website: "github.com", page: hostile }),
        contextText({ app: "Google Chrome", website: hostile, page: hostileText(random) }),
        contextText({ app: "Code", window: `${hostile} - ${hostileText(random)}` }),
        contextText({ app: "XTerm", window: hostile }),
      ]);
      const frames = [frameAt(0, context), frameAt(12, "End")];
      for (const { text } of analyseChunk(initialState(), frames).bullets) {
        told += 1;
        assert.equal(bulletLine(text), text, JSON.stringify(hostile));
        const entry = parseEntry(`- [09:00] ${text} <!-- key:1-2-3 -->`, undefined);
        assert.equal(entry?.text, text, JSON.stringify(hostile));
        assert.match(parsedWorkspace(text)?.action ?? "", /^(Viewed|Edited|Call|Open|Activity): /);
      }
    }
    assert.ok(told > 3000, `${told} told`);
  });

  it("titleOfTenThousandCharacters_isOneShortLine", () => {
    for (const piece of ["x", "😀", "\ud800", "\n", "<!--", "]", "a - ", "\u202e"]) {
      const context = contextText({ app: "Alpha", window: piece.repeat(10_000) });
      const frames = [frameAt(0, context), frameAt(12, "End")];
      const [bullet] = analyseChunk(initialState(), frames).bullets;
      assert.ok(bullet !== undefined && Array.from(bullet.text).length <= 180, piece);
    }
  });
});
