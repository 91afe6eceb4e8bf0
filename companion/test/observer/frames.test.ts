import assert from "node:assert/strict";
import { readFileSync } from "node:fs";
import { join } from "node:path";
import { describe, it } from "node:test";
import { JsonError } from "../../src/json/tokenizer.ts";
import { NotRecording } from "../../src/observer/errors.ts";
import { type Disk, realDisk } from "../../src/spool/disk.ts";
import { InvalidRecord } from "../../src/wire/schema.ts";
import { fillableDisk } from "../support/fillableDisk.ts";
import { body, ObserverHarness } from "../support/observerHarness.ts";
import { framePayload } from "../support/payloads.ts";

const startMs = 1_795_250_000_000;
const at = (seconds: number) => framePayload(startMs + seconds * 1000, { text: `at ${seconds}` });

describe("frames", () => {
  it("frames_withoutSession_areRefusedAndNotKept", async () => {
    const harness = await ObserverHarness.open();
    await assert.rejects(harness.send([at(0)]), NotRecording);
    await harness.observer.start();
    await harness.observer.stop();
    await assert.rejects(harness.send([at(0)]), NotRecording);
    assert.deepEqual(harness.names("incoming"), []);
  });

  it("frames_areOnTheDiskAndSyncedBeforeTheAnswer", async () => {
    const steps: string[] = [];
    const name = (path: string) => path.slice(path.indexOf("/observer/") + "/observer/".length);
    const disk: Disk = {
      ...realDisk,
      async createFile(path) {
        steps.push(`create ${name(path)}`);
        const file = await realDisk.createFile(path);
        return {
          ...file,
          async finish() {
            await file.finish();
            steps.push(`synced ${name(path)}`);
          },
        };
      },
      async syncFolder(path) {
        await realDisk.syncFolder(path);
        steps.push(`synced ${name(path)}`);
      },
      async move(from, to) {
        await realDisk.move(from, to);
        steps.push(`moved ${name(to)}`);
      },
    };
    const harness = await ObserverHarness.open({ disk });
    await harness.observer.start();
    steps.length = 0;
    await harness.send([at(0), at(2)]);
    assert.deepEqual(steps, [
      "create incoming/1.partial/frames.jsonl",
      "create incoming/1.partial/picture",
      "create incoming/1.partial/picture",
      "synced incoming/1.partial/picture",
      "synced incoming/1.partial/picture",
      "synced incoming/1.partial/frames.jsonl",
      "synced incoming/1.partial",
      "moved incoming/1",
    ]);
    assert.deepEqual(harness.names("incoming", "1"), ["1-0.jpg", "1-1.jpg", "frames.jsonl"]);
    const picture = readFileSync(join(harness.layout.batch(1), "1-0.jpg")).toString("base64");
    assert.equal(picture, at(0).videoBase64);
  });

  it("batch_empty_isAcceptedAndLeavesNothing", async () => {
    const harness = await ObserverHarness.open();
    await harness.observer.start();
    await harness.send([]);
    assert.deepEqual(harness.names("incoming"), []);
  });

  it("batch_frameWithoutPicture_keepsItsText", async () => {
    const harness = await ObserverHarness.open();
    await harness.observer.start();
    await harness.send([{ ...at(0), videoBase64: "" }]);
    await harness.observer.stop();
    assert.deepEqual(harness.lines, ["at 0", "end of 1"]);
  });

  const text = JSON.stringify({ frames: [at(0), at(2), at(4)] });
  const damaged: readonly (readonly [string, string, typeof JsonError | typeof InvalidRecord])[] = [
    ["cutOffInTheMiddle", text.slice(0, text.length / 2), JsonError],
    ["noJsonHalfWay", text.replace('"at 4"', "at 4"), JsonError],
    ["noRecordHalfWay", text.replace('"at 4"', "4"), InvalidRecord],
    ["noBase64HalfWay", text.replace(/\/9j(?!.*\/9j)/, "/9?"), InvalidRecord],
    ["noDateHalfWay", text.replace(`${startMs + 4000}`, "9223372036854775807"), InvalidRecord],
    ["timeBefore1970", text.replace(`${startMs + 4000}`, "-1"), InvalidRecord],
  ];
  for (const [name, damagedText, errorType] of damaged) {
    it(`batch_${name}_isRemovedWhole`, async () => {
      const harness = await ObserverHarness.open();
      await harness.observer.start();
      for (const pieceBytes of [10, 100_000]) {
        const received = harness.observer.receiveFrames(body(damagedText, pieceBytes));
        await assert.rejects(received, errorType);
        assert.deepEqual(harness.names("incoming"), []);
      }
      await harness.send([at(6)]);
      await harness.observer.stop();
      assert.deepEqual(harness.lines, ["at 6", "end of 1"]);
    });
  }

  it("batch_senderGoesAwayInTheMiddle_isRemovedWhole", async () => {
    const harness = await ObserverHarness.open();
    await harness.observer.start();
    async function* brokenBody() {
      yield Buffer.from(text.slice(0, text.length - 20));
      throw new Error("gone");
    }
    await assert.rejects(harness.observer.receiveFrames(brokenBody()), /gone/);
    assert.deepEqual(harness.names("incoming"), []);
  });

  it("batch_second_waitsItsTurn", async () => {
    const harness = await ObserverHarness.open();
    await harness.observer.start();
    let letGo = () => {};
    const gate = new Promise<void>((resolve) => {
      letGo = resolve;
    });
    const seen: string[] = [];
    async function* firstBody() {
      seen.push("first begins");
      yield Buffer.from(text.slice(0, 40));
      await gate;
      yield Buffer.from(text.slice(40));
      seen.push("first ends");
    }
    async function* secondBody() {
      seen.push("second begins");
      yield Buffer.from(JSON.stringify({ frames: [at(6)] }));
    }
    const first = harness.observer.receiveFrames(firstBody());
    const second = harness.observer.receiveFrames(secondBody());
    const stop = harness.observer.stop();
    letGo();
    await Promise.all([first, second, stop]);
    assert.deepEqual(seen, ["first begins", "first ends", "second begins"]);
    assert.deepEqual(harness.lines, ["at 0", "at 2", "at 4", "at 6", "end of 4"]);
  });

  it("batch_onAFullDisk_isRemovedWholeAndSaysSo", async () => {
    const { disk, state } = fillableDisk();
    const harness = await ObserverHarness.open({ disk });
    await harness.observer.start();
    async function* bodyThatFillsTheDisk() {
      const half = text.indexOf('"at 2"');
      yield Buffer.from(text.slice(0, half));
      state.isFull = true;
      yield Buffer.from(text.slice(half));
    }
    await assert.rejects(harness.observer.receiveFrames(bodyThatFillsTheDisk()), /ENOSPC/);
    assert.deepEqual(harness.names("incoming"), []);
    assert.equal(
      harness.observer.status().lastError,
      "The frames can't be kept: The disk is full. Delete some files on that disk to make room.",
    );
    state.isFull = false;
    assert.equal((await harness.send([at(6)])).lastError, undefined);
    await harness.observer.stop();
    const gap = "[Ostrel] Gap: 08:33:20 to 08:33:26, the disk was full";
    assert.deepEqual(harness.lines, [gap, "at 6", "end of 1"]);
  });

  it("batch_thatCannotEvenBegin_leavesNothing", async () => {
    const { disk, state } = fillableDisk();
    const harness = await ObserverHarness.open({ disk });
    await harness.observer.start();
    state.isFull = true;
    await assert.rejects(harness.send([at(0)]), /ENOSPC/);
    assert.deepEqual(harness.names("incoming"), []);
  });

  it("status_neverTouchesTheDisk", async () => {
    const state = { isForbidden: false };
    const disk = new Proxy(realDisk, {
      get(target, name, receiver) {
        assert.equal(state.isForbidden, false, String(name));
        return Reflect.get(target, name, receiver);
      },
    });
    const harness = await ObserverHarness.open({ disk });
    await harness.observer.start();
    await harness.send([at(0)]);
    state.isForbidden = true;
    assert.equal(harness.observer.status().running, true);
    state.isForbidden = false;
  });
});
