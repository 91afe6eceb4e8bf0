import assert from "node:assert/strict";
import { it } from "node:test";
import { ObserverProcess } from "../support/observerProcess.ts";
import { largeBatch } from "../support/payloads.ts";
import { temporaryHome } from "../support/temporaryHome.ts";

const greatestKb = 90_000;

it("observer_batchOf400FramesOf2Megabytes_staysBelow90Megabytes", async (test) => {
  const observer = await ObserverProcess.start(test, { home: temporaryHome() });
  await observer.startRecording();
  let greatest = 0;
  function* measuredBatch() {
    for (const piece of largeBatch(400, 2_000_000, 1_795_250_000_000)) {
      greatest = Math.max(greatest, observer.proportionalSetKb());
      yield piece;
    }
  }
  const answer = await observer.request("POST", "/api/frames", { body: measuredBatch() });
  greatest = Math.max(greatest, observer.proportionalSetKb());
  assert.equal(answer.status, 200);
  assert.equal(answer.body["lastAction"], "Received 400 frames.");
  const stopped = await observer.request("POST", "/api/stop");
  assert.equal(stopped.body["pendingAnalysisChunks"], 0);
  greatest = Math.max(greatest, observer.proportionalSetKb());
  test.diagnostic(`greatest proportional set: ${greatest} kB`);
  assert.ok(greatest > 10_000 && greatest < greatestKb, `${greatest} kB`);
});
