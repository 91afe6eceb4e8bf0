import assert from "node:assert/strict";
import { randomBytes } from "node:crypto";
import { describe, it, type TestContext } from "node:test";
import { parseListing } from "../../src/archive/targets/s3Listing.ts";
import { S3Target } from "../../src/archive/targets/s3Target.ts";
import { ObjectConflict, TargetFailure } from "../../src/archive/targets/target.ts";
import { systemClock } from "../../src/base/clock.ts";
import { BucketServer } from "../support/bucketServer.ts";
import { contents, forever, listed, uploadOf, vault } from "../support/uploads.ts";

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
    // What got there all the same is looked at, and not sent again.
    assert.equal(server.log.filter((line) => /^HEAD .* 200$/.test(line)).length, 1);
  });

  it("bucket_thatKeepsConditions_isLookedAtUntilItHasRefusedOnce", async (test) => {
    const { server, target } = await bucket(test);
    const upload = uploadOf("clips/a.age", randomBytes(1000));
    await target.put(upload, forever);
    const looks = () => server.log.filter((line) => line.startsWith("HEAD")).length;
    assert.equal(looks(), 1);
    // Somebody else was quicker, between the look and the write.
    const other = uploadOf("clips/b.age", randomBytes(1000));
    server.beforeNextPut = () => {
      const stranger = { bytes: Buffer.from("theirs"), sha256: undefined };
      server.objects.set(`my/archive/${other.name}`, stranger);
    };
    await assert.rejects(target.put(other, forever), ObjectConflict);
    assert.equal(looks(), 3);
    await target.put(uploadOf("clips/c.age", randomBytes(1000)), forever);
    assert.equal(looks(), 3);
  });

  it("writesAtOnce_intoABucketThatRefusesConditions_allArrive", async (test) => {
    const { server, target } = await bucket(test);
    server.conditions = "refuse";
    const uploads = ["a", "b", "c"].map((name) => uploadOf(`clips/${name}.age`, Buffer.from(name)));
    await Promise.all(uploads.map((upload) => target.put(upload, forever)));
    assert.equal(Object.keys(await listed(target, `${vault}/clips`)).length, 3);
  });

  it("key_thatMayNotLook_writesAllTheSame", async (test) => {
    const { server, target } = await bucket(test);
    server.mayLook = false;
    const upload = uploadOf("clips/x.age", randomBytes(1000));
    await target.put(upload, forever);
    assert.equal(server.objects.get(`my/archive/${upload.name}`)?.sha256, upload.sha256);
  });

  it("addresses_ofThisMachine_areReachedInEveryForm", async (test) => {
    const server = await BucketServer.start(test);
    for (const host of ["127.0.0.1", "localhost", "LOCALHOST", "127.1"]) {
      const record = { ...server.record, endpoint: `http://${host}:${server.port}` };
      const target = new S3Target(record, { clock: systemClock, idleMs: 5_000 });
      assert.deepEqual(await target.topFolders(forever), [], host);
    }
    const six = { ...server.record, endpoint: `http://[::1]:${server.port}` };
    const nobody = new S3Target(six, { clock: systemClock, idleMs: 5_000 });
    // Nothing listens there, but it was understood and asked.
    await assert.rejects(nobody.topFolders(forever), /ECONNREFUSED ::1|EADDRNOTAVAIL ::1/);
  });

  it("upload_thatCannotBeReadToItsEnd_isAFailureAndStoresNothing", async (test) => {
    const { server, target } = await bucket(test);
    const whole = uploadOf("clips/x.age", randomBytes(200_000));
    async function* torn() {
      yield randomBytes(1000);
      throw new Error("torn");
    }
    await assert.rejects(target.put({ ...whole, read: torn }, forever), /torn/);
    assert.equal(server.objects.has(`my/archive/${whole.name}`), false);
    await target.put(whole, forever);
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

  it("listing_thatGoesRoundInCircles_isAFailure", async (test) => {
    const { server, target } = await bucket(test);
    let page = 0;
    server.nextToken = () => {
      page += 1;
      return `token ${page % 3}`;
    };
    await assert.rejects(listed(target, vault), /lists without an end/);
    assert.equal(page, 4);
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
