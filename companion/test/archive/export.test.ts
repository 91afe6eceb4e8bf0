import assert from "node:assert/strict";
import { randomBytes } from "node:crypto";
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
import { encryptBytes } from "../../src/archive/age/age.ts";
import { Identity } from "../../src/archive/age/x25519.ts";
import { exportPath, folderName } from "../../src/archive/export/exportFolder.ts";
import { Vault } from "../../src/archive/keys/vault.ts";
import { parseSegmentName, sealSegment } from "../../src/archive/manifest/segment.ts";
import { ArchiveHarness, until } from "../support/archiveHarness.ts";
import { MemoryTarget } from "../support/memoryTarget.ts";
import { hostileText, Random } from "../support/random.ts";

const startMs = new Date(2026, 10, 21, 9, 30, 5).getTime();
const dayMs = 24 * 3600 * 1000;
const [day, nextDay] = ["2026-11-21", "2026-11-22"];
const folder = { kind: "folder", path: "/archive", lossless: true } as const;

interface Day {
  readonly clips: readonly { file: string; contentSha256: string }[];
  readonly skipped: readonly { name: string; why: string }[];
  readonly unlisted: readonly string[];
}

interface Manifest {
  readonly problems: readonly string[];
  readonly days: Record<string, { clips: number; skipped: number; unlisted: number }>;
}

/** Two days with two chunks each, each in a part of the list of its own. */
class Setting {
  readonly target = new MemoryTarget();
  readonly out: string;

  private constructor(
    readonly harness: ArchiveHarness,
    target: MemoryTarget,
  ) {
    this.target = target;
    this.out = join(harness.home, "out");
  }

  static async make(): Promise<Setting> {
    const target = new MemoryTarget();
    const harness = await ArchiveHarness.open({ target });
    await harness.turnOn(folder);
    for (let id = 1; id <= 4; id += 1) {
      const atMs = startMs + id * 20_000 + (id > 2 ? dayMs : 0);
      await harness.finish(id, [
        { atMs, picture: Buffer.from(`picture ${id} `.repeat(1000)) },
        { atMs: atMs + 2_000, picture: Buffer.from(`another ${id}`) },
      ]);
      await harness.archive.estimate({ fromDate: day, toDate: nextDay });
    }
    return new Setting(harness, target);
  }

  export(from = day, to = nextDay) {
    return this.harness.export(this.out, from, to);
  }

  get manifest(): Manifest {
    return JSON.parse(readFileSync(join(this.out, "manifest.json"), "utf8")) as Manifest;
  }

  /** The list in a day's folder. */
  dayManifest(day: string): Day {
    return JSON.parse(readFileSync(join(this.out, day, "manifest.json"), "utf8")) as Day;
  }

  get clips(): string[] {
    return this.target.names("/clips/");
  }

  get parts(): string[] {
    return this.target.names("/manifest/");
  }

  alter(name: string): void {
    const bytes = Buffer.from(this.target.objects.get(name) ?? "");
    bytes[bytes.length - 20] = (bytes.at(-20) ?? 0) ^ 1;
    this.target.objects.set(name, bytes);
  }

  /** Another machine of the same vault, which knows nothing but the recovery key. */
  async stranger(): Promise<Setting> {
    const keyring = this.harness.keyring;
    const identity = Identity.parse([...keyring.secrets.values()][0] ?? "");
    const harness = await ArchiveHarness.open({ target: this.target });
    await harness.archive.setTarget(folder);
    const vaultFile = this.target.names("vault.age")[0] ?? "";
    const recoveryKey = Identity.generate();
    const wrapped = await encryptBytes(
      Buffer.from(`${identity.secretText()}\n`),
      recoveryKey.recipient,
    );
    this.target.objects.set(vaultFile, wrapped);
    await harness.archive.recover(`ostrel-vault_${recoveryKey.secretText()}`);
    return new Setting(harness, this.target);
  }
}

