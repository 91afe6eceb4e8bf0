import assert from "node:assert/strict";
import { readdirSync } from "node:fs";
import { join } from "node:path";
import { describe, it, type TestContext } from "node:test";
import { PrivacyUnreadable } from "../../src/privacy/privacyFile.ts";
import { PrivacyRules } from "../../src/privacy/privacyRules.ts";
import { chatSettings, openModelHarness } from "../support/modelHarness.ts";
import { completion, ModelServer } from "../support/modelServer.ts";
import { ObserverHarness } from "../support/observerHarness.ts";
import { framePayload, tinyPicture } from "../support/payloads.ts";

const startMs = 1_795_250_000_000;
const secret = "Diary";
const lists = { applications: [], windowClasses: [secret], titles: [], sites: [] };

function at(seconds: number, text: string, picture = tinyPicture) {
  return framePayload(startMs + seconds * 1000, { text, videoBase64: picture });
}

const otherPicture = Buffer.from("another picture").toString("base64");

/** Three frames wait: one to be sent, one as before, and one that is private. */
async function waiting(test: TestContext) {
  const server = await ModelServer.start(test);
  const harness = await openModelHarness({
    isAnalysing: false,
    privacyRules: async () => new PrivacyRules(lists),
    settings: chatSettings(server.origin, { analysisApiToken: "sesame", instructions: "Look." }),
  });
  await harness.observer.start();
  await harness.send([at(0, "one"), at(5, "two"), at(10, secret, otherPicture), at(30, "later")]);
  return { server, harness };
}

describe("preview", () => {
  it("request_isTheOneThatIsThenSent", async (test) => {
    const { server, harness } = await waiting(test);
    const preview = await harness.observer.preview(true);
    server.reply(completion("NOOP"));
    harness.observer.beginAnalysis();
    await harness.observer.settled();
    const sent = server.requests[0]?.text ?? "";
    const pictures = preview.frames.flatMap(({ picture }) => picture ?? []);
    const withPictures = pictures.reduce(
      (text, { name, base64 }) => text.replace(`(${name})`, base64 ?? "none"),
      preview.request ?? "",
    );
    assert.deepEqual(JSON.parse(withPictures), JSON.parse(sent));
    assert.equal(preview.recipient?.host, new URL(server.origin).host);
    assert.equal(preview.recipient?.model, "eyes");
    assert.doesNotMatch(JSON.stringify(preview), /sesame/);
    assert.match(preview.instructions ?? "", /^Look\./);
    assert.deepEqual(pictures[0]?.base64, tinyPicture);
  });

  it("frames_sayWhatIsLeftOutAndWhy", async (test) => {
    const { harness } = await waiting(test);
    const { frames, reason } = await harness.observer.preview(false);
    assert.equal(reason, undefined);
    assert.deepEqual(
      frames.map(({ isSent, text, leftOut }) => [isSent, text, leftOut]),
      [
        [true, "one", undefined],
        [true, "two", "the picture shows nearly the same as the one before"],
        [false, undefined, "the privacy rules exclude it"],
      ],
    );
    assert.equal(frames[0]?.picture?.base64, undefined, "nobody asked for it");
    assert.deepEqual([frames[0]?.width, frames[0]?.height], [1920, 1080]);
  });

  it("preview_changesNothing", async (test) => {
    const { harness } = await waiting(test);
    const before = readdirSync(harness.layout.chunk(1));
    await harness.observer.preview(true);
    assert.deepEqual(readdirSync(harness.layout.chunk(1)), before);
    assert.ok(before.includes("1-2.jpg"), join(harness.layout.chunk(1)));
    assert.deepEqual(harness.names("usage.json"), []);
  });

  it("secretOnTheScreen_isNotTold", async (test) => {
    const server = await ModelServer.start(test);
    const harness = await openModelHarness({
      isAnalysing: false,
      settings: chatSettings(server.origin, { analysisApiToken: 'ses"ame' }),
    });
    await harness.observer.start();
    await harness.send([at(0, 'the token is ses"ame'), at(30, "later")]);
    const told = JSON.stringify(await harness.observer.preview(true));
    assert.match(told, /the token is <redacted>/);
    assert.doesNotMatch(told, /ses[\\]*"ame/);
  });

  it("nothingQueued_isSaid", async (test) => {
    const server = await ModelServer.start(test);
    const harness = await openModelHarness({ settings: chatSettings(server.origin) });
    const preview = await harness.observer.preview(false);
    assert.equal(preview.reason, "Nothing waits to be sent.");
    assert.deepEqual([preview.request, preview.frames], [undefined, []]);
  });

  it("builtInAnalyser_isSaidToSendNothing", async () => {
    const harness = await ObserverHarness.open();
    assert.match((await harness.observer.preview(false)).reason ?? "", /^Nothing is sent/);
  });

  it("providerThatCannotBeUsed_isSaid", async () => {
    const harness = await ObserverHarness.open({
      settings: { inferenceProvider: "google_vertex_ai" },
    });
    const { reason } = await harness.observer.preview(false);
    assert.equal(reason, "BYOK Vertex AI API key is not configured.");
  });

  it("chunkOfPrivateFramesAlone_hasNothingToSend", async (test) => {
    const server = await ModelServer.start(test);
    const harness = await openModelHarness({
      isAnalysing: false,
      privacyRules: async () => new PrivacyRules(lists),
      settings: chatSettings(server.origin),
    });
    await harness.observer.start();
    await harness.send([at(0, secret), at(30, "later")]);
    const preview = await harness.observer.preview(true);
    assert.match(preview.reason ?? "", /Nothing is left to send/);
    assert.equal(preview.request, undefined);
    assert.doesNotMatch(JSON.stringify(preview), new RegExp(`${secret}|base64":"`));
  });

  it("rulesThatCannotBeRead_areTheReason", async (test) => {
    const server = await ModelServer.start(test);
    const harness = await openModelHarness({
      isAnalysing: false,
      privacyRules: async () => {
        throw new PrivacyUnreadable("Your privacy rules can't be applied.");
      },
      settings: chatSettings(server.origin),
    });
    await harness.observer.start();
    await harness.send([at(0, "one"), at(30, "later")]);
    const preview = await harness.observer.preview(true);
    assert.equal(preview.reason, "Your privacy rules can't be applied.");
    assert.deepEqual(preview.frames, []);
  });
});
