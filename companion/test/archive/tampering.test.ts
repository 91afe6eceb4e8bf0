import assert from "node:assert/strict";
import { randomBytes } from "node:crypto";
import { readdirSync, readFileSync } from "node:fs";
import { join } from "node:path";
import { describe, it } from "node:test";
import { Identity } from "../../src/archive/age/x25519.ts";
import { Vault } from "../../src/archive/keys/vault.ts";
import {
  openSegment,
  parseSegmentName,
  sealSegment,
  segmentName,
} from "../../src/archive/manifest/segment.ts";
import { ObjectUnreadable } from "../../src/archive/targets/target.ts";
import { ArchivedDays, type Day, nextDay } from "../support/archivedDays.ts";
import { until } from "../support/archiveHarness.ts";
import { day } from "../support/footage.ts";

describe("archive that somebody else has touched", () => {
  it("clip_altered_isSkippedAndToldByName", async () => {
    const setting = await ArchivedDays.make();
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
    const setting = await ArchivedDays.make();
    setting.target.objects.delete(setting.clips[3] ?? "");
    const status = await setting.export();
    assert.deepEqual([status.state, status.exported, status.skipped], ["done", 3, 1]);
    assert.match(setting.dayManifest(nextDay).skipped[0]?.why ?? "", /missing/);
  });

  it("clip_cutShort_isSkipped", async () => {
    const setting = await ArchivedDays.make();
    const name = setting.clips[0] ?? "";
    const bytes = setting.target.objects.get(name) ?? Buffer.alloc(0);
    for (const length of [0, 100, bytes.length - 1]) {
      setting.target.objects.set(name, bytes.subarray(0, length));
      const status = await setting.export();
      assert.deepEqual([status.state, status.skipped], ["done", 1]);
    }
  });

  it("clip_thatCannotBeRead_isSkippedAndHoldsUpNoOther", async () => {
    const { harness, target, out } = await ArchivedDays.make();
    const [name = ""] = target.names("/clips/");
    target.onCall = (call) => {
      if (call === `read ${name}`) throw new ObjectUnreadable("Its place on the disk is damaged.");
    };
    const ended = harness.export(out, day, nextDay);
    // It is tried three times, with pauses.
    for (const pauseMs of [1_000, 5_000]) {
      await until(() => harness.clock.nextDelayMs === pauseMs);
      harness.clock.advance(pauseMs);
    }
    const status = await ended;
    assert.deepEqual([status.state, status.exported, status.skipped], ["done", 3, 1]);
    const manifest = JSON.parse(readFileSync(join(out, day, "manifest.json"), "utf8")) as Day;
    assert.match(manifest.skipped[0]?.why ?? "", /^it can't be read: Its place on the disk/);
  });

  it("clips_exchanged_areBothSkipped", async () => {
    const setting = await ArchivedDays.make();
    const [one = "", two = ""] = setting.clips;
    const { objects } = setting.target;
    const [first, second] = [objects.get(one), objects.get(two)];
    objects.set(one, second ?? Buffer.alloc(0));
    objects.set(two, first ?? Buffer.alloc(0));
    const status = await setting.export();
    assert.deepEqual([status.state, status.exported, status.skipped], ["done", 2, 2]);
  });

  it("clip_ofTheVaultsOwnMaking_thatNobodyHasListed_isToldAndNotExported", async () => {
    const setting = await ArchivedDays.make();
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
    const readerOf = (setting: ArchivedDays) =>
      who === "another machine" ? setting.stranger() : Promise.resolve(setting);

    it(`listPart_altered_failsTheExportAfterTheRest: ${who}`, async () => {
      const setting = await readerOf(await ArchivedDays.make());
      setting.alter(setting.parts[1] ?? "");
      const status = await setting.export();
      assert.equal(status.state, "failed");
      assert.match(status.error ?? "", /not as it was stored/);
      assert.ok(Number(status.exported) >= 3, String(status.exported));
    });

    it(`listPart_inTheMiddleDeleted_isFound: ${who}`, async () => {
      const setting = await readerOf(await ArchivedDays.make());
      setting.target.objects.delete(setting.parts[1] ?? "");
      const status = await setting.export();
      assert.equal(status.state, "failed");
      assert.match(status.error ?? "", /lacks part 2/);
    });

    it(`listPart_withANumberFarBeyondTheLast_isToldAtOnce: ${who}`, async () => {
      const setting = await readerOf(await ArchivedDays.make());
      const name = setting.parts[0] ?? "";
      const copy = name.replace(/-[0-9]{8}\.age$/, "-900000000000000.age");
      assert.notEqual(copy, name);
      setting.target.objects.set(copy, setting.target.objects.get(name) ?? Buffer.alloc(0));
      const status = await setting.export();
      assert.equal(status.state, "failed");
      assert.match(status.error ?? "", /lacks parts [0-9]+ to 899999999999999 of writer/);
      assert.equal(status.exported, 4);
    });

    it(`listPart_replacedByOneOfAnotherDay_isFound: ${who}`, async () => {
      const setting = await readerOf(await ArchivedDays.make());
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
      const setting = await readerOf(await ArchivedDays.make());
      const name = setting.parts[0] ?? "";
      const copy = name.replace(day, "2026-11-20");
      setting.target.objects.set(copy, setting.target.objects.get(name) ?? Buffer.alloc(0));
      const status = await setting.export();
      assert.equal(status.state, "failed");
      assert.match(status.error ?? "", /twice/);
    });

    it(`listPart_forgedToTheVaultsRecipient_isFound: ${who}`, async () => {
      const setting = await readerOf(await ArchivedDays.make());
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
    const setting = await ArchivedDays.make();
    for (const name of setting.parts.slice(2)) setting.target.objects.delete(name);
    const status = await setting.export();
    assert.equal(status.state, "failed");
    assert.match(status.error ?? "", /rolled back: it had 4 parts .* and has 2/);
  });

  it("list_rolledBack_isFoundByAMachineThatHasSeenMore", async () => {
    const setting = await (await ArchivedDays.make()).stranger();
    assert.equal((await setting.export()).state, "done");
    for (const name of setting.parts.slice(2)) setting.target.objects.delete(name);
    assert.match((await setting.export()).error ?? "", /rolled back/);
  });

  it("list_goneAltogether_isFound", async () => {
    const setting = await ArchivedDays.make();
    for (const name of setting.parts) setting.target.objects.delete(name);
    const status = await setting.export();
    assert.deepEqual([status.state, status.total], ["failed", 0]);
    assert.match(status.error ?? "", /rolled back: it had 4 parts .* and has 0/);
  });

  it("clip_listedTwice_failsTheExportOnlyAsTwoDifferentOnes", async () => {
    for (const isSame of [true, false]) {
      const setting = await ArchivedDays.make();
      const [part = ""] = setting.parts;
      const vaultId = part.split("/")[0] ?? "";
      const secret = setting.harness.keyring.secrets.get(`vault-${vaultId}`) ?? "";
      const vault = new Vault(Identity.parse(secret));
      const name = parseSegmentName(part.slice(vaultId.length + 1));
      assert.ok(name !== undefined);
      const listed = await openSegment(
        setting.target.objects.get(part) ?? Buffer.alloc(0),
        vault,
        name,
      );
      const clips = listed.clips.map((clip) => (isSame ? clip : { ...clip, bytes: 7 }));
      // By another machine of the same vault.
      const again = { ...listed, writer: "0123456789abcdef", previous: "0".repeat(64), clips };
      const object = await sealSegment({ ...again, sequence: 1 }, vault);
      const other = segmentName({ ...again, sequence: 1 });
      setting.target.objects.set(`${vaultId}/${other}`, object);
      const status = await setting.export();
      assert.equal(status.total, 4);
      if (isSame) assert.deepEqual([status.state, status.exported], ["done", 4]);
      else assert.match(status.error ?? "", /listed twice, as two different ones/);
    }
  });

  it("foreignObject_amongTheLists_isTold", async () => {
    const setting = await ArchivedDays.make();
    const vaultId = setting.parts[0]?.split("/")[0];
    setting.target.objects.set(`${vaultId}/manifest/${day}/readme.txt`, Buffer.from("hello"));
    const status = await setting.export();
    assert.match(status.error ?? "", /isn't the observer's/);
    assert.equal(status.exported, 4);
  });
});
