import assert from "node:assert/strict";
import { execFileSync } from "node:child_process";
import { randomBytes } from "node:crypto";
import { readdirSync, writeFileSync } from "node:fs";
import { join } from "node:path";
import { describe, it } from "node:test";
import { S3Connection } from "../../src/archive/targets/s3Connection.ts";
import { S3Target } from "../../src/archive/targets/s3Target.ts";
import { ObjectConflict } from "../../src/archive/targets/target.ts";
import type { S3Record } from "../../src/archive/targets/targetRecord.ts";
import { systemClock } from "../../src/base/clock.ts";
import { ArchiveHarness } from "../support/archiveHarness.ts";
import { day, frames, startMs } from "../support/footage.ts";
import { ManualClock } from "../support/manualClock.ts";
import { objectStoreOfTheFile } from "../support/objectStore.ts";
import { rcloneOfBucket } from "../support/rclonePlace.ts";
import { describeTarget } from "../support/targetSuite.ts";
import { temporaryHome } from "../support/temporaryHome.ts";
import { contents, forever, listed, uploadOf, vault } from "../support/uploads.ts";

const options = { clock: systemClock, idleMs: 20_000 };
const store = objectStoreOfTheFile();

let places = 0;

/** A part of the bucket where nothing is yet. */
function emptyPlace(): S3Record {
  places += 1;
  return { ...store().record, prefix: `place-${places}/archive` };
}

describeTarget("bucket of a real server", () => {
  const record = emptyPlace();
  return {
    target: new S3Target(record, options),
    exchange: async (name, bytes) => {
      const upload = uploadOf(name, bytes);
      const request = { method: "PUT", key: upload.name, upload } as const;
      const answer = await new S3Connection(record, options).send(request, forever);
      assert.equal(answer.resume().statusCode, 200);
    },
  };
});

