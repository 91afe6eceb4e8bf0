import assert from "node:assert/strict";
import { describe, it } from "node:test";
import {
  analyseChunk,
  finishSession,
  initialState,
  type LocalState,
  parseState,
} from "../../src/analysis/localAnalyser.ts";
import { InvalidRecord } from "../../src/wire/schema.ts";
import { frameAt, framesBetween, pageOf, START_MS, windowOf } from "../support/observedFrames.ts";
import { analyse, analyseToStop, told } from "../support/toldBullets.ts";

const A = windowOf("Alpha", "one");
const B = windowOf("Beta", "two");
const C = windowOf("Gamma", "three");
const noteA = '[Alpha] Viewed: "one"';
const noteB = '[Beta] Viewed: "two"';

describe("analyseChunk", () => {
  it("tenSecondsInFront_areNoted_atTheirBeginning", () => {
    assert.deepEqual(analyse(framesBetween(3, 14, A)), [[3, noteA]]);
  });

  it("lessThanTenSeconds_areNot", () => {
    assert.deepEqual(analyse(framesBetween(0, 10, A)), []);
    assert.deepEqual(analyse([frameAt(0, A), frameAt(9.999, A)]), []);
    assert.deepEqual(analyse([frameAt(0, A), frameAt(10, A)]), [[0, noteA]]);
  });

  it("stay_isCreditedUntilTheFrameThatEndsIt", () => {
    assert.deepEqual(analyse([frameAt(0, A), frameAt(12, B)]), [[0, noteA]]);
  });

  it("glanceElsewhere_isMerged_andNotNoted", () => {
    const frames = [
      ...framesBetween(0, 6, A),
      ...framesBetween(6, 10, B),
      ...framesBetween(10, 17, A),
    ];
    assert.deepEqual(analyse(frames), [[10, noteA]]);
  });

  it("switchingToAndFro_notesBoth_inOrderOfTheRunsThatReachedTheThreshold", () => {
    const frames = framesBetween(0, 60, (index) => (index % 2 === 0 ? A : B));
    assert.deepEqual(analyse(frames), [
      [16, noteA],
      [18, noteB],
    ]);
  });

  it("staysThatLieMoreThanTwoMinutesApart_areNotMerged", () => {
    const frames = [
      ...framesBetween(0, 8, A),
      ...framesBetween(8, 130, B),
      ...framesBetween(130, 136, A),
      frameAt(136, B),
    ];
    assert.deepEqual(analyse(frames), [[8, noteB]]);
  });

  it("onlyTheCreditWithinTheWindow_counts", () => {
    // The first 4 s lie in the window until 120 and have left it at 124.
    const late = (seconds: number) => [
      ...framesBetween(0, 4, A),
      ...framesBetween(4, 118, B),
      frameAt(118, A),
      frameAt(118 + seconds, C),
    ];
    assert.deepEqual(analyse(late(6)), [[4, noteB]]);
    assert.deepEqual(analyse(late(9.9)), [[4, noteB]]);
    assert.deepEqual(analyse(late(10)), [
      [4, noteB],
      [118, noteA],
    ]);
  });

  it("notedSegment_isSilentWhileItIsSeen", () => {
    assert.deepEqual(analyse(framesBetween(0, 3600, A)), [[0, noteA]]);
  });

  it("notedSegment_comesAgainOnlyAfterTenMinutesUnseen", () => {
    const back = (at: number) => [
      ...framesBetween(0, 20, A),
      ...framesBetween(20, at, B),
      ...framesBetween(at, at + 20, A),
    ];
    assert.deepEqual(analyse(back(600)), [
      [0, noteA],
      [20, noteB],
    ]);
    assert.deepEqual(analyse(back(620)), [
      [0, noteA],
      [20, noteB],
      [620, noteA],
    ]);
  });

  it("silence_countsFromTheEndOfTheCreditedGap", () => {
    // Last frame at 18, so seen until 33.
    const back = (at: number) => [
      ...framesBetween(0, 20, A),
      frameAt(100, B),
      frameAt(at, A),
      frameAt(at + 12, B),
    ];
    assert.equal(analyse(back(632.9)).length, 2);
    assert.deepEqual(analyse(back(633)).at(-1), [633, noteA]);
  });

  it("glanceWithinTheSilence_prolongsIt", () => {
    const frames = [
      ...framesBetween(0, 20, A),
      ...framesBetween(20, 400, B),
      frameAt(400, A),
      ...framesBetween(402, 800, B),
      ...framesBetween(800, 840, A),
    ];
    assert.deepEqual(analyse(frames), [
      [0, noteA],
      [20, noteB],
    ]);
  });

  it("pageReadWithoutAChange_isCreditedFifteenSecondsForTheGap", () => {
    assert.deepEqual(analyse([frameAt(0, A), frameAt(100, B), frameAt(101, A)]), [[0, noteA]]);
    const { state } = analyseChunk(initialState(), [frameAt(0, A)]);
    assert.deepEqual(told(finishSession(state, START_MS + 3_600_000).bullets), [[0, noteA]]);
  });

  it("gapOfMoreThanTwoMinutes_beginsANewRun", () => {
    const frames = [...framesBetween(0, 6, A), frameAt(1000, A), frameAt(1011, A)];
    assert.deepEqual(analyse(frames), [
      [0, noteA],
      [1000, noteA],
    ]);
  });

  it("framesOfTwoDisplaysOfTheSameMoment_areCountedOnce", () => {
    const twice = framesBetween(0, 9, A).flatMap((frame) => [
      frame,
      { ...frame, displayId: "2", displayLabel: "Display 2" },
    ]);
    assert.deepEqual(analyse(twice), []);
    const staggered = framesBetween(0, 9, A).flatMap((frame) => [
      frame,
      { ...frame, receivedAtMs: frame.receivedAtMs + 40, displayId: "2" },
    ]);
    assert.deepEqual(analyse(staggered), []);
  });

  it("framesOfTwoDisplaysOutOfOrder_areCountedOnce", () => {
    const frames = [
      frameAt(0, A),
      frameAt(4, A),
      frameAt(1, A, "2"),
      frameAt(5, A),
      frameAt(3, A, "2"),
    ];
    assert.deepEqual(analyse([...frames, frameAt(9.9, A)]), []);
    assert.deepEqual(analyse([...frames, frameAt(10, A)]), [[0, noteA]]);
  });

  it("overlappingChunks_countTheOverlapOnce", () => {
    const frames = framesBetween(0, 10, A);
    const first = analyseChunk(initialState(), frames);
    const second = analyseChunk(first.state, [
      ...frames.slice(2),
      ...framesBetween(9, 9.8, A, 0.2),
    ]);
    assert.deepEqual(second.bullets, []);
    assert.deepEqual(told(analyseChunk(second.state, [frameAt(10, A)]).bullets), [[0, noteA]]);
  });

  it("repeatedChunk_changesNothing", () => {
    const frames = [
      ...framesBetween(0, 8, A),
      ...framesBetween(8, 40, B),
      ...framesBetween(40, 44, A),
    ];
    const once = analyseChunk(initialState(), frames);
    assert.deepEqual(analyseChunk(once.state, frames), { state: once.state, bullets: [] });
  });

  it("repeatedChunkAfterTheStop_changesNothing", () => {
    const frames = framesBetween(0, 40, A);
    const stopped = finishSession(analyseChunk(initialState(), frames).state, START_MS + 40_000);
    const again = analyseChunk(stopped.state, frames.slice(0, -1));
    assert.deepEqual(again, { state: stopped.state, bullets: [] });
  });

  it("clockSetBackByAnHour_losesNothingAndCountsNothingTwice", () => {
    const frames = [
      ...framesBetween(3600, 3606, A),
      ...framesBetween(0, 4, A),
      ...framesBetween(4, 20, B),
      ...framesBetween(20, 30, A),
    ];
    // 4 s before the step, 4 s after it, and the rest in the run that begins at 20.
    assert.deepEqual(analyse(frames), [
      [4, noteB],
      [20, noteA],
    ]);
  });

  it("clockSetBackDuringAStay_beginsItsRunAnew", () => {
    const frames = [...framesBetween(3600, 3606, A), ...framesBetween(0, 9, A)];
    assert.deepEqual(analyse(frames), [[0, noteA]]);
  });

  it("clockSetForward_isAGap", () => {
    const frames = [...framesBetween(0, 4, A), ...framesBetween(7200, 7212, B)];
    assert.deepEqual(analyse(frames), [
      [0, noteA],
      [7200, noteB],
    ]);
  });

  it("smallStepBack_standsStill", () => {
    const frames = [...framesBetween(0, 8, A), ...framesBetween(3, 8, A), frameAt(9.9, A)];
    assert.deepEqual(analyse(frames), []);
  });

  it("ownWindow_isNotNoted_andEndsTheStayBeforeIt", () => {
    const own = windowOf("Tamsk Ostrel", "Journal");
    assert.deepEqual(analyse(framesBetween(0, 60, own)), []);
    assert.deepEqual(analyse(framesBetween(0, 60, "Tamsk Ostrel")), []);
    assert.deepEqual(analyse([...framesBetween(0, 5, A), frameAt(5, own), frameAt(30, own)]), []);
  });

  it("shownTitle_isTheNewestOfTheSegment", () => {
    const frames = [
      frameAt(0, windowOf("Alpha", "Copying 1%")),
      frameAt(5, windowOf("Alpha", "Copying 40%")),
      frameAt(9, windowOf("Alpha", "COPYING 80%")),
      frameAt(11, B),
    ];
    assert.deepEqual(analyse(frames), [[0, '[Alpha] Viewed: "COPYING 80%"']]);
  });

  it("spinnerCountsAndMarks_areOneSegment", () => {
    const spinner = ["⠋", "⠙", "⠹"];
    const mark = ["● ", ""];
    assert.deepEqual(
      analyse(
        framesBetween(0, 40, (index) => windowOf("Konsole", `${spinner[index % 3]} npm test`)),
      ),
      [[0, '[Terminal] Viewed: "npm test"']],
    );
    assert.deepEqual(
      analyse(
        framesBetween(0, 40, (index) =>
          pageOf("mail.google.com", `Inbox (${index}) - j@a.test - Gmail`),
        ),
      ),
      [[0, '[Gmail] Viewed: "Inbox" of j@a.test']],
    );
    assert.deepEqual(
      analyse(
        framesBetween(0, 240, (index) =>
          windowOf("Code", `${mark[index % 2]}queue.ts - observer - Visual Studio Code`),
        ),
      ),
      [[0, "[VS Code] Edited: queue.ts in observer, unsaved changes"]],
    );
  });

  it("unsavedMarkSeenBeforeTheNote_makesItEdited", () => {
    const frames = [
      frameAt(0, windowOf("Mousepad", "Untitled 1 - Mousepad")),
      frameAt(3, windowOf("Mousepad", "*Untitled 1 - Mousepad")),
      frameAt(6, windowOf("Mousepad", "Untitled 1 - Mousepad")),
      frameAt(13, B),
    ];
    assert.deepEqual(analyse(frames), [[0, '[Mousepad] Edited: "Untitled 1", unsaved changes']]);
  });

  it("unsavedMarkOfAnExpiredStay_isForgotten", () => {
    const frames = [
      ...framesBetween(0, 4, windowOf("Mousepad", "*a - Mousepad")),
      ...framesBetween(4, 200, B),
      ...framesBetween(200, 214, windowOf("Mousepad", "a - Mousepad")),
    ];
    assert.deepEqual(analyse(frames), [
      [4, noteB],
      [200, '[Mousepad] Viewed: "a"'],
    ]);
  });

  it("givenState_staysAsItIs", () => {
    const { state } = analyseChunk(initialState(), framesBetween(0, 8, A));
    const copy = structuredClone(state);
    analyseChunk(state, framesBetween(8, 60, B));
    finishSession(state, START_MS + 60_000);
    assert.deepEqual(state, copy);
  });

  it("titlesThatChangeWithEveryFrame_leaveTheStateBounded", () => {
    const frames = framesBetween(0, 1000, (index) => windowOf("Alpha", `title ${index} end`), 0.1);
    const { state, bullets } = analyseChunk(initialState(), frames);
    assert.deepEqual(bullets, []);
    assert.ok(JSON.stringify(state).length < 100_000);
  });
});

