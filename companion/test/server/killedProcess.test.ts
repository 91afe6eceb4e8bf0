import assert from "node:assert/strict";
import { existsSync, readdirSync, readFileSync } from "node:fs";
import { join } from "node:path";
import { it, type TestContext } from "node:test";
import { readDay } from "../support/journalGrammar.ts";
import { windowOf } from "../support/observedFrames.ts";
import { freePort, ObserverProcess } from "../support/observerProcess.ts";
import { framePayload } from "../support/payloads.ts";
import type { Random } from "../support/random.ts";
import { rounds, seeds, withSeed } from "../support/rounds.ts";
import { temporaryHome } from "../support/temporaryHome.ts";

const startMs = 1_795_250_000_000;
/** A stay that is worth a line, and less than a gap that counts in part only. */
const stayMs = 12_000;
const longestLifeMs = 120;
const settings = { chunkSizeMs: 40_000, saveRawInputs: true };

/** What the client knows of the frames, each of which shows a window of its own. */
interface Sent {
  count: number;
  readonly acknowledged: string[];
  /** Acknowledged frames whose stay the observer could see the end of. */
  readonly worthALine: string[];
}

function nextFrames(sent: Sent, count: number) {
  return Array.from({ length: count }, () => {
    sent.count += 1;
    const text = windowOf("Konsole", `task ${sent.count}`);
    return framePayload(startMs + sent.count * stayMs, { frameIndex: sent.count, text });
  });
}

/** Records without a pause until the observer is gone. */
async function recordUntilDeath(observer: ObserverProcess, random: Random, sent: Sent) {
  let last: string | undefined;
  try {
    for (;;) {
      await observer.startRecording();
      for (let batch = random.integer(1, 6); batch > 0; batch -= 1) {
        const frames = nextFrames(sent, random.integer(1, 5));
        const body = JSON.stringify({ frames });
        const { status } = await observer.request("POST", "/api/frames", { body });
        assert.equal(status, 200);
        const texts = frames.map((frame) => frame.text ?? "");
        sent.acknowledged.push(...texts);
        if (last !== undefined) sent.worthALine.push(last);
        sent.worthALine.push(...texts.slice(0, -1));
        last = texts.at(-1);
      }
      await observer.request("POST", "/api/stop");
      last = undefined;
    }
  } catch (error) {
    if (!observer.child.killed) throw error;
  }
}

/** One life, which ends somewhere between its first step and the middle of its work. */
async function liveAndDie(
  test: TestContext,
  home: string,
  port: number,
  random: Random,
  sent: Sent,
) {
  const observer = await ObserverProcess.launch(test, { home, port, settings });
  const isServing = observer.says("listening on").then(
    () => true,
    () => false,
  );
  const dieAfterMs = random.integer(0, longestLifeMs);
  if (random.next() < 0.9) assert.ok(await isServing, observer.log);
  const timer = setTimeout(() => observer.child.kill("SIGKILL"), dieAfterMs);
  if (await isServing) await recordUntilDeath(observer, random, sent);
  await observer.exited;
  clearTimeout(timer);
}

/** How often each frame's text was given to the analyser, by the kept model inputs of the chunks. */
function chunksOfTexts(home: string): Map<string, number> {
  const counts = new Map<string, number>();
  const folder = join(home, "ostrel", "model-input");
  for (const chunk of existsSync(folder) ? readdirSync(folder) : []) {
    for (const name of readdirSync(join(folder, chunk)).filter((name) => name.endsWith(".txt"))) {
      const text = readFileSync(join(folder, chunk, name), "utf8");
      counts.set(text, (counts.get(text) ?? 0) + 1);
    }
  }
  return counts;
}

function journalTitles(home: string): string[] {
  const folder = join(home, "ostrel", "journal");
  return (
    readdirSync(folder)
      .flatMap((name) => readDay(readFileSync(join(folder, name))))
      .flatMap((session) => session.entries)
      // Two short lives may end in the same second.
      .filter((entry) => !entry.text.startsWith("[Ostrel] Gap: "))
      .map((entry) => /task [0-9]+/.exec(entry.text)?.[0] ?? entry.text)
  );
}

async function finish(test: TestContext, home: string, port: number): Promise<void> {
  const observer = await ObserverProcess.start(test, { home, port, settings });
  const { body } = await observer.request("POST", "/api/stop");
  assert.equal(body["pendingAnalysisChunks"], 0);
  assert.match(String(body["lastError"]), /^undefined$|^The last recording ended unexpectedly\./);
  assert.equal(await observer.terminate(), 0);
  const state = join(home, ".ostrel", "observer");
  for (const name of ["incoming", "pending", "trash", "lock"]) {
    assert.deepEqual(readdirSync(join(state, name)), [], name);
  }
  assert.equal(existsSync(join(state, "quarantine")), false);
}

it("program_killedAtRandomMomentsUnderLoad_losesNothingAndWritesNothingTwice", async (test) => {
  const [seed = 1] = seeds(1);
  await withSeed(seed, async (random) => {
    const home = temporaryHome();
    const port = await freePort();
    const sent: Sent = { count: 0, acknowledged: [], worthALine: [] };
    for (let life = rounds(100); life > 0; life -= 1) {
      await liveAndDie(test, home, port, random, sent);
    }
    await finish(test, home, port);
    test.diagnostic(`${sent.acknowledged.length} of ${sent.count} frames were acknowledged`);
    assert.ok(sent.acknowledged.length >= rounds(100));
    const chunks = chunksOfTexts(home);
    for (const text of sent.acknowledged) assert.equal(chunks.get(text), 1, text);
    for (const [text, count] of chunks) assert.equal(count, 1, text);
    const titles = journalTitles(home);
    assert.equal(new Set(titles).size, titles.length, "a line stands twice");
    for (const text of sent.worthALine) {
      const title = /task [0-9]+/.exec(text)?.[0] ?? "";
      assert.ok(titles.includes(title), `${title} is lost`);
    }
  });
});
