import assert from "node:assert/strict";
import { execFileSync } from "node:child_process";
import { createHash, randomBytes } from "node:crypto";
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
import { openTarget } from "../../src/archive/targets/openTarget.ts";
import { parseListing } from "../../src/archive/targets/s3Listing.ts";
import { S3Target } from "../../src/archive/targets/s3Target.ts";
import {
  type ArchiveTarget,
  ObjectConflict,
  ObjectMissing,
  TargetFailure,
  type Upload,
} from "../../src/archive/targets/target.ts";
import { TargetFile } from "../../src/archive/targets/targetFile.ts";
import { redacted, told, withKeptSecret } from "../../src/archive/targets/targetRecord.ts";
import { systemClock } from "../../src/base/clock.ts";
import { systemFailure } from "../../src/base/failure.ts";
import { type FileSystem, realFileSystem } from "../../src/base/fileSystem.ts";
import { realDisk } from "../../src/spool/disk.ts";
import { BucketServer } from "../support/bucketServer.ts";
import { temporaryHome } from "../support/temporaryHome.ts";

const forever = new AbortController().signal;
const vault = "0123456789abcdef0123";

function uploadOf(name: string, bytes: Buffer): Upload {
  const path = join(temporaryHome(), "file");
  writeFileSync(path, bytes);
  const sha256 = createHash("sha256").update(bytes).digest("hex");
  return {
    name: `${vault}/${name}`,
    path,
    bytes: bytes.length,
    sha256,
    read: () => realDisk.read(path),
  };
}

async function contents(target: ArchiveTarget, name: string): Promise<Buffer> {
  const pieces: Uint8Array[] = [];
  for await (const piece of target.read(`${vault}/${name}`, forever)) pieces.push(piece);
  return Buffer.concat(pieces);
}

async function listed(target: ArchiveTarget, folder: string): Promise<Record<string, number>> {
  const objects: Record<string, number> = {};
  for await (const { name, bytes } of target.list(folder, forever)) objects[name] = bytes;
  return objects;
}

interface Place {
  readonly target: ArchiveTarget;
  /** Puts other bytes under the name, as nobody should. */
  exchange(name: string, bytes: Buffer): void;
}

function folderPlace(): Place {
  const root = join(temporaryHome(), "archive");
  mkdirSync(root);
  const exchange = (name: string, bytes: Buffer) => writeFileSync(join(root, vault, name), bytes);
  return { target: new FolderTarget(realFileSystem, root), exchange };
}

async function bucketPlace(test: TestContext, knowsConditions = true): Promise<Place> {
  const server = await BucketServer.start(test);
  server.knowsConditions = knowsConditions;
  const exchange = (name: string, bytes: Buffer) => {
    server.objects.set(`my/archive/${vault}/${name}`, { bytes, sha256: undefined });
  };
  return { target: new S3Target(server.record, { clock: systemClock, idleMs: 5_000 }), exchange };
}

/** A remote of rclone's own kind for a folder, in a configuration of the test's own. */
function rclonePlace(): Place {
  const home = temporaryHome();
  mkdirSync(join(home, ".config", "rclone"), { recursive: true });
  mkdirSync(join(home, "store"));
  writeFileSync(
    join(home, ".config", "rclone", "rclone.conf"),
    `[nas]\ntype = alias\nremote = ${join(home, "store")}\n`,
  );
  return {
    target: rcloneTarget(home, "nas:my archive"),
    exchange: exchangeIn(join(home, "store", "my archive")),
  };
}

function exchangeIn(root: string) {
  return (name: string, bytes: Buffer) => writeFileSync(join(root, vault, name), bytes);
}

function rcloneTarget(home: string, remote: string): ArchiveTarget {
  const environment = { PATH: process.env["PATH"], HOME: home, RCLONE_CONFIG: "/nonexistent" };
  const record = { kind: "rclone", remote, lossless: true } as const;
  const target = openTarget(record, {
    clock: systemClock,
    home,
    fileSystem: realFileSystem,
    environment,
  });
  assert.ok(target !== undefined);
  return target;
}

const places: readonly (readonly [string, (test: TestContext) => Place | Promise<Place>])[] = [
  ["folder", folderPlace],
  ["bucket", (test) => bucketPlace(test)],
  ["bucket without conditions", (test) => bucketPlace(test, false)],
  ["rclone", rclonePlace],
];

