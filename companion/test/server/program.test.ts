import assert from "node:assert/strict";
import { spawn } from "node:child_process";
import { once } from "node:events";
import {
  closeSync,
  existsSync,
  mkdirSync,
  openSync,
  readdirSync,
  readFileSync,
  statSync,
  writeFileSync,
} from "node:fs";
import { Agent, type IncomingMessage, request } from "node:http";
import { createServer, type Socket } from "node:net";
import { join } from "node:path";
import { describe, it } from "node:test";
import { setImmediate } from "node:timers/promises";
import type { CapturedFramePayload } from "../../src/wire/records.ts";
import { parsedWorkspace, readDay } from "../support/journalGrammar.ts";
import { contextText } from "../support/observedFrames.ts";
import { freePort, ObserverProcess, testToken } from "../support/observerProcess.ts";
import { framePayload } from "../support/payloads.ts";
import { temporaryHome } from "../support/temporaryHome.ts";

/** In every zone of the earth: 30 s before midnight, local time, of a day not long ago. */
function beforeMidnightMs(): number {
  return new Date(2026, 10, 21, 23, 59, 30).getTime();
}

function frames(firstAtMs: number, count: number, text: string): CapturedFramePayload[] {
  return Array.from({ length: count }, (_, index) =>
    framePayload(firstAtMs + index * 2000, { frameIndex: index, text }),
  );
}

function batch(list: readonly CapturedFramePayload[]) {
  return { body: JSON.stringify({ frames: list }) };
}

/** Each day's sessions as the application reads them. */
function journal(home: string) {
  const folder = join(home, "ostrel", "journal");
  if (!existsSync(folder)) return [];
  return readdirSync(folder)
    .sort()
    .map((name) => ({ name, sessions: readDay(readFileSync(join(folder, name))) }));
}

function entryTexts(home: string): string[] {
  return journal(home).flatMap((day) =>
    day.sessions.flatMap((session) => session.entries.map((entry) => entry.text)),
  );
}

function writeRules(home: string, text: string): void {
  const folder = join(home, ".ostrel", "observer");
  mkdirSync(folder, { recursive: true });
  writeFileSync(join(folder, "rules.json"), text);
}

const codeContext = contextText({
  app: "Code",
  window: "queue.ts - observer - Visual Studio Code",
});

describe("recording", () => {
  it("recording_startFramesStop_isInTheJournalWhenStopAnswers", async (test) => {
    const home = temporaryHome();
    const observer = await ObserverProcess.start(test, { home });
    const { body } = await observer.startRecording();
    const firstAtMs = beforeMidnightMs() - 3_600_000;
    const sent = await observer.request(
      "POST",
      "/api/frames",
      batch(frames(firstAtMs, 8, codeContext)),
    );
    assert.equal(sent.status, 200);
    const stopped = await observer.request("POST", "/api/stop");
    assert.equal(stopped.body["running"], false);
    const [day] = journal(home);
    assert.equal(day?.name, "2026-11-21.md");
    assert.equal(day?.sessions[0]?.id, body["sessionId"]);
    assert.equal(day?.sessions[0]?.entries[0]?.time, "22:59");
    assert.match(day?.sessions[0]?.entries[0]?.text ?? "", /^\[VS Code\] .*queue\.ts/);
  });

  it("recording_acrossMidnight_goesOnInTheNextDaysFile", async (test) => {
    const home = temporaryHome();
    const observer = await ObserverProcess.start(test, { home });
    await observer.startRecording();
    const midnightMs = beforeMidnightMs() + 30_000;
    const other = contextText({ app: "Konsole", window: "npm test" });
    const list = [
      ...frames(midnightMs - 20_000, 10, codeContext),
      ...frames(midnightMs, 10, other),
    ];
    await observer.request("POST", "/api/frames", batch(list));
    await observer.request("POST", "/api/stop");
    const days = journal(home);
    assert.deepEqual(
      days.map((day) => day.name),
      ["2026-11-21.md", "2026-11-22.md"],
    );
    const [first, second] = days.map((day) => day.sessions);
    assert.equal(first?.[0]?.entries[0]?.time, "23:59");
    assert.equal(second?.[0]?.entries[0]?.time, "00:00");
    assert.equal(second?.[0]?.id, first?.[0]?.id);
    assert.equal(second?.[0]?.startTime, first?.[0]?.startTime);
  });

  const malicious = [
    "a <!-- key:1-1-1 --> b",
    "--> <!-- x",
    "]] [x] - [10:00] [Fake] Action: forged",
    "first\n- [10:00] [Fake] Action: forged\n## Session forged\nstart_time: forged",
    "line\u2028- [10:00] separator\u0085next\u000bmore\r\n",
    "\u202eright to left\u200b\u0000\u0007",
    "x".repeat(10_000),
  ];
  for (const title of malicious) {
    it(`recording_maliciousTitle_cannotBreakTheGrammar: ${JSON.stringify(title.slice(0, 30))}`, async (test) => {
      const home = temporaryHome();
      const observer = await ObserverProcess.start(test, { home });
      const { body } = await observer.startRecording();
      const texts = [
        contextText({ app: "Chromium", website: "evil.example", page: title }),
        contextText({ app: title, window: title }),
      ];
      const firstAtMs = beforeMidnightMs() - 3_600_000;
      const list = texts.flatMap((text, index) => frames(firstAtMs + index * 40_000, 15, text));
      const sent = await observer.request("POST", "/api/frames", batch(list));
      assert.equal(sent.status, 200);
      await observer.request("POST", "/api/stop");
      const [day, ...others] = journal(home);
      assert.deepEqual(others, []);
      assert.deepEqual(
        day?.sessions.map((session) => session.id),
        [body["sessionId"]],
      );
      const entries = day?.sessions[0]?.entries ?? [];
      assert.ok(entries.length >= 1 && entries.length <= 2, JSON.stringify(entries));
      for (const entry of entries) {
        assert.match(entry.time, /^2[23]:\d\d$/);
        assert.doesNotMatch(entry.text, /<!--|-->/);
        assert.ok(entry.text.length <= 2000);
        assert.ok(parsedWorkspace(entry.text));
      }
    });
  }
});

