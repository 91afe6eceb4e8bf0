import assert from "node:assert/strict";
import { describe, it } from "node:test";
import { Suspects } from "../../src/engine/suspects.ts";
import {
  type FailureCost,
  type FailureKind,
  ProviderFailure,
} from "../../src/providers/failures.ts";

const failure = (kind: FailureKind = "retry", cost: FailureCost = "unknown") =>
  new ProviderFailure(kind, "No.", { cost });

function failing(id: number, times: number, why = failure()): Suspects {
  const suspects = new Suspects();
  for (let count = 0; count < times; count += 1) assert.equal(suspects.failed(id, why), false);
  return suspects;
}

describe("suspects", () => {
  it("newest_isAskedAboutFirst_untilItHasFailedThreeTimes", () => {
    assert.equal(failing(3, 2).choose([3, 2, 1]), 3);
    assert.equal(failing(3, 3).choose([3, 2, 1]), 2);
    assert.equal(failing(3, 3).choose([3]), 3);
    assert.equal(new Suspects().choose([]), undefined);
  });

  it("failures_thatAreNotAboutTheChunk_makeNoSuspect", () => {
    for (const why of [
      failure("retry", "notSent"),
      failure("retry", "refused"),
      failure("configuration"),
      failure("ceiling", "notSent"),
    ]) {
      const suspects = failing(3, 10, why);
      suspects.answered(2);
      assert.equal(suspects.choose([3, 1]), 3);
    }
  });

  it("suspect_comesLast_andItsFailuresCountOnlyBetweenAnswers", () => {
    const suspects = failing(3, 3);
    suspects.answered(2);
    assert.equal(suspects.choose([3, 1]), 1);
    assert.equal(suspects.choose([3]), 3);
    assert.equal(suspects.failed(3, failure()), true);
    assert.equal(suspects.failed(3, failure()), false);
    suspects.answered(1);
    assert.equal(suspects.failed(3, failure()), true);
  });

  it("suspect_thatIsAnsweredAfterAll_isNoneAnyMore", () => {
    const suspects = failing(3, 3);
    suspects.answered(2);
    suspects.answered(3);
    assert.equal(suspects.failed(3, failure()), false);
    assert.equal(suspects.choose([3, 1]), 3);
  });

  it("anotherThatFailsAsWell_clearsTheFirst", () => {
    const suspects = failing(3, 3);
    assert.equal(suspects.failed(2, failure()), false);
    assert.equal(suspects.choose([3, 2, 1]), 3);
    suspects.answered(1);
    assert.equal(suspects.choose([3, 2]), 3);
  });

  it("anotherProvider_beginsWithoutSuspects", () => {
    const suspects = failing(3, 3);
    suspects.answered(2);
    suspects.clear();
    assert.equal(suspects.choose([3, 1]), 3);
  });
});
