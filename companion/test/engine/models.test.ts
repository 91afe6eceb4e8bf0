import assert from "node:assert/strict";
import { readFileSync } from "node:fs";
import { describe, it, type TestContext } from "node:test";
import { defaultSettings } from "../../src/wire/records.ts";
import { chatSettings, openModelHarness } from "../support/modelHarness.ts";
import {
  asked,
  at,
  closeInTime,
  noted,
  pass,
  pictures,
  type Recording,
  record,
  startMs,
  stopThenAnalyse,
  unavailable,
} from "../support/modelQueue.ts";
import { completion, ModelServer, type Reply } from "../support/modelServer.ts";

describe("queue of a model", () => {
  it("chunks_thatWait_areAskedAboutNewestFirst", async (test) => {
    const { server, harness } = await record(test, [], [0, 20, 40], { isAnalysing: false });
    server.reply(noted("three"), noted("two"), noted("one"));
    await stopThenAnalyse(harness, 3);
    await harness.observer.settled();
    // The last one, with the stop, is the newest.
    assert.deepEqual(asked(server), ["at 40", "at 20", "at 0"]);
    assert.deepEqual(harness.lines, ["[Editor] three", "[Editor] two", "[Editor] one"]);
    assert.deepEqual(harness.names("pending"), []);
  });

  it("restart_withOlderChunksLeft_asksAboutThoseOnly", async (test) => {
    const { server, harness } = await record(
      test,
      [noted("three"), unavailable, noted("two"), noted("one")],
      [0, 20, 40],
      { isAnalysing: false },
    );
    await stopThenAnalyse(harness, 3);
    await harness.observer.settled();
    assert.deepEqual(harness.names("pending"), ["1", "2"]);
    await harness.observer.close();
    const settings = chatSettings(server.origin);
    const second = await openModelHarness({ home: harness.home, settings });
    await second.observer.settled();
    assert.deepEqual(asked(server), ["at 40", "at 20", "at 20", "at 0"]);
    assert.deepEqual(second.lines, ["[Editor] two", "[Editor] one"]);
    assert.deepEqual(second.names("pending"), []);
    await second.observer.close();
    const third = await openModelHarness({ home: harness.home, settings });
    await third.observer.settled();
    assert.deepEqual(third.lines, []);
  });

  it("stop_waitsForItsOwnChunkAndNotForTheBacklog", async (test) => {
    const never: Reply = () => undefined;
    const { server, harness } = await record(test, [noted("last"), never], [0, 20, 40], {
      isAnalysing: false,
    });
    const status = await stopThenAnalyse(harness, 3);
    assert.deepEqual(harness.lines, ["[Editor] last"]);
    assert.equal(status.pendingAnalysisChunks, 2);
    assert.equal(status.analysisBackfillActive, true);
    await server.received(2);
    await closeInTime(harness);
    assert.deepEqual(harness.names("pending"), ["1", "2"]);
  });

  it("lateBullet_repeatsItsOwnSessionsHeading", async (test) => {
    const { server, harness } = await record(test, [unavailable], [0], { appendToJournal: "real" });
    await harness.observer.stop();
    await harness.observer.start();
    await harness.send([at(100)]);
    await harness.observer.stop();
    server.reply(noted("new"), noted("old"));
    await pass(harness, 5_000);
    const page = readFileSync(`${harness.home}/ostrel/journal/2026-11-21.md`, "utf8");
    const order = [...page.matchAll(/## Session \S+-([12])|\] (new|old)/g)].map(
      (match) => match[1] ?? match[2],
    );
    assert.deepEqual(order, ["2", "new", "1", "old"]);
  });

  it("localAnalyser_afterAModel_beginsAnew", async (test) => {
    const { harness } = await record(test, [noted("one")]);
    await harness.observer.stop();
    harness.observer.replaceSettings(defaultSettings);
    await harness.observer.start();
    await harness.send([at(100)]);
    await harness.observer.stop();
    assert.deepEqual(harness.lines, ["[Editor] one", "at 100", "end of 1"]);
  });
});

describe("a provider that fails for now", () => {
  it("pause_beginsWithFiveSecondsAndDoublesToTenMinutes", async (test) => {
    const { server, harness } = await record(test, [unavailable]);
    const first = await harness.observer.stop();
    // One failure is nothing to act upon; it goes on by itself.
    assert.equal(first.analysisBackfillBlocked, false);
    assert.equal(first.analysisBackfillActive, true);
    const host = server.origin.slice("http://".length);
    const words = `The analysis server ${host} answered 503: Loading model.`;
    assert.equal(first.analysisBackfillLastError, words);
    for (const delayMs of [5, 10, 20, 40, 80, 160, 320, 600, 600].map((s) => s * 1_000)) {
      assert.equal(harness.clock.nextDelayMs, delayMs);
      server.reply(unavailable);
      await pass(harness, delayMs - 1);
      const before = server.requests.length;
      await pass(harness, 1);
      assert.equal(server.requests.length, before + 1);
      assert.equal(harness.observer.status().analysisBackfillBlocked, true);
    }
    assert.match(
      harness.observer.status().analysisBackfillLastError ?? "",
      /Loading model\. It is tried again at [0-9]{2}:[0-9]{2}\.$/,
    );
    server.reply(noted("at last"));
    await pass(harness, 600_000);
    const status = harness.observer.status();
    assert.equal(status.analysisBackfillBlocked, false);
    assert.equal(status.analysisBackfillLastError, undefined);
    assert.deepEqual(harness.lines, ["[Editor] at last"]);
    assert.equal(harness.clock.timerCount, 0);
  });

  it("newChunks_duringAPause_askNobody", async (test) => {
    const { server, harness } = await record(test, [unavailable], [0, 20]);
    await harness.observer.settled();
    await harness.send([at(40), at(60)]);
    await harness.observer.settled();
    assert.equal(server.requests.length, 1);
    server.reply(noted("a"), noted("b"), noted("c"));
    await pass(harness, 5_000);
    assert.deepEqual(asked(server).slice(1), ["at 40", "at 20", "at 0"]);
  });

  it("retryAfter_isHonoured", async (test) => {
    const limited: Reply = { status: 429, headers: { "Retry-After": "7200" }, body: {} };
    const { server, harness } = await record(test, [limited]);
    await harness.observer.stop();
    await pass(harness, 7_199_999);
    assert.equal(server.requests.length, 1);
    server.reply(noted("one"));
    await pass(harness, 1);
    assert.deepEqual(harness.lines, ["[Editor] one"]);
  });

  const cuts: readonly (readonly [string, Reply])[] = [
    ["beforeTheAnswer", (_, response) => response.destroy()],
    [
      "inTheMiddleOfTheAnswer",
      (_, response) => {
        response.writeHead(200, { "Content-Type": "application/json", "Content-Length": "5000" });
        response.write('{"choices":[{"message":{"content":"[Editor] half', () => {
          response.destroy();
        });
      },
    ],
    ["byAHalfBody", { body: '{"choices":[{"message":{"content":"[Editor] half' }],
    ["byALoginPage", { body: "<html>Sign in</html>" }],
    ["byAGatewaysPage", { status: 502, body: "<html>Bad gateway</html>" }],
  ];
  for (const [name, reply] of cuts) {
    it(`answer_cut_${name}_isAskedForAgainAndWrittenOnce`, async (test) => {
      const { server, harness } = await record(test, [reply]);
      await harness.observer.stop();
      assert.deepEqual(harness.lines, []);
      assert.equal(harness.clock.nextDelayMs, 5_000);
      server.reply(noted("whole"));
      await pass(harness, 5_000);
      assert.deepEqual(harness.lines, ["[Editor] whole"]);
    });
  }

  it("server_thatIsNotThere_isSaidAndTriedAgain", async (test) => {
    const server = await ModelServer.start(test);
    const settings = chatSettings("http://127.0.0.1:9");
    const harness = await openModelHarness({ settings });
    await harness.observer.start();
    await harness.send([at(0)]);
    const status = await harness.observer.stop();
    assert.match(
      status.analysisBackfillLastError ?? "",
      /127\.0\.0\.1:9 doesn't run: nothing listens/,
    );
    server.reply(noted("one"));
    harness.observer.replaceSettings({ ...defaultSettings, ...chatSettings(server.origin) });
    await harness.observer.settled();
    assert.deepEqual(harness.lines, ["[Editor] one"]);
  });

  it("clock_stepped_movesNoPause", async (test) => {
    const { server, harness } = await record(test, [unavailable]);
    await harness.observer.stop();
    harness.clock.setWall(startMs - 86_400_000);
    await pass(harness, 4_999);
    assert.equal(server.requests.length, 1);
    server.reply(noted("one"));
    await pass(harness, 1);
    assert.deepEqual(harness.lines, ["[Editor] one"]);
  });
});

describe("a chunk about which alone the provider fails", () => {
  const broken: Reply = { status: 500, body: { error: { message: "Internal error" } } };

  /** Fails about one chunk, whenever it is asked about it, and answers about all others. */
  function failingAbout(text: string, times: number): Reply[] {
    return Array.from({ length: times }, () => (request, response) => {
      const isIt = request.text.includes(`\\"${text}\\"`);
      const reply = isIt ? broken : noted(/\\"(at [0-9]+)\\"/.exec(request.text)?.[1] ?? "");
      if (typeof reply === "function") throw new Error("no reply of its own");
      response.writeHead(reply.status ?? 200, { "Content-Type": "application/json" });
      response.end(JSON.stringify(reply.body));
    });
  }

  it("olderChunks_areAskedAboutAllTheSame", async (test) => {
    const { server, harness } = await record(test, [], [0, 20, 40], { isAnalysing: false });
    server.reply(...failingAbout("at 40", 6));
    await stopThenAnalyse(harness, 3);
    await harness.observer.settled();
    await pass(harness, 5_000);
    await pass(harness, 10_000);
    await pass(harness, 20_000);
    assert.deepEqual(asked(server), ["at 40", "at 40", "at 40", "at 20", "at 0", "at 40"]);
    assert.deepEqual(harness.lines, ["[Editor] at 20", "[Editor] at 0"]);
    assert.deepEqual(harness.names("pending"), ["3"]);
  });

  it("chunk_thatFailsAgainAndAgainWhileOthersAreAnswered_isPutAside", async (test) => {
    const { server, harness } = await record(test, failingAbout("at 0", 3));
    await harness.observer.stop();
    await pass(harness, 5_000);
    await pass(harness, 10_000);
    for (const second of [100, 200, 300]) {
      assert.deepEqual(harness.names("quarantine"), []);
      server.reply(...failingAbout("at 0", 2));
      await harness.observer.start();
      await harness.send([at(second)]);
      await harness.observer.stop();
      // Of the pause in which it was: the first of these is long, as nobody was answered before.
      await pass(harness, second === 100 ? 20_000 : 5_000);
    }
    assert.equal(asked(server).filter((text) => text === "at 0").length, 6);
    assert.match(harness.observer.status().lastError ?? "", /was put aside: .*Internal error\.$/);
    assert.deepEqual(harness.names("pending"), []);
  });

  it("provider_thatIsDown_isAskedAboutTheNewestFirstWhenItIsBack", async (test) => {
    const down = Array.from({ length: 4 }, () => broken);
    const { server, harness } = await record(test, down, [0, 20, 40], { isAnalysing: false });
    await stopThenAnalyse(harness, 3);
    await harness.observer.settled();
    for (const ms of [5_000, 10_000, 20_000]) await pass(harness, ms);
    assert.deepEqual(asked(server), ["at 40", "at 40", "at 40", "at 20"]);
    server.reply(noted("three"), noted("two"), noted("one"));
    await pass(harness, 40_000);
    assert.deepEqual(harness.lines, ["[Editor] three", "[Editor] two", "[Editor] one"]);
  });
});

describe("a provider that wants the settings changed", () => {
  const missing: Reply = { status: 404, body: { error: { message: 'model "eyes" not found' } } };

  it("missingModel_blocksAndSaysSo_andGoesOnWhenTheSettingsChange", async (test) => {
    const { server, harness } = await record(test, [missing]);
    const status = await harness.observer.stop();
    assert.equal(status.analysisBackfillBlocked, true);
    assert.match(
      status.analysisBackfillLastError ?? "",
      /answered 404: model "eyes" not found\. It is tried again at 08:[0-9]{2}\.$/,
    );
    server.reply(noted("one"));
    harness.observer.replaceSettings({ ...harness.settings.record, model: "other" });
    await harness.observer.settled();
    assert.deepEqual(harness.lines, ["[Editor] one"]);
    assert.equal(harness.observer.status().analysisBackfillBlocked, false);
    assert.equal(harness.clock.timerCount, 0);
  });

  it("missingModel_thatWasFetched_isFoundWithoutAnybodyDoingMore", async (test) => {
    const { server, harness } = await record(test, [missing]);
    await harness.observer.stop();
    await pass(harness, 59_999);
    assert.equal(server.requests.length, 1);
    server.reply(missing);
    await pass(harness, 1);
    assert.equal(harness.observer.status().analysisBackfillBlocked, true);
    server.reply(noted("one"));
    await pass(harness, 120_000);
    assert.deepEqual(harness.lines, ["[Editor] one"]);
    assert.equal(harness.observer.status().analysisBackfillBlocked, false);
  });

  it("missingModel_thatWasFetched_isTriedWhenTheNextRecordingBegins", async (test) => {
    const { server, harness } = await record(test, [missing]);
    await harness.observer.stop();
    server.reply(noted("one"));
    await harness.observer.start();
    await harness.observer.settled();
    assert.deepEqual(harness.lines, ["[Editor] one"]);
  });

  it("settings_changedDuringAQuestion_takeItBack", async (test) => {
    const cut: string[] = [];
    const slow: Reply = (_, response) => {
      response.on("close", () => cut.push("cut"));
    };
    const { server, harness } = await record(test, [slow]);
    const stopped = harness.observer.stop();
    await server.received(1);
    harness.observer.replaceSettings(defaultSettings);
    await stopped;
    await harness.observer.settled();
    assert.deepEqual(harness.lines, ["at 0", "end of 1"]);
    assert.equal(cut.length, 1);
  });

  it("settings_thatDoNotChangeTheProvider_leaveTheQuestionOut", async (test) => {
    let answer = () => {};
    const slow: Reply = (_, response) => {
      answer = () => {
        response.writeHead(200, { "Content-Type": "application/json" });
        response.end('{"choices":[{"message":{"content":"[Editor] one"}}]}');
      };
    };
    const { server, harness } = await record(test, [slow]);
    const stopped = harness.observer.stop();
    await server.received(1);
    harness.observer.replaceSettings({ ...harness.settings.record, frameFps: 1 });
    answer();
    await stopped;
    assert.deepEqual(harness.lines, ["[Editor] one"]);
  });
});

describe("requests that a provider can't take", () => {
  const tooLarge: Reply = { status: 413, body: "<html>too large</html>" };
  const seconds = [0, 2, 4, 6];
  /** Pictures that all differ. */
  const four = () =>
    seconds.map((second) => ({
      ...at(second),
      videoBase64: Buffer.from(`picture ${second}`).toString("base64"),
    }));

  async function recordFour(test: TestContext, ...replies: Reply[]): Promise<Recording> {
    const server = await ModelServer.start(test, ...replies);
    const harness = await openModelHarness({ settings: chatSettings(server.origin) });
    await harness.observer.start();
    await harness.send(four());
    await harness.observer.stop();
    return { server, harness };
  }

  it("tooLarge_isAskedWithHalfThePictures_toNone", async (test) => {
    const { server, harness } = await recordFour(test, tooLarge, tooLarge, tooLarge, noted("one"));
    assert.deepEqual(pictures(server), [4, 2, 1, 0]);
    assert.deepEqual(harness.lines, ["[Editor] one"]);
  });

  it("noEyes_isAskedByTextsAloneFromThenOn", async (test) => {
    const blind: Reply = {
      status: 500,
      body: { error: { message: "image input is not supported" } },
    };
    const { server, harness } = await recordFour(test, blind, noted("one"), noted("two"));
    assert.match(harness.observer.status().lastError ?? "", /eyes takes no pictures/);
    await harness.observer.start();
    await harness.send([at(100)]);
    await harness.observer.stop();
    assert.deepEqual(pictures(server), [4, 0, 0]);
    assert.deepEqual(harness.lines, ["[Editor] one", "[Editor] two"]);
    harness.observer.replaceSettings(defaultSettings);
    assert.equal(harness.observer.status().lastError, undefined);
  });

  it("badRequest_thriceAndOverARestart_putsTheChunkAside", async (test) => {
    const bad: Reply = { status: 400, body: { error: { message: "unable to process" } } };
    const { server, harness } = await record(test, [bad]);
    await harness.observer.stop();
    server.reply(bad);
    await pass(harness, 5_000);
    await harness.observer.close();
    server.reply(bad);
    const settings = chatSettings(server.origin);
    const second = await openModelHarness({ home: harness.home, settings });
    await second.observer.settled();
    assert.deepEqual(second.lines, [
      "[Ostrel] Gap: 08:33:20 to 08:33:20, the model did not describe it",
    ]);
    assert.equal(second.names("quarantine").length, 1);
    const status = second.observer.status();
    assert.equal(status.pendingAnalysisChunks, 0);
    assert.equal(status.analysisBackfillBlocked, false);
    assert.match(status.lastError ?? "", /^Chunk 1 was put aside: .*unable to process\.$/);
  });

  it("badRequests_forEveryChunk_stopBeforeAllArePutAside", async (test) => {
    const prose = Array.from({ length: 12 }, () => completion("I see a desktop."));
    const { harness } = await record(test, prose, [0, 20, 40, 60, 80]);
    await harness.observer.stop();
    while (harness.clock.timerCount > 0) await pass(harness, harness.clock.nextDelayMs ?? 0);
    assert.equal(harness.names("quarantine").length, 3);
    const status = harness.observer.status();
    assert.equal(status.pendingAnalysisChunks, 2);
    assert.equal(status.analysisBackfillBlocked, true);
    assert.equal(
      status.analysisBackfillLastError,
      'The model eyes answered with "I see a desktop." instead of journal lines. Choose another model, or mend the instructions.',
    );
  });
});
