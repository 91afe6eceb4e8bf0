import assert from "node:assert/strict";
import { describe, it } from "node:test";
import {
  contextText,
  frameAt,
  framesBetween,
  pageOf,
  windowOf,
} from "../support/observedFrames.ts";
import { analyse, analyseToStop } from "../support/toldBullets.ts";

const A = windowOf("Alpha", "one");
const B = windowOf("Beta", "two");
const noteA = '[Alpha] Viewed: "one"';
const noteB = '[Beta] Viewed: "two"';

describe("a recorded desktop", () => {
  it("terminalAndEditorThirteenSecondsEach_areNotedEach", () => {
    // Frames only where the picture changes, as when somebody types and pauses.
    const frames = [
      frameAt(0.4, windowOf("XTerm", "notes — bash")),
      frameAt(2.4, windowOf("XTerm", "notes — bash")),
      frameAt(6.4, windowOf("XTerm", "notes — bash")),
      frameAt(14.4, windowOf("Mousepad", "Untitled 1 - Mousepad")),
      frameAt(16.4, windowOf("Mousepad", "*Untitled 1 - Mousepad")),
    ];
    assert.deepEqual(analyseToStop(frames, 27), [
      [0.4, '[Terminal] Viewed: "notes — bash"'],
      [14.4, '[Mousepad] Edited: "Untitled 1", unsaved changes'],
    ]);
  });

  it("namesAlone_areNotedEach", () => {
    const frames = [frameAt(0, "XTerm"), frameAt(2, "XTerm"), frameAt(13, "Mousepad")];
    assert.deepEqual(analyseToStop(frames, 26), [
      [0, "[Terminal] Open: XTerm in front"],
      [13, "[Mousepad] Open: in front"],
    ]);
  });

  it("halfAnHourOfWork_isToldInAFewBullets", () => {
    const review = pageOf("github.com", "Fix crash by jane · Pull Request #12 · acme/widgets");
    const inbox = (count: number) =>
      pageOf("mail.google.com", `Inbox (${count}) - jane@a.test - Gmail`);
    const code = (file: string) => windowOf("Code", `${file} - observer - Visual Studio Code`);
    const frames = [
      ...framesBetween(0, 120, review),
      ...framesBetween(120, 124, inbox(3)),
      ...framesBetween(124, 184, review),
      ...framesBetween(184, 424, (index) => code(index % 2 === 0 ? "queue.ts" : "● queue.ts")),
      ...framesBetween(424, 504, (index) => code(index % 9 < 3 ? "queue.test.ts" : "queue.ts")),
      ...framesBetween(504, 544, (index) => windowOf("Konsole", `${"⠋⠙⠹"[index % 3]} npm test`)),
      ...framesBetween(544, 724, (index) => inbox(3 + index)),
      ...framesBetween(724, 1024, pageOf("docs.google.com", "Quarterly plan - Google Docs")),
      ...framesBetween(1024, 1030, windowOf("Dolphin", "Downloads")),
      ...framesBetween(1030, 1430, pageOf("meet.google.com", "Meet - Weekly sync")),
      ...framesBetween(1430, 1550, pageOf("news.example.org", "Markets <!-- x --> rise")),
    ];
    assert.deepEqual(analyse(frames), [
      [0, '[GitHub] Viewed: pull request #12 "Fix crash" by jane in acme/widgets'],
      [184, "[VS Code] Edited: queue.ts in observer, unsaved changes"],
      [442, "[VS Code] Viewed: queue.test.ts in observer"],
      [504, '[Terminal] Viewed: "npm test"'],
      [544, '[Gmail] Viewed: "Inbox" of jane@a.test'],
      [724, '[Google Docs] Viewed: "Quarterly plan"'],
      [1030, '[Google Meet] Call: "Weekly sync" in front'],
      [1430, '[news.example.org] Viewed: "Markets x rise"'],
    ]);
  });
});

describe("pictures without context text", () => {
  const silent = (from: number, until: number) => framesBetween(from, until, undefined);

  it("activityOfADisplay_isNotedWithItsLength_atTheStop", () => {
    assert.deepEqual(analyseToStop(silent(0, 42), 60), [
      [0, "[Screen] Activity: Display 1 (main) for 40 s"],
    ]);
  });

  it("activityOfTwoDisplays_isOneNote_andCountedOnce", () => {
    const both = silent(0, 42).flatMap((frame) => [
      frame,
      { ...frame, displayId: "2", displayLabel: "Display 2" },
    ]);
    assert.deepEqual(analyseToStop(both, 60), [
      [0, "[Screen] Activity: Display 1 (main) and Display 2 for 40 s"],
    ]);
  });

  it("manyDisplays_areNotAllNamed", () => {
    const frames = [1, 2, 3, 4, 5, 6].map((id) => frameAt(id * 3, undefined, String(id)));
    assert.deepEqual(analyseToStop(frames, 30), [
      [
        3,
        "[Screen] Activity: Display 1 (main), Display 2, Display 3, Display 4 and others for 15 s",
      ],
    ]);
  });

  it("stillPicture_isNoActivity", () => {
    assert.deepEqual(analyseToStop([frameAt(0)], 3600), []);
    assert.deepEqual(
      analyseToStop(
        [0, 60, 120, 180].map((at) => frameAt(at)),
        3600,
      ),
      [],
    );
  });

  it("contextThatComesBack_endsIt_andBothAreInOrder", () => {
    const frames = [...framesBetween(0, 12, A), ...silent(12, 40), ...framesBetween(40, 60, B)];
    assert.deepEqual(analyse(frames), [
      [0, noteA],
      [12, "[Screen] Activity: Display 1 (main) for 26 s"],
      [40, noteB],
    ]);
  });

  it("longActivity_isToldInPieces", () => {
    const notes = analyseToStop(silent(0, 1500), 1500);
    assert.deepEqual(notes, [
      [0, "[Screen] Activity: Display 1 (main) for 10 min"],
      [602, "[Screen] Activity: Display 1 (main) for 10 min"],
      [1204, "[Screen] Activity: Display 1 (main) for 4 min"],
    ]);
  });

  it("labelOfADisplay_isMadeFit", () => {
    const frames = silent(0, 20).map((frame) => ({
      ...frame,
      displayLabel: "[x]\n<!-- key:1 -->",
    }));
    assert.deepEqual(analyseToStop(frames, 20), [[0, "[Screen] Activity: x key:1 for 18 s"]]);
    const nameless = silent(0, 20).map((frame) => ({ ...frame, displayLabel: "" }));
    assert.deepEqual(analyseToStop(nameless, 20), [[0, "[Screen] Activity: a display for 18 s"]]);
  });
});

describe("context of a browser", () => {
  it("focusThatChanges_isTheSameSegment", () => {
    const focus = ["text area", "button"];
    const frames = framesBetween(0, 14, (index) =>
      contextText({
        app: "Chromium",
        website: "example.org",
        page: "Form",
        focus: focus[index % 2] ?? "",
      }),
    );
    assert.deepEqual(analyse(frames), [[0, '[example.org] Viewed: "Form"']]);
  });
});