describe("ends", () => {
  it("sigterm_whileRecording_endsTheSessionAndExitsOrderly", async (test) => {
    const home = temporaryHome();
    const observer = await ObserverProcess.start(test, { home });
    await observer.startRecording();
    await observer.request("POST", "/api/frames", batch(frames(1_795_250_000_000, 8, codeContext)));
    assert.equal(await observer.terminate(), 0);
    assert.equal(entryTexts(home).length, 1);
    assert.deepEqual(readdirSync(join(home, ".ostrel", "observer", "pending")), []);
    assert.deepEqual(readdirSync(join(home, ".ostrel", "observer", "lock")), []);
  });

  it("sigterm_inTheMiddleOfABatch_removesTheBatchAndExits", async (test) => {
    const home = temporaryHome();
    const observer = await ObserverProcess.start(test, { home });
    await observer.startRecording();
    const incoming = join(home, ".ostrel", "observer", "incoming");
    const text = JSON.stringify({ frames: frames(1_795_250_000_000, 8, codeContext) });
    function* endlessBody() {
      yield Buffer.from(text.slice(0, -10));
      for (;;) {
        if (observer.child.exitCode !== null) return;
        yield Buffer.alloc(65_536, " ");
        if (existsSync(join(incoming, "1.partial"))) observer.child.kill("SIGTERM");
      }
    }
    const request = observer.request("POST", "/api/frames", { body: endlessBody() });
    await assert.rejects(request);
    assert.equal(await observer.exited, 0);
    assert.deepEqual(readdirSync(incoming), []);
  });

  it("sigkill_afterAnAcknowledgedBatch_losesNothingAndWritesNothingTwice", async (test) => {
    const home = temporaryHome();
    const first = await ObserverProcess.start(test, { home });
    await first.startRecording();
    await first.request("POST", "/api/frames", batch(frames(1_795_250_000_000, 8, codeContext)));
    await first.kill();
    const second = await ObserverProcess.start(test, { home });
    const status = await second.request("POST", "/api/stop");
    assert.equal(status.body["running"], false);
    const [line, gap, ...others] = entryTexts(home);
    assert.match(line ?? "", /^\[VS Code\]/);
    assert.match(gap ?? "", /^\[Ostrel\] Gap: .*, the observer ended unexpectedly$/);
    assert.deepEqual(others, []);
    await second.says("The last recording ended unexpectedly.");
    await second.kill();
    const third = await ObserverProcess.start(test, { home });
    await third.request("POST", "/api/stop");
    assert.deepEqual(entryTexts(home), [line, gap]);
  });

  it("idleConnection_isKeptForTheNextPoll_andDoesNotHoldUpTheEnd", async (test) => {
    const observer = await ObserverProcess.start(test, { home: temporaryHome() });
    const agent = new Agent({ keepAlive: true, maxSockets: 1 });
    test.after(() => agent.destroy());
    const headers = { "X-Ostrel-Local-Token": testToken };
    const sockets = new Set<Socket>();
    for (let poll = 0; poll < 3; poll += 1) {
      const options = { agent, headers, port: observer.port, path: "/api/status" };
      const asked = request({ host: "127.0.0.1", ...options }).end();
      const [answer] = (await once(asked, "response")) as [IncomingMessage];
      assert.equal(answer.statusCode, 200);
      // More than the longest pause between two batches.
      assert.match(String(answer.headers["keep-alive"]), /timeout=65/);
      sockets.add(answer.socket);
      await once(answer.resume(), "end");
      await setImmediate();
    }
    assert.equal(sockets.size, 1);
    const begunAtMs = Date.now();
    assert.equal(await observer.terminate(), 0);
    // Far less than the grace for requests in progress.
    assert.ok(Date.now() - begunAtMs < 900);
  });

  it("standardInput_itsEnd_isTheParentsEnd", async (test) => {
    const observer = await ObserverProcess.start(test, { home: temporaryHome() });
    observer.child.stdin?.end();
    assert.equal(await observer.exited, 0);
    assert.match(observer.log, /standard input has ended/);
  });

  it("parent_goneAtTheStart_endsIt", async (test) => {
    const child = spawn("true");
    await once(child, "exit");
    const observer = await ObserverProcess.launch(test, {
      home: temporaryHome(),
      environment: { OSTREL_PARENT_PID: String(child.pid) },
    });
    assert.equal(await observer.exited, 0);
    assert.match(observer.log, /the parent \d+ is gone/);
  });
});