describe("bucket of a real server", () => {
  it("listing_ofThreePages_isComplete", async () => {
    const target = new S3Target(emptyPlace(), options);
    const names = Array.from({ length: 45 }, (_, count) => `clips/d/${100 + count}.age`);
    const left = [...names];
    const putNext = async () => {
      for (let name = left.pop(); name !== undefined; name = left.pop()) {
        await target.put(uploadOf(name, Buffer.from(name)), forever);
      }
    };
    await Promise.all([putNext(), putNext(), putNext(), putNext()]);
    const shown = Object.keys(await listed(target, `${vault}/clips`));
    assert.deepEqual(
      shown,
      names.map((name) => `${vault}/${name}`),
    );
    assert.deepEqual(await target.topFolders(forever), [vault]);
  });

  it("bucket_inTheHostsName_isSignedAndReached", async () => {
    const place = emptyPlace();
    const endpoint = place.endpoint.replace("127.0.0.1", "localhost");
    const target = new S3Target({ ...place, endpoint, pathStyle: false }, options);
    const bytes = randomBytes(10_000);
    await target.put(uploadOf("vault.age", bytes), forever);
    assert.ok((await contents(target, "vault.age")).equals(bytes));
    assert.deepEqual(await listed(new S3Target(place, options), vault), {
      [`${vault}/vault.age`]: bytes.length,
    });
  });

  it("keysClocksAndPlaces_thatAreWrong_areToldAsSuch", async () => {
    const place = emptyPlace();
    const hourAgo = { ...systemClock, nowMs: () => Date.now() - 3_600_000 };
    for (const [change, clock, words] of [
      [{ secretAccessKey: "not-the-secret" }, systemClock, /secret access key is wrong/],
      [{ accessKeyId: "tests:nobody" }, systemClock, /access key is not known|key is wrong/],
      [{ region: "us-east-1" }, systemClock, /region is wrong/],
      [{ bucket: "elsewhere" }, systemClock, /There is no such bucket/],
      [{}, hourAgo, /This machine's clock is wrong/],
    ] as const) {
      const target = new S3Target({ ...place, ...change }, { ...options, clock });
      const upload = uploadOf("vault.age", Buffer.from("v"));
      await assert.rejects(listed(target, vault), words, JSON.stringify(change));
      await assert.rejects(target.put(upload, forever), words, JSON.stringify(change));
    }
    assert.deepEqual(await listed(new S3Target(place, options), vault), {});
  });

  it("rclone_asAClientOfTheBucket_readsAndWritesTheSameLayout", async () => {
    const place = emptyPlace();
    const [ours, theirs] = [new S3Target(place, options), rcloneOfBucket(place)];
    const [one, two] = [randomBytes(10_000), randomBytes(20_000)];
    await ours.put(uploadOf("clips/d/one.age", one), forever);
    assert.ok((await contents(theirs, "clips/d/one.age")).equals(one));
    await theirs.put(uploadOf("clips/d/two.age", two), forever);
    assert.ok((await contents(ours, "clips/d/two.age")).equals(two));
    await assert.rejects(ours.put(uploadOf("clips/d/two.age", one), forever), ObjectConflict);
    assert.deepEqual(await listed(ours, `${vault}/clips`), await listed(theirs, `${vault}/clips`));
    await theirs.remove(`${vault}/clips/d/one.age`, forever);
    assert.deepEqual(Object.keys(await listed(ours, vault)), [`${vault}/clips/d/two.age`]);
  });
});

describe("archive in a real server's bucket", () => {
  async function archived() {
    const place = emptyPlace();
    // The server compares its clock with ours.
    const harness = await ArchiveHarness.open({ clock: new ManualClock(Date.now()) });
    const recoveryKey = await harness.turnOn(place);
    await harness.finish(1, frames(0, 5));
    await harness.finish(2, frames(5, 5));
    await harness.archive.estimate({ fromDate: day, toDate: day });
    return { place, harness, recoveryKey };
  }

  it("footage_isExportedByAnotherMachineWithTheRecoveryKey", async () => {
    const { place, recoveryKey } = await archived();
    const other = await ArchiveHarness.open({ clock: new ManualClock(Date.now()) });
    await other.archive.setTarget(place);
    await other.archive.recover(recoveryKey);
    const status = await other.export(join(other.home, "out"), day, day);
    assert.deepEqual([status.state, status.exported, status.skipped], ["done", 2, 0]);
  });

  it("everyObject_isOpenedByAgeAsRcloneBringsIt", async () => {
    const { place, recoveryKey } = await archived();
    const home = temporaryHome();
    const vaultId = (await new S3Target(place, options).topFolders(forever))[0] ?? "";
    const theirs = rcloneOfBucket(place);
    const names = Object.keys(await listed(theirs, vaultId));
    assert.equal(names.length, 4, "the vault, two clips and a part of the list");
    writeFileSync(join(home, "recovery.txt"), recoveryKey.replace(/^ostrel-vault_/, ""));
    const opened = async (name: string, identity: string) => {
      const pieces: Uint8Array[] = [];
      for await (const piece of theirs.read(name, forever)) pieces.push(piece);
      const input = Buffer.concat(pieces);
      return execFileSync("age", ["-d", "-i", join(home, identity)], { input, timeout: 20_000 });
    };
    writeFileSync(join(home, "vault.txt"), await opened(`${vaultId}/vault.age`, "recovery.txt"));
    for (const name of names.filter((one) => !one.endsWith("vault.age"))) {
      assert.ok((await opened(name, "vault.txt")).length > 0, name);
    }
  });

  it("forgottenFootage_isInTheBucketNoMore", async () => {
    const { place, harness } = await archived();
    const range = { fromMs: startMs, toMs: startMs + 1_000 };
    assert.equal((await harness.archive.forget(range)).clips, 1);
    const clips = Object.keys(await listed(new S3Target(place, options), "")).filter((name) =>
      name.includes("/clips/"),
    );
    assert.deepEqual(clips, []);
    const status = await harness.export(join(harness.home, "out"), day, day);
    assert.deepEqual([status.state, status.exported, status.skipped], ["done", 1, 0]);
    assert.equal(readdirSync(join(harness.home, "out", day)).length, 2);
  });
});
