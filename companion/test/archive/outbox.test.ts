import assert from "node:assert/strict";
import { execFileSync } from "node:child_process";
import {
  cpSync,
  mkdirSync,
  readdirSync,
  readFileSync,
  rmSync,
  truncateSync,
  writeFileSync,
} from "node:fs";
import { join } from "node:path";
import { describe, it } from "node:test";
import { SecretStoreFailure } from "../../src/archive/keys/secretStore.ts";
import { TargetFailure } from "../../src/archive/targets/target.ts";
import { systemFailure } from "../../src/base/failure.ts";
import { type FileSystem, realFileSystem } from "../../src/base/fileSystem.ts";
import { ArchiveHarness, TestKeyring } from "../support/archiveHarness.ts";
import { anyFolder, archiveWithTwoChunks, day, frames, startMs } from "../support/footage.ts";
import { ManualClock } from "../support/manualClock.ts";
import { MemoryTarget } from "../support/memoryTarget.ts";
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
    const target = new MemoryTarget();
    const harness = await ArchiveHarness.open({ target, clock });
    await harness.turnOn(anyFolder);
    for (let id = 1; id <= 5; id += 1) await harness.finish(id, frames(id * 5, 5));
    await harness.archive.settled();
    assert.deepEqual([target.names("/clips/").length, target.names("/manifest/").length], [5, 0]);
    clock.advance(600_000);
    await harness.archive.settled();
    assert.equal(target.names("/manifest/").length, 1);
    assert.equal((await harness.archive.estimate({ fromDate: day, toDate: day })).clips, 5);
  });

  it("chunksOfTwoDays_areListedApart", async () => {
    const target = new MemoryTarget();
    const harness = await ArchiveHarness.open({ target });
    await harness.turnOn(anyFolder);
    await harness.finish(1, frames(0, 2));
    await harness.finish(2, frames(12 * 3600, 2));
    const all = await harness.archive.estimate({ fromDate: day, toDate: "2026-11-22" });
    assert.equal(all.clips, 2);
    assert.equal((await harness.archive.estimate({ fromDate: day, toDate: day })).clips, 1);
    assert.equal(target.names("/manifest/").length, 2);
  });

  it("target_thatIsGone_getsTheSameBytesLater", async () => {
    const target = new MemoryTarget();
    const harness = await ArchiveHarness.open({ target });
    await harness.turnOn(anyFolder);
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
    const target = new MemoryTarget();
    const harness = await ArchiveHarness.open({ target });
    await harness.turnOn(anyFolder);
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
    const target = new MemoryTarget();
    const harness = await ArchiveHarness.open({ target });
    await harness.turnOn(anyFolder);
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
    const target = new MemoryTarget();
    const harness = await ArchiveHarness.open({ target });
    await harness.turnOn(anyFolder);
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

  it("newFootage_whileTheTargetIsGone_isPackedAndWaitsItsTurn", async () => {
    const target = new MemoryTarget();
    const harness = await ArchiveHarness.open({ target });
    await harness.turnOn(anyFolder);
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
    const target = new MemoryTarget();
    const harness = await ArchiveHarness.open({ target });
    await harness.turnOn(anyFolder);
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
    const target = new MemoryTarget();
    const harness = await ArchiveHarness.open({ target, outboxBytes: () => 5_000 });
    await harness.turnOn(anyFolder);
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
    const harness = await ArchiveHarness.open({ target: new MemoryTarget() });
    await harness.turnOn(anyFolder);
    assert.equal(await harness.finish(1, [{ atMs: startMs, picture: Buffer.alloc(0) }]), false);
  });

  it("keyring_thatIsLocked_holdsUpOnlyTheList", async () => {
    const options = {
      home: temporaryHome(),
      keyring: new TestKeyring(),
      target: new MemoryTarget(),
    };
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

describe("this machine's own disk", () => {
  const items = (harness: ArchiveHarness) => join(harness.home, "observer", "archive", "items");

  /** Footage that is packed and can't be stored yet. */
  async function packed(...ids: readonly number[]) {
    const target = new MemoryTarget();
    const harness = await ArchiveHarness.open({ target });
    await harness.turnOn(anyFolder);
    target.fail();
    for (const id of ids) await harness.finish(id, frames(id * 5, 3));
    await harness.archive.settled();
    target.mend();
    return { target, harness };
  }

  async function goOn(harness: ArchiveHarness): Promise<void> {
    harness.clock.advance(5_000);
    await harness.archive.settled();
  }

  const damages: readonly (readonly [string, (clip: string) => void])[] = [
    ["altered", (clip) => writeFileSync(clip, readFileSync(clip).fill(7, 900, 901))],
    ["cutShort", (clip) => truncateSync(clip, 400)],
    ["removed", (clip) => rmSync(clip)],
  ];
  for (const [how, damage] of damages) {
    it(`clip_${how}_whileItWaited_isToldAndHoldsUpNothing`, async () => {
      const { target, harness } = await packed(1, 2);
      damage(join(items(harness), "1", "0.age"));
      await goOn(harness);
      assert.match(harness.complaints.get("archive loss") ?? "", /damaged on this disk/);
      assert.equal(harness.complaints.get("archive"), undefined);
      assert.equal(target.names("/clips/").length, 1);
      assert.deepEqual(readdirSync(items(harness)), ["2"]);
      const quarantine = join(harness.home, "observer", "archive", "quarantine");
      assert.equal(readdirSync(quarantine).length, 1);
      const status = await harness.export(join(harness.home, "out"), day, day);
      assert.deepEqual([status.state, status.exported, status.skipped], ["done", 1, 0]);
    });
  }

  for (const code of ["EIO", "ENOSPC"]) {
    it(`chunk_thatCannotBePacked_${code}_holdsUpNothingThatIs`, async () => {
      let broken = "";
      const fileSystem: FileSystem = {
        ...realFileSystem,
        open: async (path, flags, mode) => {
          if (broken !== "" && path.endsWith(broken)) throw systemFailure(code, path);
          return realFileSystem.open(path, flags, mode);
        },
      };
      const target = new MemoryTarget();
      const harness = await ArchiveHarness.open({ target, fileSystem });
      await harness.turnOn(anyFolder);
      target.fail();
      await harness.finish(1, frames(5, 3));
      await harness.archive.settled();
      await harness.writeChunk(2, frames(10, 3));
      broken = "/2/0.age";
      await harness.archive.take(harness.layout.chunk(2));
      await harness.archive.settled();
      target.mend();
      await goOn(harness);
      assert.equal(target.names("/clips/").length, 1);
      assert.match(harness.complaints.get("archive") ?? "", /^Footage waits for its archive/);
      broken = "";
      harness.clock.advance(600_000);
      await harness.archive.settled();
      assert.equal(target.names("/clips/").length, 2);
      assert.deepEqual([...harness.complaints], []);
    });
  }

  it("partOfTheList_damagedBeforeItWasStored_isMadeAnew", async () => {
    const { target, harness } = await packed(1);
    let isLost = false;
    target.onCall = (call) => {
      if (!call.includes("/manifest/")) return;
      const mirror = join(harness.home, "observer", "archive", "manifest");
      for (const name of readdirSync(mirror)) writeFileSync(join(mirror, name), "junk");
      isLost = true;
      throw new TargetFailure("The place can't be reached.");
    };
    await goOn(harness);
    harness.clock.advance(600_000);
    await harness.archive.settled();
    assert.ok(isLost);
    target.mend();
    harness.clock.advance(600_000);
    await harness.archive.settled();
    assert.equal((await harness.archive.estimate({ fromDate: day, toDate: day })).clips, 1);
    const status = await harness.export(join(harness.home, "out"), day, day);
    assert.deepEqual([status.state, status.exported, status.error], ["done", 1, undefined]);
  });

  it("machine_setBackToAFormerState_losesAndDoublesNothing", async () => {
    const keyring = new TestKeyring();
    const target = new MemoryTarget();
    const first = await ArchiveHarness.open({ target, keyring });
    await first.turnOn(anyFolder);
    target.fail();
    await first.finish(1, frames(0, 3));
    await first.archive.settled();
    const backup = join(temporaryHome(), "backup");
    cpSync(first.home, backup, { recursive: true });
    target.mend();
    await first.finish(2, frames(5, 3));
    await first.archive.estimate({ fromDate: day, toDate: day });
    await first.archive.close();
    const second = await ArchiveHarness.open({ home: backup, target, keyring });
    await second.finish(3, frames(10, 3));
    await second.archive.estimate({ fromDate: day, toDate: day });
    // The list's next part is there already, and not this machine's: it becomes another writer.
    second.clock.advance(600_000);
    await second.archive.settled();
    const status = await second.export(join(backup, "out"), day, day);
    assert.deepEqual([status.state, status.exported, status.error], ["done", 3, undefined]);
  });
});
