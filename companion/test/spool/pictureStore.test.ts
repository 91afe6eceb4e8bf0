import assert from "node:assert/strict";
import { it } from "node:test";
import { type Disk, realDisk } from "../../src/spool/disk.ts";
import { SpoolLayout } from "../../src/spool/layout.ts";
import { defaultQuotaBytes, PictureStore } from "../../src/spool/pictureStore.ts";
import { type Chunk, SpooledFrame } from "../../src/spool/records.ts";
import { framePayload } from "../support/payloads.ts";

function chunkOf(id: number, frameCount: number): Chunk {
  const frames = Array.from({ length: frameCount }, (_, frame) =>
    SpooledFrame.parse({ ...framePayload(frame), batch: id, frame, pictureBytes: 10 }),
  );
  const session = { id: "s", startedAtMs: 0 };
  const through = { batch: id, frame: frameCount - 1 };
  return { version: 1, id, session, stoppedAtMs: undefined, through, gaps: undefined, frames };
}

it("defaultQuota_isTwoGigabytesOrAShareOfTheFreeDisk", () => {
  assert.equal(defaultQuotaBytes(1e12), 2e9);
  assert.equal(defaultQuotaBytes(40e9), 2e9);
  assert.equal(defaultQuotaBytes(10e9), 0.5e9);
  assert.equal(defaultQuotaBytes(0), 0);
});

it("pictures_ofAChunkThatGoesWhileTheyAreThinned_countNoMore", async () => {
  const removed: string[] = [];
  const disk: Disk = {
    ...realDisk,
    async remove(path) {
      removed.push(path);
      // The engine has finished with the chunk in the meantime.
      store.forget(1);
    },
  };
  const store = new PictureStore(disk, new SpoolLayout("/nowhere"));
  for (const chunk of [chunkOf(1, 5), chunkOf(2, 2)]) {
    store.add(
      chunk,
      chunk.frames.map((frame) => frame.pictureBytes),
    );
  }
  assert.equal(await store.shrinkTo(30), 1);
  assert.deepEqual(removed, ["/nowhere/pending/1/1-1.jpg"]);
  assert.equal(store.bytes, 20);
  store.forget(2);
  assert.equal(store.bytes, 0);
});

it("pictures_thatTwoMakeRoomWith_countOnce", async () => {
  const disk: Disk = { ...realDisk, remove: async () => {} };
  const store = new PictureStore(disk, new SpoolLayout("/nowhere"));
  const chunk = chunkOf(1, 3);
  store.add(
    chunk,
    chunk.frames.map((frame) => frame.pictureBytes),
  );
  await Promise.all([store.shrinkTo(10), store.shrinkTo(10)]);
  assert.ok(store.bytes >= 0, `${store.bytes} bytes`);
  await store.shrinkTo(0);
  assert.equal(store.bytes, 0);
});
