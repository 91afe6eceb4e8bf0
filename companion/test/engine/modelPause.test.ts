import assert from "node:assert/strict";
import { describe, it } from "node:test";
import { ModelPause } from "../../src/engine/modelPause.ts";
import { ProviderFailure } from "../../src/providers/failures.ts";
import { ManualClock } from "../support/manualClock.ts";

const retry = (retryAfterMs?: number) => new ProviderFailure("retry", "No.", { retryAfterMs });

function pauseBy(clock: ManualClock, random = 0): ModelPause {
  return new ModelPause(
    clock,
    () => random,
    () => undefined,
  );
}

describe("pause", () => {
  it("pause_isJitteredBetweenThreeQuartersAndTheWhole", () => {
    for (const [random, expected] of [
      [0, 3_750],
      [0.5, 4_375],
      [0.999999, 5_000],
    ] as const) {
      const clock = new ManualClock();
      pauseBy(clock, random).begin(retry());
      assert.equal(clock.nextDelayMs, expected);
    }
  });

  it("retryAfter_ofAWeek_isADay", () => {
    const clock = new ManualClock();
    const pause = pauseBy(clock);
    pause.begin(retry(7 * 86_400_000));
    assert.equal(clock.nextDelayMs, 86_400_000);
    assert.match(pause.reason ?? "", /^No\. It is tried again at [0-9:]{5} on 2026-11-22\.$/);
  });

  it("retryAfter_sayingAtOnceAgainAndAgain_isNoReasonToAskWithoutAPause", () => {
    const clock = new ManualClock();
    const pause = pauseBy(clock, 0.999999);
    const delays = [0, 1_000, 0, 60_000].map((retryAfterMs) => {
      pause.begin(retry(retryAfterMs));
      return clock.nextDelayMs;
    });
    assert.deepEqual(delays, [5_000, 10_000, 20_000, 60_000]);
  });

  it("configuration_thatWasTurnedAway_isTriedAfterAMinuteDoublingToAnHour_andBlocksMeanwhile", () => {
    const clock = new ManualClock();
    const pause = pauseBy(clock, 1);
    for (const minutes of [1, 2, 4, 8, 16, 32, 60, 60]) {
      pause.begin(new ProviderFailure("configuration", "No.", { cost: "refused" }));
      assert.equal(clock.nextDelayMs, minutes * 60_000);
      assert.equal(pause.isBlocking, true);
      assert.match(pause.reason ?? "", /^No\. It is tried again at [0-9:]{5}\.$/);
    }
  });

  it("configuration_ofWhichNobodyKnowsWhatItCost_hasNoEndOfItsOwn", () => {
    const clock = new ManualClock();
    const pause = pauseBy(clock);
    pause.begin(new ProviderFailure("configuration", "No."));
    assert.equal(clock.timerCount, 0);
    assert.equal(pause.isBlocking, true);
    pause.endConfiguration();
    assert.equal(pause.reason, undefined);
  });
});