for (const [kind, makePlace] of places) {
  describe(`target: ${kind}`, () => {
    it("object_stored_isThereAsItWas", async (test) => {
      const { target } = await makePlace(test);
      for (const size of [1, 65_536, 3_000_001]) {
        const bytes = randomBytes(size);
        await target.put(uploadOf("vault.age", Buffer.from("v")), forever);
        await target.put(uploadOf(`clips/2026-11-21/${size}.age`, bytes), forever);
        assert.ok((await contents(target, `clips/2026-11-21/${size}.age`)).equals(bytes));
      }
    });

    it("sameObject_storedAgain_isConfirmed", async (test) => {
      const { target } = await makePlace(test);
      const upload = uploadOf("vault.age", randomBytes(1000));
      await target.put(upload, forever);
      await target.put(upload, forever);
      assert.deepEqual(await listed(target, vault), { [`${vault}/vault.age`]: 1000 });
    });

    it("otherObject_underTheSameName_isRefusedAndTheFirstStays", async (test) => {
      const { target } = await makePlace(test);
      const first = randomBytes(1000);
      await target.put(uploadOf("vault.age", first), forever);
      for (const size of [1000, 10]) {
        const other = uploadOf("vault.age", randomBytes(size));
        await assert.rejects(target.put(other, forever), ObjectConflict);
      }
      assert.ok((await contents(target, "vault.age")).equals(first));
    });

    it("objects_areListedByFolder", async (test) => {
      const { target } = await makePlace(test);
      for (const name of ["vault.age", "clips/2026-11-20/a.age", "clips/2026-11-21/b.age"]) {
        await target.put(uploadOf(name, Buffer.from(name)), forever);
      }
      assert.deepEqual(await listed(target, `${vault}/clips/2026-11-21`), {
        [`${vault}/clips/2026-11-21/b.age`]: 22,
      });
      assert.deepEqual(Object.keys(await listed(target, `${vault}/clips`)).length, 2);
      assert.deepEqual(await listed(target, `${vault}/manifest`), {});
      assert.deepEqual(await target.topFolders(forever), [vault]);
    });

    it("objectThatIsNotThere_isMissing", async (test) => {
      const { target } = await makePlace(test);
      await target.put(uploadOf("vault.age", Buffer.from("v")), forever);
      await assert.rejects(contents(target, "clips/none.age"), ObjectMissing);
    });

    it("abort_endsWhatIsUnderWay", async (test) => {
      const { target } = await makePlace(test);
      await target.put(uploadOf("vault.age", Buffer.from("v")), forever);
      const controller = new AbortController();
      controller.abort(new Error("enough"));
      const upload = uploadOf("clips/x.age", randomBytes(1000));
      await assert.rejects(target.put(upload, controller.signal), /enough/);
      assert.deepEqual(await listed(target, `${vault}/clips`), {});
    });

    it("object_altered_isReadAsItIs", async (test) => {
      const { target, exchange } = await makePlace(test);
      await target.put(uploadOf("vault.age", Buffer.from("v")), forever);
      exchange("vault.age", Buffer.from("w"));
      assert.equal(String(await contents(target, "vault.age")), "w");
    });
  });
}

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

