import assert from "node:assert/strict";
import { existsSync, readFileSync, writeFileSync } from "node:fs";
import { join } from "node:path";
import { it } from "node:test";
import { BucketServer } from "../support/bucketServer.ts";
import { completion, ModelServer, type Reply } from "../support/modelServer.ts";
import { ObserverProcess } from "../support/observerProcess.ts";
import { framePayload } from "../support/payloads.ts";
import { temporaryHome } from "../support/temporaryHome.ts";

/** Writes down every connection that the program opens, and every name that it looks up. */
const spySource = (log: string) => `
const { appendFileSync } = require("node:fs");
const net = require("node:net");
const dns = require("node:dns");
const tell = (line) => appendFileSync(${JSON.stringify(log)}, line + "\\n");
const { connect } = net.Socket.prototype;
net.Socket.prototype.connect = function (...args) {
  const [first] = Array.isArray(args[0]) ? args[0] : args;
  tell("connect " + (first.host ?? first.path ?? "?") + ":" + (first.port ?? ""));
  return connect.apply(this, args);
};
const { lookup } = dns;
dns.lookup = function (name, ...rest) {
  // Its own server's address, which is no name at all.
  if (name !== "127.0.0.1") tell("lookup " + name);
  return lookup.call(this, name, ...rest);
};
`;

async function watched(
  test: Parameters<typeof ObserverProcess.start>[0],
  settings: Record<string, unknown>,
  firstLine = "{}\n",
  before: (observer: ObserverProcess) => Promise<void> = async () => undefined,
) {
  const home = temporaryHome();
  const log = join(home, "connections.log");
  const spy = join(home, "spy.cjs");
  writeFileSync(spy, spySource(log));
  const observer = await ObserverProcess.start(test, {
    home,
    settings,
    firstLine,
    nodeArguments: ["--require", spy],
    // A proxy would see what only the provider may.
    environment: { HTTP_PROXY: "http://127.0.0.1:9", http_proxy: "http://127.0.0.1:9" },
  });
  await before(observer);
  await observer.startRecording();
  const frames = [framePayload(Date.now(), { text: "see https://evil.example/?q=1" })];
  await observer.request("POST", "/api/frames", { body: JSON.stringify({ frames }) });
  const { body } = await observer.request("POST", "/api/stop");
  await observer.terminate();
  return { body, connections: existsSync(log) ? readFileSync(log, "utf8").trim().split("\n") : [] };
}

it("sockets_ofTheBuiltInAnalyser_areNone", async (test) => {
  const { body, connections } = await watched(test, {});
  assert.equal(body["pendingAnalysisChunks"], 0);
  assert.deepEqual(connections, []);
});

it("sockets_ofAModel_goToTheChosenHostAlone", async (test) => {
  const elsewhere = await ModelServer.start(test);
  const redirect: Reply = {
    status: 307,
    headers: { Location: `${elsewhere.origin}/v1/chat/completions` },
    body: "",
  };
  for (const reply of [completion("[Editor] See ![x](http://evil.example/)"), redirect]) {
    const server = await ModelServer.start(test, reply);
    const { port } = new URL(server.origin);
    const settings = { analysisServerUrl: server.origin, model: "eyes" };
    const secrets = '{"analysisApiToken":"sesame"}\n';
    const { body, connections } = await watched(test, settings, secrets);
    assert.deepEqual(connections, [`connect 127.0.0.1:${port}`]);
    assert.equal(server.requests[0]?.headers.authorization, "Bearer sesame");
    assert.equal(body["pendingAnalysisChunks"], reply === redirect ? 1 : 0);
    if (reply === redirect) {
      assert.match(String(body["analysisBackfillLastError"]), /leads elsewhere to 127\.0\.0\.1:/);
    }
  }
});

it("sockets_ofAProviderThatIsNotSetUp_areNone", async (test) => {
  for (const settings of [
    { inferenceProvider: "google_vertex_ai" },
    { analysisServerUrl: "http://ai.example.org" },
    { analysisServerUrl: "not a url" },
    { inferenceProvider: "oracle" },
  ]) {
    const { body, connections } = await watched(test, settings);
    assert.deepEqual(connections, []);
    assert.equal(body["analysisBackfillBlocked"], true);
  }
});

it("sockets_ofAnArchive_goToTheChosenBucketAlone", async (test) => {
  const bucket = await BucketServer.start(test);
  const ask = async (observer: ObserverProcess, method: string, path: string, body: unknown) => {
    const options = { body: JSON.stringify(body) };
    const answer = await observer.request(method, `/api/archive/${path}`, options);
    assert.equal(answer.status, 200, `${path}: ${JSON.stringify(answer.body)}`);
  };
  const { connections } = await watched(test, {}, "{}\n", async (observer) => {
    await ask(observer, "PUT", "target", bucket.record);
    await ask(observer, "POST", "prepare", {});
    await ask(observer, "POST", "enable", {});
    const today = { fromDate: "2026-01-01", toDate: "2026-12-31" };
    await ask(observer, "POST", "export/estimate", today);
  });
  assert.ok([...bucket.objects.keys()].some((name) => name.endsWith("/vault.age")));
  assert.deepEqual(
    [...new Set(connections)],
    [`connect localhost:${bucket.port}`, "lookup localhost"],
  );
});
