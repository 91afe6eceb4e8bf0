// What a start costs behind very many waiting chunks: until it listens, until they are looked through.
//
//     npm run build && node bench/backlog.mjs [CHUNKS] [FOLDER]
//
// Makes as many waiting chunks of ten frames each as told, 100,000 unless told, in a folder of its own
// below out/, and starts the built observer on them. Status 1 when a budget is exceeded.
import { once } from "node:events";
import { mkdirSync, mkdtempSync, rmSync, writeFileSync } from "node:fs";
import { loadavg } from "node:os";
import { join, resolve } from "node:path";
import { call, freePort, memoryMb, startObserver } from "./observerProcess.mjs";

const chunkCount = Number(process.argv[2] ?? 100_000);
const framesPerChunk = 10;
const chunkMs = 20_000;
const budgets = { listensMs: 2_000, memoryMb: 90 };

function frameOf(batch, frame, receivedAtMs) {
  return {
    ...{ batch, frame, receivedAtMs, frameIndex: frame, pictureBytes: 70_000 },
    videoMimeType: "image/jpeg",
    text: `Active context:\n- App: xterm\n- Window: benchmark ${batch}`,
    ...{ displayId: "1", displayLabel: "Display 1", displayWidth: 1920, displayHeight: 1080 },
  };
}

/** Pictures are names alone: nobody opens them. */
function makeChunk(pending, id, startMs) {
  const folder = join(pending, String(id));
  mkdirSync(folder);
  const frames = Array.from({ length: framesPerChunk }, (_, frame) =>
    frameOf(id, frame, startMs + id * chunkMs + frame * 2_000),
  );
  const session = { id: "bench-1", startedAtMs: startMs };
  const through = { batch: id, frame: framesPerChunk - 1 };
  const chunk = { version: 1, id, session, through, frames };
  writeFileSync(join(folder, "chunk.json"), JSON.stringify(chunk));
  writeFileSync(join(folder, `${id}-0.jpg`), "");
}

function makeBacklog(home) {
  const pending = join(home, ".ostrel", "observer", "pending");
  mkdirSync(pending, { recursive: true });
  const startMs = Date.now() - (chunkCount + 2) * chunkMs;
  for (let id = 1; id <= chunkCount; id += 1) makeChunk(pending, id, startMs);
}

async function measure(home) {
  const localPort = await freePort();
  const began = performance.now();
  // Nobody can be asked, so that nothing of what waits is worked off.
  const observer = await startObserver(home, { localPort, inferenceProvider: "google_vertex_ai" });
  try {
    const listensMs = performance.now() - began;
    await call(localPort, "POST", "/api/start", '{"captureMode":"external"}');
    const recordsMs = performance.now() - began;
    let memory = 0;
    for (;;) {
      const { lastAction } = await call(localPort, "GET", "/api/status");
      memory = Math.max(memory, memoryMb(observer.pid));
      if (!lastAction.startsWith("Recovering")) break;
      await new Promise((resolve) => setTimeout(resolve, 100));
    }
    return { listensMs, recordsMs, readMs: performance.now() - began, memory };
  } finally {
    observer.kill("SIGTERM");
    await once(observer, "exit");
  }
}

const folder = resolve(process.argv[3] ?? "out");
mkdirSync(folder, { recursive: true });
const home = mkdtempSync(join(folder, "backlog-"));
try {
  makeBacklog(home);
  const { listensMs, recordsMs, readMs, memory } = await measure(home);
  const seconds = (ms) => (ms / 1_000).toFixed(2);
  process.stdout.write(`${chunkCount} waiting chunks; load average ${loadavg()[0].toFixed(1)}\n`);
  process.stdout.write(`listens after ${seconds(listensMs)} s (budget 2)\n`);
  process.stdout.write(`records after ${seconds(recordsMs)} s, all looked through after `);
  process.stdout.write(`${seconds(readMs)} s\n`);
  process.stdout.write(`greatest proportional set: ${memory.toFixed(1)} MB (budget 90)\n`);
  const isOver = listensMs > budgets.listensMs || memory > budgets.memoryMb;
  process.exitCode = isOver ? 1 : 0;
} finally {
  rmSync(home, { recursive: true, force: true });
}
