import assert from "node:assert/strict";
import { execFileSync } from "node:child_process";
import { mkdirSync, readdirSync, readFileSync, statSync, writeFileSync } from "node:fs";
import { join } from "node:path";
import { it, type TestContext } from "node:test";
import { defaultSettings } from "../../src/wire/records.ts";
import { ObserverProcess } from "../support/observerProcess.ts";
import { framePayload } from "../support/payloads.ts";
import { temporaryHome } from "../support/temporaryHome.ts";

const startMs = new Date(2026, 10, 21, 9).getTime();
const range = { fromDate: "2026-11-21", toDate: "2026-11-21" };
const settings = { chunkSizeMs: 10_000 };

async function ask(observer: ObserverProcess, method: string, path: string, body?: unknown) {
  const options = body === undefined ? {} : { body: JSON.stringify(body) };
  const answer = await observer.request(method, `/api/archive/${path}`, options);
  assert.equal(answer.status, 200, `${path}: ${JSON.stringify(answer.body)}`);
  return answer.body;
}

/** Asks every 50 ms, for 20 s at most. */
async function untilClips(observer: ObserverProcess, count: number): Promise<void> {
  for (let turn = 0; turn < 400; turn += 1) {
    const { clips } = await ask(observer, "POST", "export/estimate", range);
    if (clips === count) return;
    await new Promise((resolve) => setTimeout(resolve, 50));
  }
  assert.fail(`there were never ${count} clips`);
}

async function exportTo(observer: ObserverProcess, destinationDirectory: string) {
  await ask(observer, "POST", "export", { destinationDirectory, ...range });
  for (let turn = 0; turn < 400; turn += 1) {
    const status = await ask(observer, "GET", "export/status");
    if (status["state"] !== "running") return status;
    await new Promise((resolve) => setTimeout(resolve, 50));
  }
  return assert.fail("the export never ended");
}

async function record(observer: ObserverProcess, firstSecond: number, picture: Buffer) {
  await observer.startRecording();
  const videoBase64 = picture.toString("base64");
  const frames = [0, 2, 12, 14].map((second) =>
    framePayload(startMs + (firstSecond + second) * 1000, { videoBase64, text: "- App: Secret" }),
  );
  const sent = await observer.request("POST", "/api/frames", { body: JSON.stringify({ frames }) });
  assert.equal(sent.status, 200);
  await observer.request("POST", "/api/stop");
}

function realPicture(): Buffer {
  const folder = temporaryHome();
  const given = ["-v", "error", "-f", "lavfi", "-i", "testsrc2", "-frames:v", "1", "p.jpg"];
  execFileSync("ffmpeg", given, { cwd: folder, timeout: 30_000 });
  return readFileSync(join(folder, "p.jpg"));
}

function filesIn(folder: string): string[] {
  return readdirSync(folder, { withFileTypes: true }).flatMap((entry) => {
    const path = join(folder, entry.name);
    return entry.isDirectory() ? filesIn(path) : [path];
  });
}

async function turnedOn(test: TestContext, home: string) {
  const observer = await ObserverProcess.start(test, { home, settings });
  const nas = join(home, "nas");
  mkdirSync(nas);
  await ask(observer, "PUT", "target", { kind: "folder", path: "~/nas" });
  const { recoveryKey } = await ask(observer, "POST", "prepare");
  await ask(observer, "POST", "enable");
  return { observer, nas, recoveryKey: String(recoveryKey) };
}

it("recording_withTheArchiveOn_isExportedAfterARestart", async (test) => {
  const home = temporaryHome();
  const { observer, nas, recoveryKey } = await turnedOn(test, home);
  await record(observer, 0, realPicture());
  await untilClips(observer, 2);
  assert.equal(await observer.terminate(), 0);

  const second = await ObserverProcess.start(test, { home, settings });
  const put = await second.request("PUT", "/api/settings", {
    body: JSON.stringify({ ...defaultSettings, archiveEnabled: false, archiveVaultId: "mine" }),
  });
  assert.equal(put.body["archiveEnabled"], true);
  assert.match(String(put.body["archiveVaultId"]), /^[0-9a-f]{20}$/);
  const status = await exportTo(second, join(home, "out"));
  assert.deepEqual([status["state"], status["exported"]], ["done", 2]);

  // Without us: the recovery key opens the vault, the vault's key a clip, and ffprobe reads it.
  const at = (name: string) => join(home, name);
  writeFileSync(at("r.txt"), recoveryKey.replace("ostrel-vault_", ""));
  const vaultFile = filesIn(nas).find((path) => path.endsWith("vault.age")) ?? "";
  execFileSync("age", ["-d", "-i", at("r.txt"), "-o", at("v.txt"), vaultFile]);
  const clip = filesIn(nas).find((path) => path.endsWith(".mkv.age")) ?? "";
  execFileSync("age", ["-d", "-i", at("v.txt"), "-o", at("clip.mkv"), clip]);
  const probed = execFileSync("ffprobe", ["-v", "error", "-show_streams", at("clip.mkv")]);
  assert.match(String(probed), /codec_name=h264/);

  // Nobody can read along, and no secret is where it shouldn't be.
  for (const path of [...filesIn(nas), ...filesIn(join(home, ".ostrel", "observer"))]) {
    assert.equal(statSync(path).mode & 0o077, 0, path);
    const text = readFileSync(path);
    assert.ok(!text.includes(recoveryKey.slice(30)), path);
    if (path.startsWith(nas)) assert.ok(!text.includes("Secret"), path);
  }
  assert.doesNotMatch(observer.log + second.log, /AGE-SECRET-KEY/i);
});

it("observer_killedWhileItArchives_archivesEveryChunkAfterItsRestart", async (test) => {
  const home = temporaryHome();
  const { observer, nas } = await turnedOn(test, home);
  const picture = realPicture();
  await observer.kill();
  for (let life = 0; life < 6; life += 1) {
    const next = await ObserverProcess.start(test, { home, settings });
    await record(next, life * 60, picture);
    // Somewhere between the first clip's packing and its way to the target.
    await new Promise((resolve) => setTimeout(resolve, life * 40));
    await next.kill();
  }
  const last = await ObserverProcess.start(test, { home, settings });
  await untilClips(last, 12);
  const status = await exportTo(last, join(home, "out"));
  assert.deepEqual([status["state"], status["exported"], status["skipped"]], ["done", 12, 0]);
  assert.deepEqual(
    filesIn(nas).filter((path) => path.endsWith(".part")),
    [],
  );
});

it("archivesFiles_thatCantBeRead_leaveTheJournalAtWork", async (test) => {
  const home = temporaryHome();
  const folder = join(home, ".ostrel", "observer", "archive");
  mkdirSync(folder, { recursive: true });
  writeFileSync(join(folder, "state.json"), "{");
  const observer = await ObserverProcess.start(test, { home, settings });
  const answer = await observer.request("POST", "/api/archive/prepare");
  assert.equal(answer.status, 409);
  await record(observer, 0, realPicture());
  const { body } = await observer.request("GET", "/api/status");
  assert.equal(body["pendingAnalysisChunks"], 0);
  assert.match(String(body["lastError"]), /archive's own files can't be used/);
  assert.equal(readFileSync(join(folder, "state.json"), "utf8"), "{");
});
