import assert from "node:assert/strict";
import { execFileSync } from "node:child_process";
import { randomBytes } from "node:crypto";
import {
  mkdirSync,
  readdirSync,
  readFileSync,
  rmSync,
  statSync,
  symlinkSync,
  writeFileSync,
} from "node:fs";
import { join } from "node:path";
import { describe, it, type TestContext } from "node:test";
import { FolderTarget } from "../../src/archive/targets/folderTarget.ts";
import { S3Target } from "../../src/archive/targets/s3Target.ts";
import {
  ObjectConflict,
  ObjectMissing,
  ObjectUnreadable,
  TargetFailure,
} from "../../src/archive/targets/target.ts";
import { TargetFile } from "../../src/archive/targets/targetFile.ts";
import { redacted, told, withKeptSecret } from "../../src/archive/targets/targetRecord.ts";
import { systemClock } from "../../src/base/clock.ts";
import { systemFailure } from "../../src/base/failure.ts";
import { type FileSystem, realFileSystem } from "../../src/base/fileSystem.ts";
import { realDisk } from "../../src/spool/disk.ts";
import { BucketServer } from "../support/bucketServer.ts";
import { rclonePlace } from "../support/rclonePlace.ts";
import { describeTarget, type Place } from "../support/targetSuite.ts";
import { temporaryHome } from "../support/temporaryHome.ts";
import { contents, forever, listed, uploadOf, vault } from "../support/uploads.ts";

function folderPlace(): Place {
  const root = join(temporaryHome(), "archive");
  mkdirSync(root);
  const exchange = (name: string, bytes: Buffer) => writeFileSync(join(root, vault, name), bytes);
  return { target: new FolderTarget(realFileSystem, root), exchange };
}

async function bucketPlace(
  test: TestContext,
  manners: Partial<Pick<BucketServer, "conditions" | "keepsMetadata">> = {},
): Promise<Place> {
  const server = await BucketServer.start(test);
  Object.assign(server, manners);
  const exchange = (name: string, bytes: Buffer) => {
    server.objects.set(`my/archive/${vault}/${name}`, { bytes, sha256: undefined });
  };
  return { target: new S3Target(server.record, { clock: systemClock, idleMs: 5_000 }), exchange };
}

const places: readonly (readonly [string, (test: TestContext) => Place | Promise<Place>])[] = [
  ["folder", folderPlace],
  ["bucket", (test) => bucketPlace(test)],
  ["bucket that refuses conditions", (test) => bucketPlace(test, { conditions: "refuse" })],
  ["bucket that ignores conditions", (test) => bucketPlace(test, { conditions: "ignore" })],
  ["bucket that keeps no metadata", (test) => bucketPlace(test, { keepsMetadata: false })],
  ["rclone", rclonePlace],
];

for (const [kind, makePlace] of places) describeTarget(kind, makePlace);

