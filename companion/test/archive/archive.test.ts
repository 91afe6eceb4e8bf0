import assert from "node:assert/strict";
import { execFileSync } from "node:child_process";
import { createHash } from "node:crypto";
import { mkdirSync, readdirSync, readFileSync, writeFileSync } from "node:fs";
import { join } from "node:path";
import { describe, it } from "node:test";
import { ArchiveNotReady } from "../../src/archive/archiveErrors.ts";
import { jpegSize } from "../../src/archive/clips/jpegSize.ts";
import { ffmpegEncoder } from "../../src/archive/clips/videoEncoder.ts";
import { RecoveryKeyError } from "../../src/archive/keys/recoveryKey.ts";
import { SecretStoreFailure } from "../../src/archive/keys/secretStore.ts";
import { ArchiveHarness, type TestFrame, TestKeyring } from "../support/archiveHarness.ts";
import { ManualClock } from "../support/manualClock.ts";
import { MemoryTarget } from "../support/memoryTarget.ts";
import { temporaryHome } from "../support/temporaryHome.ts";

const startMs = new Date(2026, 10, 21, 9, 30, 5).getTime();
const day = "2026-11-21";
const anyFolder = { kind: "folder", path: "/archive", lossless: true } as const;

function picture(number: number): Buffer {
  return Buffer.from(`a picture, number ${number}, `.repeat(50 + number));
}

function frames(from: number, count: number, displayId = "1"): TestFrame[] {
  return Array.from({ length: count }, (_, index) => ({
    atMs: startMs + (from + index) * 2_000,
    picture: picture(from + index),
    displayId,
    displayLabel: `Display ${displayId}`,
    text: `frame ${from + index}`,
  }));
}

/** Everything below a folder, by its path there. */
function filesIn(folder: string): Map<string, Buffer> {
  const files = new Map<string, Buffer>();
  for (const entry of readdirSync(folder, { withFileTypes: true })) {
    const path = join(folder, entry.name);
    if (!entry.isDirectory()) files.set(entry.name, readFileSync(path));
    else for (const [name, bytes] of filesIn(path)) files.set(join(entry.name, name), bytes);
  }
  return files;
}

async function archiveWithTwoChunks(target = new MemoryTarget()) {
  const harness = await ArchiveHarness.open({ target });
  const recoveryKey = await harness.turnOn(anyFolder);
  await harness.finish(1, [...frames(0, 5), ...frames(0, 5, "2")]);
  await harness.finish(2, frames(5, 5));
  await harness.archive.estimate({ fromDate: day, toDate: day });
  return { harness, target, recoveryKey };
}

