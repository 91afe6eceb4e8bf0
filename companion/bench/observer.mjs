// What the observer costs: spooling a batch, the work beside a model, and memory.
//
//     npm run build && node bench/observer.mjs [FOLDER]
//
// Starts the built observer on a folder of its own, below out/ unless told (so that it syncs a real
// disk) with a model that answers at once, sends it 1080p pictures of a changing desktop as the
// application does, ten to a batch, and prints medians. Status 1 when a budget is exceeded. Needs
// ffmpeg for the pictures.
import { execFileSync } from "node:child_process";
import { once } from "node:events";
import { mkdirSync, mkdtempSync, readFileSync, rmSync } from "node:fs";
import { createServer } from "node:http";
import { loadavg } from "node:os";
import { join, resolve } from "node:path";
import {
  call,
  cpuSeconds,
  freePort,
  listening,
  memoryMb,
  startObserver,
} from "./observerProcess.mjs";

const framesPerBatch = 10;
const batches = 31;
const chunkSeconds = 20;
const budgets = { spoolMs: 30, percentOfOneCore: 1, memoryMb: 90 };

/** Pictures that differ enough for every one to be shown to the model. */
function pictures(folder) {
  const source = "testsrc2=size=1920x1080:rate=1";
  const output = join(folder, "%03d.jpg");
  const options = ["-frames:v", String(framesPerBatch), "-q:v", "6", output];
  execFileSync("ffmpeg", ["-v", "error", "-f", "lavfi", "-i", source, ...options]);
  return Array.from({ length: framesPerBatch }, (_, index) =>
    readFileSync(join(folder, `${String(index + 1).padStart(3, "0")}.jpg`)),
  );
}

/** Answers every question with one bullet; counts them. */
async function startModel() {
  const counts = { requests: 0, bytes: 0 };
  const content = "- [Terminal] Ran: the benchmark of the observer";
  const answer = JSON.stringify({ choices: [{ message: { content } }] });
  const server = createServer((question, response) => {
    question.on("data", (piece) => {
      counts.bytes += piece.length;
    });
    question.on("end", () => {
      counts.requests += 1;
      response.writeHead(200, { "Content-Type": "application/json" }).end(answer);
    });
  });
  return { counts, port: await listening(server), close: () => server.close() };
}

function batchBody(jpegs, firstAtMs) {
  const frames = jpegs.map((jpeg, index) => ({
    receivedAtMs: firstAtMs + index * 2_000,
    frameIndex: index,
    videoBase64: jpeg.toString("base64"),
    videoMimeType: "image/jpeg",
    text: "Active context:\n- App: xterm\n- Window: benchmark",
    displayId: "1",
    displayLabel: "Display 1",
    displayWidth: 1920,
    displayHeight: 1080,
  }));
  return JSON.stringify({ frames });
}

function median(values) {
  return [...values].sort((a, b) => a - b)[Math.floor(values.length / 2)];
}

async function settled(port) {
  for (;;) {
    const { pendingAnalysisChunks } = await call(port, "GET", "/api/status");
    if (pendingAnalysisChunks === 0) return;
    await new Promise((resolve) => setTimeout(resolve, 20));
  }
}

async function measure(home) {
  const jpegs = pictures(home);
  const model = await startModel();
  const port = await freePort();
  const analysisServerUrl = `http://127.0.0.1:${model.port}`;
  const observer = await startObserver(home, {
    localPort: port,
    analysisServerUrl,
    model: "bench",
  });
  try {
    await call(port, "POST", "/api/start", '{"captureMode":"external"}');
    const startMs = Date.now() - batches * chunkSeconds * 1_000;
    const spoolMs = [];
    let memory = 0;
    let spoolCpu = 0;
    const cpuBefore = cpuSeconds(observer.pid);
    for (let batch = 0; batch < batches; batch += 1) {
      const body = batchBody(jpegs, startMs + batch * chunkSeconds * 1_000);
      const from = performance.now();
      const cpuFrom = cpuSeconds(observer.pid);
      await call(port, "POST", "/api/frames", body);
      spoolMs.push(performance.now() - from);
      spoolCpu += cpuSeconds(observer.pid) - cpuFrom;
      memory = Math.max(memory, memoryMb(observer.pid));
      // The application leaves twenty seconds between two batches: the model is done by then.
      await settled(port);
      memory = Math.max(memory, memoryMb(observer.pid));
    }
    await call(port, "POST", "/api/stop");
    const cpu = cpuSeconds(observer.pid) - cpuBefore;
    const percent = (cpu / (batches * chunkSeconds)) * 100;
    const pictureKb = jpegs.reduce((sum, jpeg) => sum + jpeg.length, 0) / framesPerBatch / 1000;
    const least = Math.min(...spoolMs);
    const spoolCpuMs = (spoolCpu / batches) * 1_000;
    return {
      pictureKb,
      spoolMs: median(spoolMs),
      least,
      spoolCpuMs,
      percent,
      memory,
      ...model.counts,
    };
  } finally {
    observer.kill("SIGTERM");
    await once(observer, "exit");
    model.close();
  }
}

const folder = resolve(process.argv[2] ?? "out");
mkdirSync(folder, { recursive: true });
const home = mkdtempSync(join(folder, "observer-"));
try {
  const { pictureKb, spoolMs, least, spoolCpuMs, percent, memory, requests, bytes } =
    await measure(home);
  const rows = [
    [`a batch of ten pictures of ${pictureKb.toFixed(0)} kB, ms`, spoolMs, budgets.spoolMs],
    ["spooling and analysis, % of one core", percent, budgets.percentOfOneCore],
    ["greatest proportional set, MB", memory, budgets.memoryMb],
  ];
  for (const [what, value, budget] of rows) {
    process.stdout.write(`${what}: ${value.toFixed(2)} (budget ${budget})\n`);
  }
  process.stdout.write(`the quickest batch: ${least.toFixed(2)} ms; processor time of one: `);
  process.stdout.write(`${spoolCpuMs.toFixed(1)} ms; load average ${loadavg()[0].toFixed(1)}\n`);
  const perRequest = (bytes / requests / 1e6).toFixed(1);
  process.stdout.write(`${requests} requests of ${perRequest} MB on average\n`);
  process.exitCode = rows.some(([, value, budget]) => value > budget) ? 1 : 0;
} finally {
  rmSync(home, { recursive: true, force: true });
}