describe("bucket", () => {
  async function bucket(test: TestContext, idleMs = 5_000) {
    const server = await BucketServer.start(test);
    const target = new S3Target(server.record, { clock: systemClock, idleMs });
    await target.put(uploadOf("vault.age", Buffer.from("v")), forever);
    server.log.length = 0;
    return { server, target };
  }

  it("bucket_inTheHostsName_isSignedAndReached", async (test) => {
    const server = await BucketServer.start(test);
    const record = { ...server.record, pathStyle: false, prefix: "" };
    const target = new S3Target(record, { clock: systemClock, idleMs: 5_000 });
    const bytes = randomBytes(10_000);
    await target.put(uploadOf("vault.age", bytes), forever);
    assert.ok((await contents(target, "vault.age")).equals(bytes));
    assert.deepEqual(await target.topFolders(forever), [vault]);
    assert.deepEqual([...server.objects.keys()], [`${vault}/vault.age`]);
  });

  it("connection_droppedBeforeOrAfter_isAFailureAndTheNextAttemptConfirms", async (test) => {
    const { server, target } = await bucket(test);
    for (const kind of ["drop before", "drop after"] as const) {
      const upload = uploadOf(`clips/${kind.replace(" ", "-")}.age`, randomBytes(500_000));
      server.fail({ kind });
      await assert.rejects(target.put(upload, forever), /server can't be reached/);
      await target.put(upload, forever);
      const stored = server.objects.get(`my/archive/${upload.name}`);
      assert.equal(stored?.sha256, upload.sha256);
    }
    assert.equal(server.log.filter((line) => line.endsWith("412")).length, 1);
  });

  it("answer_thatNeverComes_isGivenUp", async (test) => {
    const { server, target } = await bucket(test, 100);
    server.fail({ kind: "stall" });
    const upload = uploadOf("clips/x.age", randomBytes(1000));
    await assert.rejects(target.put(upload, forever), /nothing came for too long/);
    await target.put(upload, forever);
  });

  it("object_cutOnTheWay_isAFailureAndNotAShorterObject", async (test) => {
    const { server, target } = await bucket(test);
    await target.put(uploadOf("clips/x.age", randomBytes(400_000)), forever);
    server.fail({ kind: "truncate" });
    await assert.rejects(contents(target, "clips/x.age"), TargetFailure);
  });

  it("refusals_areToldWithWhatTheUserCanDo", async (test) => {
    const { server, target } = await bucket(test);
    const upload = uploadOf("clips/x.age", randomBytes(1000));
    for (const [code, words] of [
      ["RequestTimeTooSkewed", /clock is wrong/],
      ["NoSuchBucket", /no such bucket/],
      ["AccessDenied", /may not do this/],
      ["SlowDown", /503 \(SlowDown\)/],
    ] as const) {
      server.fail({ kind: { status: code === "SlowDown" ? 503 : 403, code } });
      await assert.rejects(target.put(upload, forever), words);
    }
    await target.put(upload, forever);
  });

  it("wrongKeys_areToldAsSuch_andAreInNoMessage", async (test) => {
    const { server } = await bucket(test);
    const secretAccessKey = "a-secret-that-is-wrong";
    for (const [change, words] of [
      [{ secretAccessKey }, /secret access key is wrong/],
      [{ accessKeyId: "AKOTHER" }, /access key is not known/],
      [{ region: "us-east-1" }, /region is wrong/],
    ] as const) {
      const record = { ...server.record, ...change };
      const target = new S3Target(record, { clock: systemClock, idleMs: 5_000 });
      await assert.rejects(listed(target, vault), (error: unknown) => {
        assert.match(String(error), words);
        return !String(error).includes(secretAccessKey);
      });
    }
  });

  it("listing_ofManyPages_isComplete", async (test) => {
    const { server, target } = await bucket(test);
    server.pageSize = 3;
    for (let count = 0; count < 10; count += 1) {
      await target.put(uploadOf(`clips/d/${count}.age`, Buffer.from("x")), forever);
    }
    assert.equal(Object.keys(await listed(target, `${vault}/clips`)).length, 10);
    assert.equal(server.log.filter((line) => line.startsWith("GET list")).length, 4);
  });

  it("listing_thatIsNone_isAFailure", () => {
    for (const text of ["", "<html></html>", "<ListBucketResult>", "{}"]) {
      assert.throws(() => parseListing(text));
    }
    const cut = "<ListBucketResult><IsTruncated>true</IsTruncated></ListBucketResult>";
    assert.throws(() => parseListing(cut), /no continuation/);
  });

  it("serverThatIsNotThere_isAFailureInWords", async () => {
    const record = {
      kind: "s3",
      lossless: true,
      endpoint: "http://127.0.0.1:1",
      region: "x",
      bucket: "footage",
      prefix: "",
      pathStyle: true,
      accessKeyId: "a",
      secretAccessKey: "s",
    } as const;
    const target = new S3Target(record, { clock: systemClock, idleMs: 1_000 });
    await assert.rejects(listed(target, vault), /can't be reached: connect ECONNREFUSED/);
  });
});

describe("rclone", () => {
  it("rclone_asAClientOfTheBucket_readsAndWritesTheSameLayout", async (test) => {
    const server = await BucketServer.start(test);
    const ours = new S3Target(server.record, { clock: systemClock, idleMs: 5_000 });
    const [one, two] = [randomBytes(10_000), randomBytes(20_000)];
    await ours.put(uploadOf("vault.age", Buffer.from("v")), forever);
    await ours.put(uploadOf("clips/d/one.age", one), forever);
    const home = temporaryHome();
    mkdirSync(join(home, ".config", "rclone"), { recursive: true });
    writeFileSync(
      join(home, ".config", "rclone", "rclone.conf"),
      [
        "[bucket]",
        "type = s3",
        "provider = Other",
        `access_key_id = ${server.credentials.accessKeyId}`,
        `secret_access_key = ${server.credentials.secretAccessKey}`,
        `region = ${server.record.region}`,
        `endpoint = http://127.0.0.1:${server.port}`,
        "force_path_style = true",
        "no_check_bucket = true",
      ].join("\n"),
    );
    const theirs = rcloneTarget(home, "bucket:footage/my/archive");
    assert.ok((await contents(theirs, "clips/d/one.age")).equals(one));
    await theirs.put(uploadOf("clips/d/two.age", two), forever);
    assert.ok((await contents(ours, "clips/d/two.age")).equals(two));
    assert.deepEqual(await listed(ours, `${vault}/clips`), await listed(theirs, `${vault}/clips`));
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

  it("programs_thatAreUsed_areInstalledHere", () => {
    assert.match(execFileSync("rclone", ["version"], { encoding: "utf8" }), /^rclone v/);
  });
});
