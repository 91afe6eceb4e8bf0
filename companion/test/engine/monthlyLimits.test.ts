import assert from "node:assert/strict";
import { mkdirSync, readFileSync, writeFileSync } from "node:fs";
import { dirname, join } from "node:path";
import { describe, it, type TestContext } from "node:test";
import { UsageLedger } from "../../src/providers/usage.ts";
import { realDisk } from "../../src/spool/disk.ts";
import { ManualClock } from "../support/manualClock.ts";
import { chatSettings, openModelHarness } from "../support/modelHarness.ts";
import { at, noted, pass, startMs, stopThenAnalyse, unavailable } from "../support/modelQueue.ts";
import { completion, ModelServer, type Reply } from "../support/modelServer.ts";
import type { ObserverHarness } from "../support/observerHarness.ts";
import { temporaryHome } from "../support/temporaryHome.ts";

describe("monthly limits", () => {
  function writeLimits(harness: ObserverHarness, analysis: object): void {
    const path = harness.layout.ownSettingsFile;
    mkdirSync(dirname(path), { recursive: true });
    writeFileSync(path, JSON.stringify({ analysis }));
  }

  async function limited(test: TestContext, analysis: object, ...replies: Reply[]) {
    const server = await ModelServer.start(test, ...replies);
    const settings = chatSettings(server.origin);
    const harness = await openModelHarness({ settings, isAnalysing: false });
    await harness.observer.start();
    await harness.send([0, 20, 40].map(at));
    writeLimits(harness, analysis);
    await stopThenAnalyse(harness, 3);
    await harness.observer.settled();
    return { server, harness, settings };
  }

  const words =
    "Your monthly limit of 2 requests is reached. The frames are kept, and the analysis goes on on 2026-12-01, or when you raise the limit.";

  it("limitOfRequests_isHardAlsoOverARestart", async (test) => {
    const { harness, settings } = await limited(
      test,
      { monthlyRequests: 2 },
      noted("three"),
      unavailable,
    );
    // The second of the two failed, and counts.
    await pass(harness, 5_000);
    let status = harness.observer.status();
    assert.equal(status.analysisBackfillBlocked, true);
    assert.equal(status.analysisBackfillLastError, words);
    assert.equal(status.pendingAnalysisChunks, 2);
    await harness.observer.close();
    const second = await openModelHarness({ home: harness.home, settings });
    await second.observer.settled();
    status = second.observer.status();
    assert.equal(status.analysisBackfillLastError, words);
  });

  it("limitOfRequests_inTheNextMonth_beginsAnew_andHoldsWhenTheClockGoesBack", async (test) => {
    const { server, harness } = await limited(test, { monthlyRequests: 1 }, noted("three"));
    harness.clock.setWall(Date.UTC(2026, 11, 2));
    server.reply(noted("two"));
    await pass(harness, 600_000);
    assert.deepEqual(harness.lines, ["[Editor] three", "[Editor] two"]);
    harness.clock.setWall(startMs);
    await pass(harness, 600_000);
    assert.equal(server.requests.length, 2);
  });

  it("limit_thatIsRaised_isNoticedByItself", async (test) => {
    const { server, harness } = await limited(test, { monthlyRequests: 1 }, noted("three"));
    writeLimits(harness, { monthlyRequests: 10 });
    server.reply(noted("two"), noted("one"));
    await pass(harness, 5_000);
    assert.deepEqual(harness.lines, ["[Editor] three", "[Editor] two", "[Editor] one"]);
  });

  it("limitOfTokens_countsWhatTheProviderCounted", async (test) => {
    const counted = (text: string) =>
      completion(`[Editor] ${text}`, { usage: { total_tokens: 5_000 } });
    // A request sets aside more than it takes, and gives the rest back.
    const analysis = { monthlyTokens: 14_000 };
    const { server, harness } = await limited(test, analysis, counted("three"), counted("two"));
    const usage = JSON.parse(readFileSync(harness.layout.usageFile, "utf8")) as object;
    assert.deepEqual(usage, {
      version: 1,
      months: { "2026-11": { requests: 2, tokens: 10_000 } },
    });
    assert.equal(server.requests.length, 2);
    assert.match(
      harness.observer.status().analysisBackfillLastError ?? "",
      /^Your monthly limit of 14000 tokens is reached\./,
    );
  });

  for (const told of [0, -5, 1e308, "many", null]) {
    it(`count_ofAProviderThatSays_${told}_staysThatWhichWasSetAside`, async (test) => {
      const reply = completion("[Editor] one", { usage: { total_tokens: told } });
      const { harness } = await limited(test, { monthlyTokens: 20_000, monthlyRequests: 1 }, reply);
      const usage = JSON.parse(readFileSync(harness.layout.usageFile, "utf8"));
      const { tokens } = usage.months["2026-11"];
      assert.ok(tokens > 1_024 && tokens <= 20_000, `${tokens}`);
      assert.deepEqual(harness.lines, ["[Editor] one"]);
    });
  }

  it("reservations_atTheSameTime_areEachCounted", async () => {
    const path = join(temporaryHome(), "usage.json");
    const ledger = new UsageLedger(realDisk, path, new ManualClock());
    const limits = { monthlyRequests: 3, monthlyTokens: undefined };
    const made = await Promise.allSettled(
      Array.from({ length: 8 }, () => ledger.reserve(limits, 10)),
    );
    assert.equal(made.filter(({ status }) => status === "fulfilled").length, 3);
    const { months } = JSON.parse(readFileSync(path, "utf8"));
    assert.deepEqual(Object.values(months), [{ requests: 3, tokens: 30 }]);
  });

  it("limits_thatCannotBeRead_askNobody", async (test) => {
    const { harness } = await limited(test, { monthlyRequests: "many" });
    assert.match(
      harness.observer.status().analysisBackfillLastError ?? "",
      /^Your limits can't be read, so no model is asked: .*analysis\.monthlyRequests/,
    );
  });

  it("count_thatIsDamaged_asksNobody", async (test) => {
    const server = await ModelServer.start(test);
    const harness = await openModelHarness({ settings: chatSettings(server.origin) });
    writeFileSync(harness.layout.usageFile, "{");
    await harness.observer.start();
    await harness.send([at(0)]);
    const status = await harness.observer.stop();
    assert.match(
      status.analysisBackfillLastError ?? "",
      /count of this month's requests is damaged/,
    );
  });

  it("requests_thatWereNeverSent_doNotCount", async () => {
    const harness = await openModelHarness({
      settings: chatSettings("http://127.0.0.1:9"),
      clock: new ManualClock(),
    });
    await harness.observer.start();
    await harness.send([at(0)]);
    await harness.observer.stop();
    const usage = JSON.parse(readFileSync(harness.layout.usageFile, "utf8")) as object;
    assert.deepEqual(usage, { version: 1, months: { "2026-11": { requests: 0, tokens: 0 } } });
  });
});
