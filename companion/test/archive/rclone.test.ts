import assert from "node:assert/strict";
import { execFileSync } from "node:child_process";
import { randomBytes } from "node:crypto";
import { existsSync, readFileSync, writeFileSync } from "node:fs";
import { join } from "node:path";
import { describe, it } from "node:test";
import { openTarget } from "../../src/archive/targets/openTarget.ts";
import { RcloneTarget } from "../../src/archive/targets/rcloneTarget.ts";
import { S3Target } from "../../src/archive/targets/s3Target.ts";
import { ObjectConflict } from "../../src/archive/targets/target.ts";
import { systemClock } from "../../src/base/clock.ts";
import { realFileSystem } from "../../src/base/fileSystem.ts";
import { until } from "../support/archiveHarness.ts";
import { BucketServer } from "../support/bucketServer.ts";
import { rcloneOfBucket, rclonePlace, rcloneTarget } from "../support/rclonePlace.ts";
import { temporaryHome } from "../support/temporaryHome.ts";
import { contents, forever, listed, uploadOf, vault } from "../support/uploads.ts";

describe("rclone", () => {
  it("rclone_asAClientOfTheBucket_readsAndWritesTheSameLayout", async (test) => {
    const server = await BucketServer.start(test);
    const ours = new S3Target(server.record, { clock: systemClock, idleMs: 5_000 });
    const [one, two] = [randomBytes(10_000), randomBytes(20_000)];
    await ours.put(uploadOf("vault.age", Buffer.from("v")), forever);
    await ours.put(uploadOf("clips/d/one.age", one), forever);
    const theirs = rcloneOfBucket(server.record);
    assert.ok((await contents(theirs, "clips/d/one.age")).equals(one));
    await theirs.put(uploadOf("clips/d/two.age", two), forever);
    assert.ok((await contents(ours, "clips/d/two.age")).equals(two));
    assert.deepEqual(await listed(ours, `${vault}/clips`), await listed(theirs, `${vault}/clips`));
  });

  it("beginningOfAnObject_thatAKillHasLeft_isCompleted", async () => {
    const { target, exchange } = rclonePlace();
    const upload = uploadOf("clips/x.age", randomBytes(100_000));
    await target.put(uploadOf("clips/first.age", Buffer.from("f")), forever);
    const bytes = readFileSync(upload.path);
    for (const length of [0, 1, 99_999]) {
      await exchange("clips/x.age", bytes.subarray(0, length));
      await target.put(upload, forever);
      assert.ok((await contents(target, "clips/x.age")).equals(bytes), `${length}`);
    }
    for (const other of [Buffer.concat([bytes, bytes]), randomBytes(99_999)]) {
      await exchange("clips/x.age", other);
      await assert.rejects(target.put(upload, forever), ObjectConflict);
      assert.ok((await contents(target, "clips/x.age")).equals(other));
    }
  });

  for (const said of ["", "{}", '[{"Path":1}]', '[{"Path":"x"}]', "null"]) {
    it(`listing_thatIsNone_${said}_isAFailure`, async () => {
      const folder = temporaryHome();
      const script = `#!/bin/sh\nprintf '%s' '${said}'\n`;
      writeFileSync(join(folder, "rclone"), script, { mode: 0o700 });
      const target = new RcloneTarget("nas:", { PATH: `${folder}:/usr/bin:/bin` });
      await assert.rejects(listed(target, vault), /answer can't be understood/);
    });
  }

  it("rclone_thatHangs_endsWithTheRequest", async () => {
    const folder = temporaryHome();
    const pidFile = join(folder, "pid");
    const script = `#!/bin/sh\necho $$ >'${pidFile}.new'\nmv '${pidFile}.new' '${pidFile}'\nexec sleep 60\n`;
    writeFileSync(join(folder, "rclone"), script, { mode: 0o700 });
    const target = new RcloneTarget("nas:", { PATH: `${folder}:/usr/bin:/bin` });
    const request = new AbortController();
    const asked = assert.rejects(target.topFolders(request.signal), /that was enough/);
    await until(() => existsSync(pidFile));
    request.abort(new Error("that was enough"));
    await asked;
    await until(() => !existsSync(`/proc/${readFileSync(pidFile, "utf8").trim()}`));
  });

  it("rclone_thatIsNotInstalled_isAFailureInWords", async () => {
    const record = { kind: "rclone", remote: "nas:", lossless: true } as const;
    const shared = { clock: systemClock, home: "/", fileSystem: realFileSystem };
    const target = openTarget(record, { ...shared, environment: { PATH: temporaryHome() } });
    assert.ok(target !== undefined);
    await assert.rejects(listed(target, vault), /rclone is not installed/);
  });

  it("remote_thatIsNotConfigured_isAFailureInRclonesWords", async () => {
    const target = rcloneTarget(temporaryHome(), "nowhere:archive");
    const upload = uploadOf("vault.age", Buffer.from("v"));
    await assert.rejects(target.put(upload, forever), /rclone failed: .*didn't find section/);
  });

  it("programs_thatAreUsed_areInstalledHere", () => {
    assert.match(execFileSync("rclone", ["version"], { encoding: "utf8" }), /^rclone v/);
  });
});