describe("folder", () => {
  it("folderThatIsNotThere_isNotMade", async () => {
    const root = join(temporaryHome(), "unplugged");
    const target = new FolderTarget(realFileSystem, root);
    const upload = uploadOf("vault.age", Buffer.from("v"));
    await assert.rejects(target.put(upload, forever), /There is no folder .*unplugged/);
    await assert.rejects(listed(target, vault), TargetFailure);
    await assert.rejects(contents(target, "x"), /There is no folder/);
    assert.throws(() => statSync(root), { code: "ENOENT" });
  });

  it("folder_withoutLinks_storesAllTheSame", async () => {
    const root = temporaryHome();
    const withoutLinks: FileSystem = {
      ...realFileSystem,
      link: async (_, to) => {
        throw systemFailure("EPERM", to);
      },
    };
    const target = new FolderTarget(withoutLinks, root);
    const upload = uploadOf("vault.age", randomBytes(100));
    await target.put(upload, forever);
    await target.put(upload, forever);
    await assert.rejects(
      target.put(uploadOf("vault.age", randomBytes(100)), forever),
      ObjectConflict,
    );
    assert.deepEqual(readdirSync(join(root, vault)), ["vault.age"]);
  });

  it("emptyFile_ofAnAttemptThatWasKilled_givesWay", async () => {
    const root = temporaryHome();
    mkdirSync(join(root, vault));
    writeFileSync(join(root, vault, "vault.age"), "");
    const target = new FolderTarget(realFileSystem, root);
    await target.put(uploadOf("vault.age", Buffer.from("v")), forever);
    assert.equal(String(await contents(target, "vault.age")), "v");
  });

  it("symbolicLink_underTheName_isNotFollowedForWriting", async () => {
    const [root, elsewhere] = [temporaryHome(), temporaryHome()];
    mkdirSync(join(root, vault));
    writeFileSync(join(elsewhere, "victim"), "");
    symlinkSync(join(elsewhere, "victim"), join(root, vault, "vault.age"));
    await new FolderTarget(realFileSystem, root).put(
      uploadOf("vault.age", Buffer.from("v")),
      forever,
    );
    assert.equal(readFileSync(join(elsewhere, "victim"), "utf8"), "");
  });

  it("symbolicLink_underTheTemporaryName_isNotFollowed", async () => {
    const [root, elsewhere] = [temporaryHome(), temporaryHome()];
    mkdirSync(join(root, vault));
    writeFileSync(join(elsewhere, "victim"), "mine");
    symlinkSync(join(elsewhere, "victim"), join(root, vault, ".vault.age.part"));
    const target = new FolderTarget(realFileSystem, root);
    await target.put(uploadOf("vault.age", Buffer.from("v")), forever);
    assert.equal(readFileSync(join(elsewhere, "victim"), "utf8"), "mine");
    assert.equal(String(await contents(target, "vault.age")), "v");
  });

  it("whatIsNoFile_isMissingAndKeepsNobodyWaiting", async () => {
    const root = temporaryHome();
    const target = new FolderTarget(realFileSystem, root);
    await target.put(uploadOf("vault.age", Buffer.from("v")), forever);
    const clips = join(root, vault, "clips", "d");
    mkdirSync(join(clips, "folder.age"), { recursive: true });
    execFileSync("mkfifo", [join(clips, "pipe.age")]);
    symlinkSync("nowhere", join(clips, "dangling.age"));
    symlinkSync("loop.age", join(clips, "loop.age"));
    writeFileSync(join(clips, "real.age"), "r");
    for (const name of ["folder", "pipe", "dangling", "loop"]) {
      await assert.rejects(contents(target, `clips/d/${name}.age`), ObjectMissing, name);
    }
    const names = Object.keys(await listed(target, `${vault}/clips`));
    assert.deepEqual(
      names,
      ["pipe", "real"].map((name) => `${vault}/clips/d/${name}.age`),
    );
  });

  it("file_onADamagedPlaceOfTheDisk_isUnreadableAndTheFolderIsNot", async () => {
    const root = temporaryHome();
    const whole = new FolderTarget(realFileSystem, root);
    await whole.put(uploadOf("vault.age", Buffer.from("v")), forever);
    await whole.put(uploadOf("clips/x.age", Buffer.from("x")), forever);
    const damaged: FileSystem = {
      ...realFileSystem,
      open: async (path, flags, mode) => {
        if (path.endsWith("x.age")) throw systemFailure("EIO", path);
        return realFileSystem.open(path, flags, mode);
      },
    };
    const target = new FolderTarget(damaged, root);
    await assert.rejects(contents(target, "clips/x.age"), ObjectUnreadable);
    assert.equal(String(await contents(target, "vault.age")), "v");
    // Where the folder is gone, it is not the file.
    rmSync(root, { recursive: true });
    await assert.rejects(contents(target, "clips/x.age"), /There is no folder/);
  });

  it("fileSystem_thatRefuses_isToldInWords", async () => {
    const full: FileSystem = {
      ...realFileSystem,
      open: async (path, flags, mode) => {
        if (path.endsWith(".part")) throw systemFailure("EROFS", path);
        return realFileSystem.open(path, flags, mode);
      },
    };
    const target = new FolderTarget(full, temporaryHome());
    const putting = target.put(uploadOf("vault.age", Buffer.from("v")), forever);
    await assert.rejects(putting, /can't be written: The file system is read-only/);
  });
});

describe("target file", () => {
  it("targetFile_isForTheUserAlone", async () => {
    const path = join(temporaryHome(), "archive", "target.json");
    const file = new TargetFile(realDisk, path);
    assert.deepEqual(await file.read(), { kind: "none", lossless: false });
    const record = { kind: "folder", path: "/nas", lossless: false } as const;
    await file.write(record);
    assert.deepEqual(await file.read(), record);
    assert.equal(statSync(path).mode & 0o777, 0o600);
    rmSync(path);
  });

  it("targetFile_thatCantBeUnderstood_isToldWithoutItsContents", async () => {
    const path = join(temporaryHome(), "target.json");
    writeFileSync(path, '{"kind":"s3","secretAccessKey":"hidden","bucket":7}');
    await assert.rejects(new TargetFile(realDisk, path).read(), (error: unknown) => {
      assert.match(String(error), /can't be understood/);
      return !String(error).includes("hidden");
    });
  });

  it("secret_isToldToNobodyAndStaysWhereItIsNotGiven", async (test) => {
    const { record } = await BucketServer.start(test);
    const shown = told(record);
    assert.ok(!JSON.stringify(shown).includes(record.secretAccessKey));
    const given = { ...record, secretAccessKey: redacted, prefix: "other" };
    assert.deepEqual(withKeptSecret(given, record), { ...record, prefix: "other" });
    // It is not sent to a server that it was not given for.
    const elsewhere = { ...given, endpoint: "https://elsewhere.example" };
    assert.deepEqual(withKeptSecret(elsewhere, record), elsewhere);
  });
});
