import assert from "node:assert/strict";
import {
  existsSync,
  mkdirSync,
  readdirSync,
  readFileSync,
  rmSync,
  symlinkSync,
  writeFileSync,
} from "node:fs";
import { dirname, join } from "node:path";
import { describe, it } from "node:test";
import { exportPath, folderName } from "../../src/archive/export/exportFolder.ts";
import { ArchivedDays, nextDay } from "../support/archivedDays.ts";
import { ArchiveHarness, until } from "../support/archiveHarness.ts";
import { anyFolder, day } from "../support/footage.ts";
import { MemoryTarget } from "../support/memoryTarget.ts";
import { hostileText, Random } from "../support/random.ts";

describe("export", () => {
  it("export_ofARange_writesItsDaysAndDisplaysAndAManifest", async () => {
    const setting = await ArchivedDays.make();
    const status = await setting.export(day, day);
    assert.deepEqual(
      [status.state, status.exported, status.total, status.skipped],
      ["done", 2, 2, 0],
    );
    assert.deepEqual(readdirSync(setting.out).sort(), [day, "manifest.json"]);
    assert.deepEqual(readdirSync(join(setting.out, day)).sort(), [
      "Display 1 (main)",
      "manifest.json",
    ]);
    const { days, problems } = setting.manifest;
    assert.deepEqual(problems, []);
    assert.deepEqual(Object.keys(days), [day]);
    assert.deepEqual(days[day], { clips: 2, skipped: 0, unlisted: 0 });
    const { clips } = setting.dayManifest(day);
    assert.equal(clips.length, 2);
    for (const clip of clips) assert.ok(existsSync(join(setting.out, clip.file)));
  });

  it("export_again_readsNoClipAgain", async () => {
    const setting = await ArchivedDays.make();
    await setting.export();
    setting.target.calls.length = 0;
    const status = await setting.export();
    assert.deepEqual([status.state, status.exported], ["done", 4]);
    assert.deepEqual(
      setting.target.calls.filter((call) => call.startsWith("read") && call.includes("clips")),
      [],
    );
  });

  it("export_ofAnotherDay_keepsWhatTheManifestSaysOfTheFirst", async () => {
    const setting = await ArchivedDays.make();
    await setting.export(day, day);
    await setting.export(nextDay, nextDay);
    assert.deepEqual(Object.keys(setting.manifest.days).sort(), [day, nextDay]);
  });

  it("export_cancelled_isCancelledAndResumesLater", async () => {
    const setting = await ArchivedDays.make();
    const { archive } = setting.harness;
    let release = () => {};
    let reads = 0;
    setting.target.onCall = (call) => {
      if (!call.startsWith("read") || !call.includes("clips")) return;
      reads += 1;
      if (reads === 3) release();
    };
    const isThird = new Promise<void>((resolve) => {
      release = resolve;
    });
    await archive.startExport(setting.out, { fromDate: day, toDate: nextDay });
    await isThird;
    const cancelled = await archive.cancelExport();
    assert.equal(cancelled.state, "cancelled");
    const exported = Number(cancelled.exported);
    assert.ok(exported >= 2 && exported < 4, String(exported));
    setting.target.mend();
    const status = await setting.export();
    assert.deepEqual([status.state, status.exported], ["done", 4]);
  });

  it("export_whileOneRuns_isRefused", async () => {
    const setting = await ArchivedDays.make();
    const { archive } = setting.harness;
    await archive.startExport(setting.out, { fromDate: day, toDate: day });
    const second = archive.startExport(setting.out, { fromDate: day, toDate: day });
    await assert.rejects(second, /An export is running/);
    await until(() => archive.exportStatus().state !== "running");
  });

  it("export_withoutAVault_isRefused", async () => {
    const harness = await ArchiveHarness.open({ target: new MemoryTarget() });
    await harness.archive.setTarget(anyFolder);
    const range = { fromDate: day, toDate: day };
    await assert.rejects(harness.archive.startExport("/out", range), /There is no archive yet/);
    await assert.rejects(harness.archive.estimate(range), /There is no archive yet/);
    assert.equal(harness.archive.exportStatus().state, "idle");
  });

  it("foreignManifest_isNotOverwritten", async () => {
    const setting = await ArchivedDays.make();
    mkdirSync(setting.out);
    const path = join(setting.out, "manifest.json");
    for (const text of ["somebody's own", '{"format":"other"}']) {
      writeFileSync(path, text);
      await assert.rejects(setting.export(), /not of an export of this archive/);
      assert.equal(readFileSync(path, "utf8"), text);
    }
  });

  it("foreignManifestOfADay_failsTheExportAndStays", async () => {
    const setting = await ArchivedDays.make();
    mkdirSync(join(setting.out, nextDay), { recursive: true });
    const path = join(setting.out, nextDay, "manifest.json");
    writeFileSync(path, "somebody's own");
    const status = await setting.export();
    assert.deepEqual([status.state, status.exported], ["failed", 2]);
    assert.match(status.error ?? "", /not of an export of this archive/);
    assert.equal(readFileSync(path, "utf8"), "somebody's own");
  });

  it("foreignFile_inAClipsPlace_staysAndTheClipIsSkipped", async () => {
    const setting = await ArchivedDays.make();
    await setting.export(day, day);
    const [first] = setting.dayManifest(day).clips;
    const path = join(setting.out, first?.file ?? "");
    writeFileSync(path, "mine");
    const status = await setting.export(day, day);
    assert.deepEqual([status.state, status.exported, status.skipped], ["done", 1, 1]);
    assert.equal(readFileSync(path, "utf8"), "mine");
    assert.match(setting.dayManifest(day).skipped[0]?.why ?? "", /something else stands/);
  });

  it("halfAFile_ofAnInterruptedExport_isReplaced", async () => {
    const setting = await ArchivedDays.make();
    await setting.export(day, day);
    const [first] = setting.dayManifest(day).clips;
    const path = join(setting.out, first?.file ?? "");
    rmSync(path);
    writeFileSync(join(dirname(path), `.${path.slice(dirname(path).length + 1)}.part`), "half");
    const status = await setting.export(day, day);
    assert.deepEqual([status.state, status.exported], ["done", 2]);
    assert.deepEqual(
      readdirSync(dirname(path)).filter((name) => name.startsWith(".")),
      [],
    );
  });

  it("network_cutWhileReading_isTriedAgain", async () => {
    const setting = await ArchivedDays.make();
    const { harness, target } = setting;
    target.onCall = (call) => {
      const isClip = call.startsWith("read") && call.includes("clips");
      target.cutAfterBytes = isClip ? 300 : Number.POSITIVE_INFINITY;
    };
    const exporting = setting.export(day, day);
    await until(() => harness.clock.nextDelayMs === 1_000);
    target.mend();
    harness.clock.advance(1_000);
    assert.equal((await exporting).state, "done");
  });

  it("network_thatStaysCut_failsTheExportWithWords", async () => {
    const setting = await ArchivedDays.make();
    setting.target.cutAfterBytes = 300;
    const exporting = setting.export(day, day);
    for (const delay of [1_000, 5_000]) {
      await until(() => setting.harness.clock.nextDelayMs === delay);
      setting.harness.clock.advance(delay);
    }
    const status = await exporting;
    assert.deepEqual([status.state, status.error], ["failed", "The network was cut."]);
  });

  it("destination_thatCantBeWritten_isRefused", async () => {
    const setting = await ArchivedDays.make();
    writeFileSync(setting.out, "a file");
    await assert.rejects(setting.export(), { code: "EEXIST" });
  });

  it("symbolicLink_inAClipsPlace_isNotFollowed", async () => {
    const setting = await ArchivedDays.make();
    await setting.export(day, day);
    const [first] = setting.dayManifest(day).clips;
    const path = join(setting.out, first?.file ?? "");
    const victim = join(setting.harness.home, "victim");
    writeFileSync(victim, "");
    rmSync(path);
    symlinkSync(victim, path);
    await setting.export(day, day);
    assert.equal(readFileSync(victim, "utf8"), "");
  });

  it("labels_ofAnySort_stayInTheirFolder", () => {
    const random = new Random(3);
    const labels = ["", ".", "..", "../../etc", "/", "a/b", "\0", "con", "x".repeat(500), " . "];
    for (let turn = 0; turn < 500; turn += 1) labels.push(hostileText(random));
    for (const label of labels) {
      const name = folderName(label);
      assert.ok(name !== "" && name !== "." && name !== "..", JSON.stringify(label));
      assert.doesNotMatch(name, /[/\0\n]|^\.|\.$/);
      assert.ok(Buffer.byteLength(name) <= 255);
    }
  });

  it("label_likeTheManifest_standsBesideIt", () => {
    assert.notEqual(folderName("manifest.json"), "manifest.json");
  });

  it("twoDisplaysOfOneLabel_areExportedApart", () => {
    const clip = { day, displayLabel: "Screen", name: `clips/${day}/x.mkv.age` };
    const paths = ["HDMI-1", "HDMI-2"].map((displayId) =>
      exportPath({ ...clip, displayId } as Parameters<typeof exportPath>[0]),
    );
    assert.notEqual(paths[0], paths[1]);
  });
});
