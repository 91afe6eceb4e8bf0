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

/** A disk that holds the records of the chunks, and nothing else. */
function diskWith(...chunks: readonly Chunk[]): Disk {
  const records = new Map(
    chunks.map((chunk) => [`/nowhere/pending/${chunk.id}/chunk.json`, JSON.stringify(chunk)]),
  );
  return {
    ...realDisk,
    size: async (path) => records.get(path)?.length,
    readText: async (path) => records.get(path) ?? "",
    remove: async () => {},
  };
}

it("defaultQuota_isTwoGigabytesOrAShareOfTheFreeDisk", () => {
  assert.equal(defaultQuotaBytes(1e12), 2e9);
  assert.equal(defaultQuotaBytes(40e9), 2e9);
  assert.equal(defaultQuotaBytes(10e9), 0.5e9);
  assert.equal(defaultQuotaBytes(0), 0);
});

it("pictures_ofAChunkThatGoesWhileTheyAreThinned_countNoMore", async () => {
  const removed: string[] = [];
  const chunks = [chunkOf(1, 5), chunkOf(2, 2)];
  const disk: Disk = {
    ...diskWith(...chunks),
    async remove(path) {
      removed.push(path);
      // The engine has finished with the chunk in the meantime.
      store.forget(1);
    },
  };
  const store = new PictureStore(disk, new SpoolLayout("/nowhere"));
  for (const chunk of chunks) {
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
  const chunk = chunkOf(1, 3);
  const store = new PictureStore(diskWith(chunk), new SpoolLayout("/nowhere"));
  store.add(
    chunk,
    chunk.frames.map((frame) => frame.pictureBytes),
  );
  await Promise.all([store.shrinkTo(10), store.shrinkTo(10)]);
  assert.ok(store.bytes >= 0, `${store.bytes} bytes`);
  await store.shrinkTo(0);
  assert.equal(store.bytes, 0);
});

it("chunk_thatCannotBeRead_keepsItsPictures_andOthersGiveWay", async () => {
  const [first, second] = [chunkOf(1, 3), chunkOf(2, 3)];
  const store = new PictureStore(diskWith(second), new SpoolLayout("/nowhere"));
  for (const chunk of [second, first]) store.add(chunk, [10, 10, 10]);
  assert.equal(await store.shrinkTo(0), 1);
  assert.equal(store.bytes, 30);
});