describe("finishSession", () => {
  it("stop_creditsTheOpenSegment", () => {
    assert.deepEqual(analyseToStop(framesBetween(0, 6, A), 10), [[0, noteA]]);
    assert.deepEqual(analyseToStop(framesBetween(0, 6, A), 9.9), []);
  });

  it("stopBeforeTheLastFrame_creditsNothing", () => {
    assert.deepEqual(analyseToStop(framesBetween(0, 10, A), -500), []);
  });

  it("secondFinish_addsNothing", () => {
    const { state } = analyseChunk(initialState(), framesBetween(0, 6, A));
    const finished = finishSession(state, START_MS + 60_000);
    assert.deepEqual(finishSession(finished.state, START_MS + 90_000).bullets, []);
  });

  it("nextSession_notesWhatIsInFrontAnew", () => {
    const first = analyseChunk(initialState(), framesBetween(0, 20, A));
    const stopped = finishSession(first.state, START_MS + 20_000);
    const second = analyseChunk(stopped.state, framesBetween(60, 80, A));
    assert.deepEqual(told(second.bullets), [[60, noteA]]);
  });

  it("creditOfTheFormerSession_doesNotCountInTheNext", () => {
    const first = analyseChunk(initialState(), framesBetween(0, 8, A));
    const stopped = finishSession(first.state, START_MS + 8_000);
    assert.deepEqual(analyseChunk(stopped.state, framesBetween(10, 16, A)).bullets, []);
  });

  it("emptySession_hasNoBullets", () => {
    assert.deepEqual(finishSession(initialState(), START_MS), {
      state: initialState(),
      bullets: [],
    });
  });
});

describe("parseState", () => {
  const used = (): LocalState =>
    analyseChunk(initialState(), [
      ...framesBetween(0, 20, A),
      ...framesBetween(20, 24, B),
      ...framesBetween(24, 30, undefined),
    ]).state;

  it("storedState_isReadBackWhole", () => {
    for (const state of [initialState(), used()]) {
      assert.deepEqual(parseState(JSON.parse(JSON.stringify(state))), state);
    }
  });

  it("foreignShapes_areRefused", () => {
    const state = used();
    const foreign: readonly unknown[] = [
      null,
      undefined,
      [],
      "{}",
      {},
      { ...state, version: 2 },
      { ...state, clockMs: -1 },
      { ...state, clockMs: 0.5 },
      { ...state, lastFrameMs: "0" },
      { ...state, open: { key: "a" } },
      { ...state, segments: [{ key: "a" }] },
      { ...state, recentFrameMs: [null] },
      { ...state, extra: true },
      { ...state, activity: undefined },
    ];
    for (const json of foreign) {
      assert.throws(() => parseState(json), InvalidRecord, JSON.stringify(json));
    }
  });
});