describe("export", () => {
  it("export_ofARange_writesItsDaysAndDisplaysAndAManifest", async () => {
    const setting = await Setting.make();
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
    const setting = await Setting.make();
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
    const setting = await Setting.make();
    await setting.export(day, day);
    await setting.export(nextDay, nextDay);
    assert.deepEqual(Object.keys(setting.manifest.days).sort(), [day, nextDay]);
  });

  it("export_cancelled_isCancelledAndResumesLater", async () => {
    const setting = await Setting.make();
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
    const setting = await Setting.make();
    const { archive } = setting.harness;
    await archive.startExport(setting.out, { fromDate: day, toDate: day });
    const second = archive.startExport(setting.out, { fromDate: day, toDate: day });
    await assert.rejects(second, /An export is running/);
    await until(() => archive.exportStatus().state !== "running");
  });

  it("export_withoutAVault_isRefused", async () => {
    const harness = await ArchiveHarness.open({ target: new MemoryTarget() });
    await harness.archive.setTarget(folder);
    const range = { fromDate: day, toDate: day };
    await assert.rejects(harness.archive.startExport("/out", range), /There is no archive yet/);
    await assert.rejects(harness.archive.estimate(range), /There is no archive yet/);
    assert.equal(harness.archive.exportStatus().state, "idle");
  });

  it("foreignManifest_isNotOverwritten", async () => {
    const setting = await Setting.make();
    mkdirSync(setting.out);
    const path = join(setting.out, "manifest.json");
    for (const text of ["somebody's own", '{"format":"other"}']) {
      writeFileSync(path, text);
      await assert.rejects(setting.export(), /not of an export of this archive/);
      assert.equal(readFileSync(path, "utf8"), text);
    }
  });

  it("foreignManifestOfADay_failsTheExportAndStays", async () => {
    const setting = await Setting.make();
    mkdirSync(join(setting.out, nextDay), { recursive: true });
    const path = join(setting.out, nextDay, "manifest.json");
    writeFileSync(path, "somebody's own");
    const status = await setting.export();
    assert.deepEqual([status.state, status.exported], ["failed", 2]);
    assert.match(status.error ?? "", /not of an export of this archive/);
    assert.equal(readFileSync(path, "utf8"), "somebody's own");
  });

  it("foreignFile_inAClipsPlace_staysAndTheClipIsSkipped", async () => {
    const setting = await Setting.make();
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
    const setting = await Setting.make();
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
    const setting = await Setting.make();
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
    const setting = await Setting.make();
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
    const setting = await Setting.make();
    writeFileSync(setting.out, "a file");
    await assert.rejects(setting.export(), { code: "EEXIST" });
  });

  it("symbolicLink_inAClipsPlace_isNotFollowed", async () => {
    const setting = await Setting.make();
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

describe("archive that somebody else has touched", () => {
  it("clip_altered_isSkippedAndToldByName", async () => {
    const setting = await Setting.make();
    const name = setting.clips[0] ?? "";
    setting.alter(name);
    const status = await setting.export();
    assert.deepEqual([status.state, status.exported, status.skipped], ["done", 3, 1]);
    const [skipped] = setting.dayManifest(day).skipped;
    assert.ok(name.endsWith(skipped?.name ?? "?"));
    assert.match(skipped?.why ?? "", /altered/);
    assert.equal(readdirSync(join(setting.out, day, "Display 1 (main)")).length, 1);
  });

  it("clip_deleted_isSkippedAndToldByName", async () => {
    const setting = await Setting.make();
    setting.target.objects.delete(setting.clips[3] ?? "");
    const status = await setting.export();
    assert.deepEqual([status.state, status.exported, status.skipped], ["done", 3, 1]);
    assert.match(setting.dayManifest(nextDay).skipped[0]?.why ?? "", /missing/);
  });

  it("clip_cutShort_isSkipped", async () => {
    const setting = await Setting.make();
    const name = setting.clips[0] ?? "";
    const bytes = setting.target.objects.get(name) ?? Buffer.alloc(0);
    for (const length of [0, 100, bytes.length - 1]) {
      setting.target.objects.set(name, bytes.subarray(0, length));
      const status = await setting.export();
      assert.deepEqual([status.state, status.skipped], ["done", 1]);
    }
  });

  it("clips_exchanged_areBothSkipped", async () => {
    const setting = await Setting.make();
    const [one = "", two = ""] = setting.clips;
    const { objects } = setting.target;
    const [first, second] = [objects.get(one), objects.get(two)];
    objects.set(one, second ?? Buffer.alloc(0));
    objects.set(two, first ?? Buffer.alloc(0));
    const status = await setting.export();
    assert.deepEqual([status.state, status.exported, status.skipped], ["done", 2, 2]);
  });

  it("clip_ofTheVaultsOwnMaking_thatNobodyHasListed_isToldAndNotExported", async () => {
    const setting = await Setting.make();
    const [one = ""] = setting.clips;
    const copy = one.replace(/-[0-9a-f]+\.mkv/, "-0123456789abcdef.mkv");
    setting.target.objects.set(copy, setting.target.objects.get(one) ?? Buffer.alloc(0));
    const status = await setting.export();
    assert.deepEqual([status.state, status.exported, status.total], ["done", 4, 4]);
    assert.deepEqual(
      setting.dayManifest(day).unlisted.map((name) => copy.endsWith(name)),
      [true],
    );
  });

  for (const who of ["the machine that wrote it", "another machine"] as const) {
    const readerOf = (setting: Setting) =>
      who === "another machine" ? setting.stranger() : Promise.resolve(setting);

    it(`listPart_altered_failsTheExportAfterTheRest: ${who}`, async () => {
      const setting = await readerOf(await Setting.make());
      setting.alter(setting.parts[1] ?? "");
      const status = await setting.export();
      assert.equal(status.state, "failed");
      assert.match(status.error ?? "", /not as it was stored/);
      assert.ok(Number(status.exported) >= 3, String(status.exported));
    });

    it(`listPart_inTheMiddleDeleted_isFound: ${who}`, async () => {
      const setting = await readerOf(await Setting.make());
      setting.target.objects.delete(setting.parts[1] ?? "");
      const status = await setting.export();
      assert.equal(status.state, "failed");
      assert.match(status.error ?? "", /lacks part 2/);
    });

    it(`listPart_replacedByOneOfAnotherDay_isFound: ${who}`, async () => {
      const setting = await readerOf(await Setting.make());
      const name = setting.parts[1] ?? "";
      const junk = name.replace(day, "2020-01-01");
      setting.target.objects.set(junk, setting.target.objects.get(name) ?? Buffer.alloc(0));
      setting.target.objects.delete(name);
      const status = await setting.export(day, day);
      assert.equal(status.state, "failed");
      // Who has kept the part itself exports what it names.
      assert.equal(status.exported, who === "another machine" ? 1 : 2);
    });

    it(`listPart_duplicated_isFound: ${who}`, async () => {
      const setting = await readerOf(await Setting.make());
      const name = setting.parts[0] ?? "";
      const copy = name.replace(day, "2026-11-20");
      setting.target.objects.set(copy, setting.target.objects.get(name) ?? Buffer.alloc(0));
      const status = await setting.export();
      assert.equal(status.state, "failed");
      assert.match(status.error ?? "", /twice/);
    });

    it(`listPart_forgedToTheVaultsRecipient_isFound: ${who}`, async () => {
      const setting = await readerOf(await Setting.make());
      const name = setting.parts[3] ?? "";
      const vaultId = name.split("/")[0] ?? "";
      const secret = setting.harness.keyring.secrets.get(`vault-${vaultId}`) ?? "";
      const { recipient } = Identity.parse(secret);
      const part = parseSegmentName(name.slice(vaultId.length + 1));
      assert.ok(part !== undefined);
      // Whoever knows the recipient can encrypt, but not authenticate.
      const attacker = Object.assign(Object.create(Vault.prototype) as Vault, {
        identity: { recipient },
        id: vaultId,
        manifestKey: randomBytes(32),
      });
      const forged = await sealSegment(
        {
          format: "ostrel-archive-list",
          version: 1,
          vault: vaultId,
          ...part,
          previous: "0".repeat(64),
          clips: [],
        },
        attacker,
      );
      setting.target.objects.set(name, forged);
      const status = await setting.export();
      assert.equal(status.state, "failed");
      assert.match(status.error ?? "", /not what was stored/);
    });
  }

  it("list_rolledBack_isFoundByTheMachineThatWroteIt", async () => {
    const setting = await Setting.make();
    for (const name of setting.parts.slice(2)) setting.target.objects.delete(name);
    const status = await setting.export();
    assert.equal(status.state, "failed");
    assert.match(status.error ?? "", /rolled back: it had 4 parts .* and has 2/);
  });

  it("list_rolledBack_isFoundByAMachineThatHasSeenMore", async () => {
    const setting = await (await Setting.make()).stranger();
    assert.equal((await setting.export()).state, "done");
    for (const name of setting.parts.slice(2)) setting.target.objects.delete(name);
    assert.match((await setting.export()).error ?? "", /rolled back/);
  });

  it("list_goneAltogether_isFound", async () => {
    const setting = await Setting.make();
    for (const name of setting.parts) setting.target.objects.delete(name);
    const status = await setting.export();
    assert.deepEqual([status.state, status.total], ["failed", 0]);
    assert.match(status.error ?? "", /rolled back: it had 4 parts .* and has 0/);
  });

  it("foreignObject_amongTheLists_isTold", async () => {
    const setting = await Setting.make();
    const vaultId = setting.parts[0]?.split("/")[0];
    setting.target.objects.set(`${vaultId}/manifest/${day}/readme.txt`, Buffer.from("hello"));
    const status = await setting.export();
    assert.match(status.error ?? "", /isn't the observer's/);
    assert.equal(status.exported, 4);
  });
});
