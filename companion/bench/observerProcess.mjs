// The built observer as the benchmarks run it, and what it takes up.
import { spawn } from "node:child_process";
import { once } from "node:events";
import { mkdirSync, readFileSync, writeFileSync } from "node:fs";
import { createServer, request } from "node:http";
import { join } from "node:path";

const token = "bench";
const ticksPerSecond = 100;

export function listening(server) {
  server.listen(0, "127.0.0.1");
  return once(server, "listening").then(() => server.address().port);
}

export async function freePort() {
  const server = createServer();
  const port = await listening(server);
  server.close();
  await once(server, "close");
  return port;
}

export async function call(port, method, path, body) {
  const headers = { "X-Ostrel-Local-Token": token, "Content-Type": "application/json" };
  const asked = request({ host: "127.0.0.1", port, method, path, headers, agent: false });
  asked.end(body);
  const [response] = await once(asked, "response");
  const pieces = [];
  for await (const piece of response) pieces.push(piece);
  const text = Buffer.concat(pieces).toString();
  if (response.statusCode !== 200) throw new Error(`${path}: ${response.statusCode} ${text}`);
  return JSON.parse(text);
}

/** Resolves when it listens. */
export async function startObserver(home, settings) {
  mkdirSync(join(home, ".ostrel"), { recursive: true });
  writeFileSync(join(home, ".ostrel", "settings.json"), JSON.stringify(settings));
  const env = { PATH: process.env.PATH, HOME: home, OSTREL_LOCAL_API_TOKEN: token };
  const stdio = ["pipe", "ignore", "pipe"];
  const child = spawn(process.execPath, ["dist/observer.mjs"], { env, stdio });
  child.stdin.write("{}\n");
  const [log] = await once(child.stderr, "data");
  if (!String(log).includes("listening")) throw new Error(String(log));
  child.stderr.pipe(process.stderr);
  return child;
}

/** Seconds of processor time of all its threads. */
export function cpuSeconds(pid) {
  const stat = readFileSync(`/proc/${pid}/stat`, "latin1");
  const fields = stat.slice(stat.lastIndexOf(")") + 2).split(" ");
  return (Number(fields[11]) + Number(fields[12])) / ticksPerSecond;
}

export function memoryMb(pid) {
  const rollup = readFileSync(`/proc/${pid}/smaps_rollup`, "latin1");
  return Number(/^Pss:\s+([0-9]+)/m.exec(rollup)[1]) / 1000;
}