describe("wizard", () => {
  it("status_beforeAnything_isOffAndWithoutAVault", async () => {
    const { archive } = await ArchiveHarness.open();
    const status = archive.status();
    assert.deepEqual(
      [status.archiveEnabled, status.archiveVaultId, status.hasRecoveryKey, status.recoveryKey],
      [false, "", false, undefined],
    );
  });

  it("prepare_withoutATarget_saysWhatToDoFirst", async () => {
    const { archive } = await ArchiveHarness.open();
    await assert.rejects(archive.prepare(), /No place for the archive is chosen yet/);
  });

  it("prepare_twice_makesTwoKeysOfWhichTheLastOpens", async () => {
    const harness = await ArchiveHarness.open({ target: new MemoryTarget() });
    await harness.archive.setTarget(anyFolder);
    const first = await harness.archive.prepare();
    const second = await harness.archive.prepare();
    assert.notEqual(first.recoveryKey, second.recoveryKey);
    assert.equal(second.archiveEnabled, false);
    assert.equal(harness.keyring.secrets.size, 1);
    await harness.archive.enable();
    await assert.rejects(harness.archive.recover(first.recoveryKey ?? ""), RecoveryKeyError);
    await harness.archive.recover(second.recoveryKey ?? "");
  });

  it("enable_withoutPrepare_isRefused", async () => {
    const harness = await ArchiveHarness.open({ target: new MemoryTarget() });
    await harness.archive.setTarget(anyFolder);
    await assert.rejects(harness.archive.enable(), ArchiveNotReady);
  });

  it("prepare_onceEnabled_neitherRotatesNorTellsTheKey", async () => {
    const target = new MemoryTarget();
    const harness = await ArchiveHarness.open({ target });
    const recoveryKey = await harness.turnOn(anyFolder);
    const before = [...target.objects];
    for (const pausedFirst of [false, true]) {
      if (pausedFirst) await harness.archive.disable();
      const status = await harness.archive.prepare();
      assert.equal(status.recoveryKey, undefined);
      assert.equal(status.hasRecoveryKey, true);
    }
    assert.deepEqual([...target.objects], before);
    await harness.archive.recover(recoveryKey);
  });

  it("vault_overARestart_staysTheSameAndOn", async () => {
    const options = {
      home: temporaryHome(),
      keyring: new TestKeyring(),
      target: new MemoryTarget(),
    };
    const first = await ArchiveHarness.open(options);
    await first.turnOn(anyFolder);
    const { archiveVaultId } = first.archive.settings;
    assert.match(archiveVaultId, /^[0-9a-f]{20}$/);
    await first.archive.close();
    const second = await ArchiveHarness.open(options);
    assert.deepEqual(second.archive.settings, { archiveEnabled: true, archiveVaultId });
    await second.archive.disable();
    const third = await ArchiveHarness.open(options);
    assert.deepEqual(third.archive.settings, { archiveEnabled: false, archiveVaultId });
  });

  it("prepared_overARestart_canBeEnabled", async () => {
    const options = {
      home: temporaryHome(),
      keyring: new TestKeyring(),
      target: new MemoryTarget(),
    };
    const first = await ArchiveHarness.open(options);
    await first.archive.setTarget(anyFolder);
    const { recoveryKey } = await first.archive.prepare();
    const second = await ArchiveHarness.open(options);
    assert.equal((await second.archive.enable()).archiveEnabled, true);
    await second.archive.recover(recoveryKey ?? "");
  });

  it("enable_withTheTargetGone_leavesThePreparedKeyToBeShownAgain", async () => {
    const target = new MemoryTarget();
    const harness = await ArchiveHarness.open({ target });
    await harness.archive.setTarget(anyFolder);
    await harness.archive.prepare();
    target.fail();
    await assert.rejects(harness.archive.enable(), /can't be reached/);
    assert.equal(harness.archive.status().archiveEnabled, false);
    target.mend();
    assert.notEqual((await harness.archive.prepare()).recoveryKey, undefined);
  });

  it("keyring_thatIsLocked_refusesPrepareInItsOwnWords", async () => {
    const harness = await ArchiveHarness.open({ target: new MemoryTarget() });
    await harness.archive.setTarget(anyFolder);
    harness.keyring.failure = new SecretStoreFailure("The keyring is locked.");
    await assert.rejects(harness.archive.prepare(), /keyring is locked/);
  });

  it("recoveryKey_isKeptNowhere", async () => {
    const home = temporaryHome();
    const target = new MemoryTarget();
    const harness = await ArchiveHarness.open({ home, target });
    const recoveryKey = await harness.turnOn(anyFolder);
    await harness.finish(1, frames(0, 3));
    await harness.archive.settled();
    const secret = recoveryKey.slice("ostrel-vault_AGE-SECRET-KEY-1".length);
    const everything = [...filesIn(home).values(), ...target.objects.values()];
    for (const text of [...harness.keyring.secrets.values(), ...everything.map(String)]) {
      assert.ok(!text.toLowerCase().includes(secret.toLowerCase()));
    }
    const vaultKey = [...harness.keyring.secrets.values()][0] ?? "";
    for (const bytes of everything) assert.ok(!bytes.includes(vaultKey));
  });
});

describe("recovery", () => {
  it("recover_onAnotherMachine_exportsWhatTheFirstHasStored", async () => {
    const { target, recoveryKey, harness } = await archiveWithTwoChunks();
    const other = await ArchiveHarness.open({ target });
    await other.archive.setTarget(anyFolder);
    const status = await other.archive.recover(`  ${recoveryKey}\n`);
    assert.equal(status.archiveEnabled, true);
    assert.equal(status.archiveVaultId, harness.archive.settings.archiveVaultId);
    const exported = await other.export(join(other.home, "out"), day, day);
    assert.deepEqual([exported.state, exported.exported], ["done", 3]);
    // And goes on with a list of its own.
    await other.finish(1, frames(20, 2));
    assert.equal((await other.archive.estimate({ fromDate: day, toDate: day })).clips, 4);
    assert.equal((await harness.archive.estimate({ fromDate: day, toDate: day })).clips, 4);
  });

  it("recover_withAnotherVaultsKey_changesNothing", async () => {
    const { harness } = await archiveWithTwoChunks();
    const stranger = await ArchiveHarness.open({ target: new MemoryTarget() });
    const foreignKey = await stranger.turnOn(anyFolder);
    const before = harness.archive.status();
    await assert.rejects(harness.archive.recover(foreignKey), /does not open the archive/);
    await assert.rejects(harness.archive.recover(`${foreignKey.slice(0, -1)}?`), RecoveryKeyError);
    assert.deepEqual(harness.archive.status(), before);
  });

  it("recover_whereNothingLies_saysSo", async () => {
    const { recoveryKey } = await archiveWithTwoChunks();
    const harness = await ArchiveHarness.open({ target: new MemoryTarget() });
    await harness.archive.setTarget(anyFolder);
    await assert.rejects(harness.archive.recover(recoveryKey), /There is no archive/);
  });

  it("recover_beforeFootageOfAnotherVaultIsStored_isRefused", async () => {
    const { target, recoveryKey } = await archiveWithTwoChunks();
    const harness = await ArchiveHarness.open({ target });
    await harness.turnOn(anyFolder);
    target.onCall = (call) => assert.doesNotMatch(call, /^put .*clips/);
    await harness.finish(1, frames(0, 2));
    await harness.archive.settled();
    await assert.rejects(harness.archive.recover(recoveryKey), /still waits for the archive/);
  });
});

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

/** The pictures of a lossless clip, as ffmpeg takes them out of it. */
function picturesOf(clip: Buffer): Buffer[] {
  const folder = temporaryHome();
  writeFileSync(join(folder, "clip.mkv"), clip);
  const given = ["-v", "error", "-i", "clip.mkv", "-map", "0:v", "-c", "copy"];
  execFileSync("ffmpeg", [...given, "-f", "image2", "%05d.jpg"], { cwd: folder, timeout: 30_000 });
  const names = readdirSync(folder).filter((name) => name.endsWith(".jpg"));
  return names.sort().map((name) => readFileSync(join(folder, name)));
}

interface Probe {
  readonly streams: readonly Record<string, unknown>[];
  readonly packets: readonly { readonly pts_time: string }[];
}

function probe(clip: Buffer): Probe {
  const folder = temporaryHome();
  writeFileSync(join(folder, "clip.mkv"), clip);
  const given = ["-v", "error", "-show_streams", "-show_packets", "-select_streams", "v"];
  const text = execFileSync("ffprobe", [...given, "-of", "json", join(folder, "clip.mkv")], {
    encoding: "utf8",
    timeout: 30_000,
  });
  return JSON.parse(text) as Probe;
}

/** Real JPEGs, each different. */
function realPictures(count: number, size: string): Buffer[] {
  const folder = temporaryHome();
  const source = `testsrc2=rate=1,scale=${size.replace("x", ":")},format=yuvj444p`;
  const given = [
    "-v",
    "error",
    "-f",
    "lavfi",
    "-i",
    source,
    "-frames:v",
    String(count),
    "-pix_fmt",
    "yuvj444p",
  ];
  execFileSync("ffmpeg", [...given, "-q:v", "3", "%05d.jpg"], { cwd: folder, timeout: 30_000 });
  return readdirSync(folder)
    .sort()
    .map((name) => readFileSync(join(folder, name)));
}

describe("clips", () => {
  it("display_thatChangesItsSize_getsAClipForEach", async () => {
    const harness = await ArchiveHarness.open({ target: new MemoryTarget() });
    await harness.turnOn(anyFolder);
    const [small, large] = [realPictures(1, "320x240")[0], realPictures(1, "640x480")[0]];
    const pictures = [small, small, large, Buffer.alloc(0)];
    await harness.finish(
      1,
      pictures.map((bytes, index) => ({
        // What is told of the size is wrong, as after a change while the picture was taken.
        ...{ width: 999, height: 999, atMs: startMs + index },
        picture: bytes ?? Buffer.alloc(0),
      })),
    );
    await harness.export(join(harness.home, "out"), day, day);
    const clips = [...filesIn(join(harness.home, "out"))].filter(([name]) => name.endsWith("mkv"));
    const sizes = clips.map(([, clip]) => [
      probe(clip).streams[0]?.["width"],
      picturesOf(clip).length,
    ]);
    assert.deepEqual(sizes.sort(), [
      [320, 2],
      [640, 1],
    ]);
  });

  it("jpegSize_ofWhatIsNone_isNotKnown", () => {
    const [picture = Buffer.alloc(0)] = realPictures(1, "322x242");
    assert.deepEqual(jpegSize(picture), { width: 322, height: 242 });
    for (const bytes of ["", "ab", "no picture at all", "\xff\xd8\xff", "\xff\xd8junkjunkjunk"]) {
      assert.equal(jpegSize(Buffer.from(bytes, "latin1")), undefined);
    }
    for (let end = 0; end < 100; end += 1) jpegSize(picture.subarray(0, end));
  });

  const uneven = [0, 2_000, 2_100, 4_100, 9_000];

  function unevenFrames(pictures: readonly Buffer[], width: number, height: number): TestFrame[] {
    return uneven.map((offset, index) => ({
      atMs: startMs + offset,
      picture: pictures[index] ?? Buffer.alloc(0),
      text: `text ${index}`,
      width,
      height,
    }));
  }

  it("losslessExport_equalsTheArchivedFramesBitByBit", async () => {
    const target = new MemoryTarget();
    const harness = await ArchiveHarness.open({ target });
    await harness.turnOn(anyFolder);
    const pictures = realPictures(5, "321x241");
    await harness.finish(1, unevenFrames(pictures, 321, 241));
    const status = await harness.export(join(harness.home, "out"), day, day);
    assert.equal(status.state, "done");
    const clip = [...filesIn(join(harness.home, "out"))].find(([name]) => name.endsWith(".mkv"));
    assert.ok(clip !== undefined);
    assert.deepEqual(picturesOf(clip[1]), pictures);
    const { streams, packets } = probe(clip[1]);
    assert.deepEqual([streams[0]?.["width"], streams[0]?.["codec_name"]], [321, "mjpeg"]);
    const times = packets.map((packet) => Math.round(Number(packet.pts_time) * 1000));
    assert.deepEqual(times, uneven);
  });

  it("clip_holdsTheTextsAndTheHashesOfItsFrames", async () => {
    const harness = await ArchiveHarness.open({ target: new MemoryTarget() });
    await harness.turnOn(anyFolder);
    const pictures = realPictures(5, "320x240");
    await harness.finish(1, unevenFrames(pictures, 320, 240));
    await harness.export(join(harness.home, "out"), day, day);
    const clip = [...filesIn(join(harness.home, "out"))].find(([name]) => name.endsWith(".mkv"));
    const folder = temporaryHome();
    writeFileSync(join(folder, "clip.mkv"), clip?.[1] ?? "");
    const given = ["-v", "error", "-dump_attachment:t:0", "frames.json", "-i", "clip.mkv"];
    execFileSync("ffmpeg", [...given, "-f", "null", "-"], { cwd: folder, timeout: 30_000 });
    const index = JSON.parse(readFileSync(join(folder, "frames.json"), "utf8")) as {
      frames: { text: string; receivedAtMs: number; picture: { sha256: string } }[];
    };
    assert.deepEqual(
      index.frames.map(({ text }) => text),
      uneven.map((_, number) => `text ${number}`),
    );
    assert.deepEqual(
      index.frames.map((frame) => frame.picture.sha256),
      pictures.map((bytes) => createHash("sha256").update(bytes).digest("hex")),
    );
  });

  it("videoClip_hasEveryFrameAtItsTime", async () => {
    const harness = await ArchiveHarness.open({
      target: new MemoryTarget(),
      encodeVideo: ffmpegEncoder("ffmpeg", process.env),
    });
    await harness.turnOn({ ...anyFolder, lossless: false });
    // Sides of odd length, which the codec can't have.
    await harness.finish(1, unevenFrames(realPictures(5, "321x241"), 321, 241));
    await harness.archive.settled();
    const status = await harness.export(join(harness.home, "out"), day, day);
    assert.deepEqual([status.state, status.exported], ["done", 1]);
    const clip = [...filesIn(join(harness.home, "out"))].find(([name]) => name.endsWith(".mkv"));
    const { streams, packets } = probe(clip?.[1] ?? Buffer.alloc(0));
    assert.deepEqual([streams[0]?.["width"], streams[0]?.["codec_name"]], [322, "h264"]);
    const times = packets.map((packet) => Math.round(Number(packet.pts_time) * 1000));
    assert.deepEqual(
      [...times].sort((a, b) => a - b),
      uneven,
    );
  });

  it("pictures_thatFfmpegCantRead_areKeptAsTheyAre", async () => {
    const target = new MemoryTarget();
    const harness = await ArchiveHarness.open({
      target,
      encodeVideo: ffmpegEncoder("ffmpeg", process.env),
    });
    await harness.turnOn({ ...anyFolder, lossless: false });
    await harness.finish(1, frames(0, 3));
    await harness.archive.settled();
    const status = await harness.export(join(harness.home, "out"), day, day);
    assert.deepEqual([status.state, status.exported], ["done", 1]);
    const [, clip] = [...filesIn(join(harness.home, "out"))].find(([name]) =>
      name.endsWith(".mkv"),
    ) ?? ["", Buffer.alloc(0)];
    for (const number of [0, 1, 2]) assert.ok(clip.includes(picture(number)));
  });

  it("ffmpeg_thatIsNotInstalled_leavesThePicturesAsTheyAre", async () => {
    const harness = await ArchiveHarness.open({
      target: new MemoryTarget(),
      encodeVideo: ffmpegEncoder("/nonexistent/ffmpeg", process.env),
    });
    await harness.turnOn({ ...anyFolder, lossless: false });
    await harness.finish(1, frames(0, 3));
    await harness.archive.settled();
    const estimate = await harness.archive.estimate({ fromDate: day, toDate: day });
    assert.equal(estimate.clips, 1);
  });
});
