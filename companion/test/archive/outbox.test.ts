import assert from "node:assert/strict";
import { execFileSync } from "node:child_process";
import { mkdirSync, readdirSync, readFileSync, writeFileSync } from "node:fs";
import { join } from "node:path";
import { describe, it } from "node:test";
import { SecretStoreFailure } from "../../src/archive/keys/secretStore.ts";
import { ArchiveHarness, TestKeyring } from "../support/archiveHarness.ts";
import {
  anyFolder,
  archiveTurnedOn,
  archiveWithTwoChunks,
  day,
  frames,
  startMs,
  survivors,
} from "../support/footage.ts";
import { ManualClock } from "../support/manualClock.ts";
import { temporaryHome } from "../support/temporaryHome.ts";

describe("uploads", () => {
  it("chunk_finished_isStoredAndListedAndThenLeavesTheDisk", async () => {
    const { harness, target } = await archiveWithTwoChunks();
    assert.equal(target.names("/clips/").length, 3);
    assert.equal(target.names("/manifest/").length, 1);
    assert.deepEqual(readdirSync(join(harness.home, "observer", "archive", "items")), []);
    assert.deepEqual(readdirSync(harness.layout.pending), []);
    assert.equal(harness.complaints.size, 0);
  });

  it("clips_inTheLastMinutes_shareOnePartOfTheList", async () => {
    const clock = new ManualClock();
    const { harness, target } = await archiveTurnedOn({ clock });
    for (let id = 1; id <= 5; id += 1) await harness.finish(id, frames(id * 5, 5));
    await harness.archive.settled();
    assert.deepEqual([target.names("/clips/").length, target.names("/manifest/").length], [5, 0]);
    clock.advance(600_000);
    await harness.archive.settled();
    assert.equal(target.names("/manifest/").length, 1);
    assert.equal((await harness.archive.estimate({ fromDate: day, toDate: day })).clips, 5);
  });

  it("backlog_isListedWhileItIsStored", async () => {
    const { harness, target } = await archiveTurnedOn();
    target.fail();
    for (let id = 1; id <= 60; id += 1) await harness.finish(id, frames(id, 1));
    await harness.archive.settled();
    target.mend();
    harness.clock.advance(5_000);
    await harness.archive.settled();
    const puts = target.calls.filter((call) => call.startsWith("put "));
    const listed = puts.findIndex((call) => call.includes("/manifest/"));
    assert.ok(
      puts.slice(listed).some((call) => call.includes("/clips/")),
      "not only at the end",
    );
    assert.equal(readdirSync(join(harness.home, "observer", "archive", "items")).length, 10);
  });

  it("chunksOfTwoDays_areListedApart", async () => {
    const { harness, target } = await archiveTurnedOn();
    await harness.finish(1, frames(0, 2));
    await harness.finish(2, frames(12 * 3600, 2));
    const all = await harness.archive.estimate({ fromDate: day, toDate: "2026-11-22" });
    assert.equal(all.clips, 2);
    assert.equal((await harness.archive.estimate({ fromDate: day, toDate: day })).clips, 1);
    assert.equal(target.names("/manifest/").length, 2);
  });

  it("target_thatIsGone_getsTheSameBytesLater", async () => {
    const { harness, target } = await archiveTurnedOn();
    target.fail();
    await harness.finish(1, frames(0, 3));
    await harness.archive.settled();
    assert.match(harness.complaints.get("archive") ?? "", /Footage waits .* can't be reached/);
    const folder = join(harness.home, "observer", "archive", "items", "1");
    assert.deepEqual(readdirSync(folder).sort(), ["0.age", "clips.json"]);
    const encrypted = readFileSync(join(folder, "0.age"));
    target.mend();
    harness.clock.advance(5_000);
    await harness.archive.settled();
    assert.ok(target.objects.get(target.names("/clips/")[0] ?? "")?.equals(encrypted));
    assert.equal(harness.complaints.size, 0);
  });

  it("tornObject_underAClipsName_staysAndTheClipGetsAnotherName", async () => {
    const { harness, target } = await archiveTurnedOn();
    let torn = "";
    target.onCall = (call) => {
      if (torn !== "" || !call.includes("/clips/")) return;
      torn = call.slice("put ".length);
      target.objects.set(torn, Buffer.from("half"));
    };
    await harness.finish(1, frames(0, 3));
    await harness.archive.settled();
    harness.clock.advance(5_000);
    const { clips } = await harness.archive.estimate({ fromDate: day, toDate: day });
    assert.equal(clips, 1);
    assert.equal(String(target.objects.get(torn)), "half");
    const status = await harness.export(join(harness.home, "out"), day, day);
    assert.deepEqual([status.state, status.exported], ["done", 1]);
  });

  it("list_thatAnotherMachineGoesOnWith_isBegunAnewByThisOne", async () => {
    const { harness, target } = await archiveTurnedOn();
    target.onCall = (call) => {
      const name = call.slice("put ".length);
      if (!name.includes("/manifest/")) return;
      target.objects.set(name, Buffer.from("of the copy of this machine"));
      target.mend();
    };
    await harness.finish(1, frames(0, 3));
    await harness.archive.estimate({ fromDate: day, toDate: day });
    assert.match(harness.complaints.get("archive") ?? "", /already has another object/);
    harness.clock.advance(600_000);
    await harness.archive.settled();
    assert.equal(harness.complaints.size, 0);
    assert.equal(target.names("/manifest/").length, 2);
    assert.equal((await harness.archive.estimate({ fromDate: day, toDate: day })).clips, 1);
  });

  it("target_thatStaysGone_isAskedLessAndLess", async () => {
    const { harness, target } = await archiveTurnedOn();
    target.fail();
    await harness.finish(1, frames(0, 1));
    const delays: (number | undefined)[] = [];
    for (let turn = 0; turn < 9; turn += 1) {
      await harness.archive.settled();
      delays.push(harness.clock.nextDelayMs);
      harness.clock.advance(harness.clock.nextDelayMs ?? 0);
    }
    assert.deepEqual(
      delays,
      [5, 10, 20, 40, 80, 160, 320, 600, 600].map((s) => s * 1000),
    );
  });

  it("clock_setBackWhileStoredClipsWaitForTheList_holdsTheListUpNoLonger", async () => {
    const { harness, target } = await archiveTurnedOn();
    await harness.finish(1, frames(0, 1));
    await harness.archive.settled();
    assert.equal(target.names("/manifest/").length, 0);
    harness.clock.setWall(harness.clock.nowMs() - 86_400_000);
    await harness.finish(2, frames(1, 1));
    await harness.archive.settled();
    assert.equal(target.names("/manifest/").length, 1);
    assert.equal((await harness.archive.estimate({ fromDate: day, toDate: day })).clips, 2);
  });

  for (const [how, stepMs] of [
    ["back", -86_400_000],
    ["forward", 86_400_000],
  ] as const) {
    it(`clock_set_${how}_whileTheTargetIsGone_losesAndDoublesNothing`, async () => {
      const { harness, target } = await archiveTurnedOn();
      target.fail();
      await harness.finish(1, frames(0, 1));
      await harness.archive.settled();
      harness.clock.setWall(harness.clock.nowMs() + stepMs);
      await harness.finish(2, frames(1, 1));
      await harness.archive.settled();
      target.mend();
      harness.clock.advance(600_000);
      await harness.archive.settled();
      const status = await harness.export(join(harness.home, "out"), day, day);
      assert.deepEqual([status.state, status.exported, status.skipped], ["done", 2, 0]);
      assert.equal(harness.complaints.size, 0);
    });
  }

  it("newFootage_whileTheTargetIsGone_isPackedAndWaitsItsTurn", async () => {
    const { harness, target } = await archiveTurnedOn();
    target.fail();
    await harness.finish(1, frames(0, 1));
    await harness.archive.settled();
    const calls = target.calls.length;
    await harness.finish(2, frames(1, 1));
    await harness.archive.settled();
    assert.equal(target.calls.length, calls);
    const items = join(harness.home, "observer", "archive", "items");
    assert.ok(readdirSync(join(items, "2")).includes("clips.json"));
  });

  it("paused_archive_takesNothingAndSendsNothing", async () => {
    const { harness, target } = await archiveTurnedOn();
    await harness.archive.disable();
    const calls = target.calls.length;
    assert.equal(await harness.finish(1, frames(0, 2)), false);
    harness.clock.advance(3_600_000);
    await harness.archive.settled();
    assert.equal(target.calls.length, calls);
  });

  it("archive_neverTurnedOn_takesNothing", async () => {
    const harness = await ArchiveHarness.open();
    assert.equal(await harness.finish(1, frames(0, 2)), false);
  });

  it("outbox_thatIsFull_keepsWhatItHasAndSaysSo", async () => {
    const { harness, target } = await archiveTurnedOn({ outboxBytes: () => 5_000 });
    target.fail();
    assert.equal(await harness.finish(1, frames(0, 5)), true);
    await harness.archive.settled();
    assert.equal(await harness.finish(2, frames(5, 5)), false);
    assert.match(harness.complaints.get("archive room") ?? "", /new footage is not archived/);
    target.mend();
    harness.clock.advance(5_000);
    await harness.archive.settled();
    await harness.archive.estimate({ fromDate: day, toDate: day });
    assert.equal(await harness.finish(3, frames(10, 5)), true);
    assert.equal(harness.complaints.size, 0);
  });

  it("chunk_withoutAnyPicture_isNotTaken", async () => {
    const { harness } = await archiveTurnedOn();
    assert.equal(await harness.finish(1, [{ atMs: startMs, picture: Buffer.alloc(0) }]), false);
  });

  it("keyring_thatIsLocked_holdsUpOnlyTheList", async () => {
    const options = survivors();
    const first = await ArchiveHarness.open(options);
    await first.turnOn(anyFolder);
    await first.archive.close();
    options.keyring.failure = new SecretStoreFailure("The keyring is locked.");
    const harness = await ArchiveHarness.open(options);
    await harness.finish(1, frames(0, 2));
    await harness.archive.settled();
    assert.equal(options.target.names("/clips/").length, 1);
    harness.clock.advance(600_000);
    await harness.archive.settled();
    assert.match(harness.complaints.get("archive") ?? "", /keyring is locked/);
    options.keyring.failure = undefined;
    harness.clock.advance(600_000);
    await harness.archive.settled();
    assert.equal(options.target.names("/manifest/").length, 1);
  });

  it("newTarget_whileOn_getsTheVaultAndAListFromItsBeginning", async () => {
    const home = temporaryHome();
    const harness = await ArchiveHarness.open({ home });
    for (const name of ["one", "two"]) mkdirSync(join(home, name));
    const folder = (name: string) =>
      ({ kind: "folder", path: join(home, name), lossless: true }) as const;
    const recoveryKey = await harness.turnOn(folder("one"));
    await harness.finish(1, frames(0, 2));
    await harness.archive.estimate({ fromDate: day, toDate: day });
    await harness.archive.setTarget(folder("two"));
    await harness.finish(2, frames(2, 2));
    assert.equal((await harness.archive.estimate({ fromDate: day, toDate: day })).clips, 1);
    const exported = await harness.export(join(home, "out"), day, day);
    assert.deepEqual([exported.state, exported.exported], ["done", 1]);
    await harness.archive.recover(recoveryKey);
  });

  it("newTarget_thatCantBeUsed_leavesTheOldOneInUse", async () => {
    const home = temporaryHome();
    mkdirSync(join(home, "one"));
    const harness = await ArchiveHarness.open({ home });
    const record = { kind: "folder", path: join(home, "one"), lossless: true } as const;
    await harness.turnOn(record);
    const gone = { ...record, path: join(home, "nowhere") };
    await assert.rejects(harness.archive.setTarget(gone), /There is no folder/);
    assert.deepEqual(await harness.archive.target(), record);
    await assert.rejects(harness.archive.setTarget({ kind: "none", lossless: false }), /is on/);
  });

  it("targetFile_editedByHandWhileOn_countsFromTheNextStart", async () => {
    const home = temporaryHome();
    const keyring = new TestKeyring();
    for (const name of ["one", "two"]) mkdirSync(join(home, name));
    const folder = (name: string) =>
      ({ kind: "folder", path: join(home, name), lossless: true }) as const;
    const first = await ArchiveHarness.open({ home, keyring });
    await first.turnOn(folder("one"));
    await first.finish(1, frames(0, 2));
    await first.archive.settled();
    const file = join(home, "observer", "archive", "target.json");
    writeFileSync(file, JSON.stringify(folder("two")));
    assert.equal((await first.archive.estimate({ fromDate: day, toDate: day })).clips, 1);
    assert.deepEqual(readdirSync(join(home, "two")), []);
    await first.finish(2, frames(2, 2));
    await first.archive.settled();
    await first.archive.close();
    const second = await ArchiveHarness.open({ home, keyring });
    await second.archive.settled();
    assert.equal((await second.archive.estimate({ fromDate: day, toDate: day })).clips, 1);
    assert.equal(readdirSync(join(home, "two")).length, 1);
  });

  it("folder_whoseDiskIsNotConnected_isLeftEmpty", async () => {
    const home = temporaryHome();
    const path = join(home, "mountpoint");
    mkdirSync(path);
    const harness = await ArchiveHarness.open({ home });
    await harness.turnOn({ kind: "folder", path, lossless: true });
    execFileSync("mv", [path, `${path}-elsewhere`]);
    mkdirSync(path);
    await harness.finish(1, frames(0, 2));
    await harness.archive.settled();
    assert.deepEqual(readdirSync(path), []);
    assert.match(harness.complaints.get("archive") ?? "", /Connect the disk/);
  });
});