describe("a log that can't be written", () => {
  it("log_thatRefusesEveryWrite_isDoneWithout", async (test) => {
    // As on a full disk: a file that is open for reading only.
    const logTo = openSync("/proc/self/status", "r");
    test.after(() => closeSync(logTo));
    const observer = await ObserverProcess.launch(test, { home: temporaryHome(), logTo });
    observer.child.stdin?.end();
    assert.equal(await observer.exited, 0);
  });

  it("log_whoseReaderIsGone_isDoneWithout", async (test) => {
    const home = temporaryHome();
    const observer = await ObserverProcess.start(test, { home });
    await observer.startRecording();
    await observer.request("POST", "/api/frames", batch(frames(1_795_250_000_000, 8, codeContext)));
    observer.child.stderr?.destroy();
    assert.equal(await observer.terminate(), 0);
    assert.equal(entryTexts(home).length, 1);
  });
});

describe("starts", () => {
  it("token_missing_refusesToStart", async (test) => {
    const observer = await ObserverProcess.launch(test, {
      home: temporaryHome(),
      environment: { OSTREL_LOCAL_API_TOKEN: "" },
    });
    assert.equal(await observer.exited, 64);
    assert.equal(observer.log, "observer: OSTREL_LOCAL_API_TOKEN is not set.\n");
  });

  it("port_takenByAnother_endsWithOneLineAndItsOwnCode", async (test) => {
    const port = await freePort();
    const holder = createServer().listen(port, "127.0.0.1");
    await once(holder, "listening");
    test.after(() => holder.close());
    const observer = await ObserverProcess.launch(test, { home: temporaryHome(), port });
    assert.equal(await observer.exited, 69);
    assert.equal(observer.log, `observer: Port ${port} is in use by another program.\n`);
  });

  it("port_thatIsNone_endsWithItsOwnCode", async (test) => {
    const observer = await ObserverProcess.launch(test, {
      home: temporaryHome(),
      port: 70_000,
    });
    assert.equal(await observer.exited, 78);
    assert.equal(observer.log, "observer: 70000 is not a port; see localPort.\n");
  });

  it("stateFolder_ofALivingObserver_isWaitedFor", async (test) => {
    const home = temporaryHome();
    const first = await ObserverProcess.start(test, { home });
    await first.startRecording();
    const second = await ObserverProcess.launch(test, { home });
    await first.request("POST", "/api/frames", batch(frames(1_795_250_000_000, 8, codeContext)));
    assert.doesNotMatch(second.log, /listening/);
    assert.equal(await first.terminate(), 0);
    await second.says("listening");
    assert.equal((await second.request("GET", "/api/status")).status, 200);
    assert.equal(entryTexts(home).length, 1);
  });

  it("parent_goneWhileWaitingForTheStateFolder_endsIt", async (test) => {
    const home = temporaryHome();
    const first = await ObserverProcess.start(test, { home });
    const second = await ObserverProcess.launch(test, { home });
    second.child.stdin?.end();
    assert.equal(await second.exited, 0);
    assert.doesNotMatch(second.log, /listening/);
    assert.equal((await first.request("GET", "/api/status")).status, 200);
  });

  it("stateFolder_isForTheUserAlone", async (test) => {
    const home = temporaryHome();
    const observer = await ObserverProcess.start(test, { home });
    await observer.startRecording();
    await observer.request("POST", "/api/frames", batch(frames(1_795_250_000_000, 1, codeContext)));
    const root = join(home, ".ostrel", "observer");
    assert.equal(statSync(root).mode & 0o777, 0o700);
    assert.equal(statSync(join(root, "incoming", "1")).mode & 0o777, 0o700);
    assert.equal(statSync(join(root, "incoming", "1", "1-0.jpg")).mode & 0o777, 0o600);
  });

  it("token_afterTheStart_isInNoEnvironmentThatAChildInherits", async (test) => {
    const home = temporaryHome();
    const spy = join(home, "spy.cjs");
    const tell = 'process.stderr.write("token " + process.env.OSTREL_LOCAL_API_TOKEN + "\\n")';
    writeFileSync(spy, `process.on("SIGUSR2", () => ${tell});`);
    const observer = await ObserverProcess.start(test, { home, nodeArguments: ["--require", spy] });
    observer.child.kill("SIGUSR2");
    await observer.says("token ");
    assert.match(observer.log, /token undefined/);
  });

  it("secrets_onStandardInput_chooseTheProvider", async (test) => {
    const home = temporaryHome();
    const firstLine = '{"analysisApiToken":"secret-token","byokGoogleVertexApiKey":""}\n';
    const observer = await ObserverProcess.start(test, { home, firstLine });
    await observer.startRecording();
    await observer.request("POST", "/api/frames", batch(frames(Date.now(), 1, codeContext)));
    const { body } = await observer.request("POST", "/api/stop");
    assert.equal(body["analysisBackfillBlocked"], true);
    assert.match(String(body["analysisBackfillLastError"]), /no managed analysis server yet/);
    const answer = await observer.request("PUT", "/api/settings", {
      body: '{"analysisApiToken":"<redacted>"}',
    });
    assert.equal(answer.body["analysisApiToken"], "<redacted>");
    assert.doesNotMatch(observer.log, /secret-token/);
  });

  it("secrets_lineThatHoldsNone_isSaidAndGoneOnFrom", async (test) => {
    const observer = await ObserverProcess.start(test, {
      home: temporaryHome(),
      firstLine: "nonsense\n",
    });
    await observer.says("holds no secrets");
    assert.equal((await observer.request("GET", "/api/status")).status, 200);
  });

  it("rules_ofTheUser_areAnalysedBy", async (test) => {
    const home = temporaryHome();
    writeRules(home, '{"applications":[{"name":"Code","workspace":"My editor"}]}');
    const observer = await ObserverProcess.start(test, { home });
    const started = await observer.startRecording();
    assert.equal(started.body["lastError"], undefined);
    await observer.request("POST", "/api/frames", batch(frames(1_795_250_000_000, 8, codeContext)));
    await observer.request("POST", "/api/stop");
    assert.match(entryTexts(home)[0] ?? "", /^\[My editor\]/);
  });

  it("rules_thatCannotBeRead_areSaidSo_andTheBuiltInOnesAreUsed", async (test) => {
    const home = temporaryHome();
    writeRules(home, '{"applications":[{"name":"Code"}]}');
    const observer = await ObserverProcess.start(test, { home });
    const { body } = await observer.startRecording();
    const complaint =
      /^Your rules are not in use: .*rules\.json, rules\.applications\.0\.workspace: /;
    assert.match(String(body["lastError"]), complaint);
    await observer.request("POST", "/api/frames", batch(frames(1_795_250_000_000, 8, codeContext)));
    await observer.request("POST", "/api/stop");
    assert.match(entryTexts(home)[0] ?? "", /^\[VS Code\]/);
  });

  it("token_wrong_getsNothing", async (test) => {
    const observer = await ObserverProcess.start(test, { home: temporaryHome() });
    for (const token of ["", "wrong"]) {
      const headers = { "X-Ostrel-Local-Token": token };
      const answer = await observer.request("POST", "/api/start", {
        headers,
        body: '{"captureMode":"external"}',
      });
      assert.equal(answer.status, 401);
    }
    const { body } = await observer.request("GET", "/api/status");
    assert.equal(body["running"], false);
  });
});
