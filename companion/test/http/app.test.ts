import assert from "node:assert/strict";
import { once } from "node:events";
import { createServer } from "node:http";
import { type AddressInfo, connect } from "node:net";
import { describe, it, type TestContext } from "node:test";
import { type AppDependencies, createApp } from "../../src/app.ts";
import { ArchiveNotReady } from "../../src/archive/archiveErrors.ts";
import type { ArchiveApi } from "../../src/archive/archiveRoutes.ts";
import { errorStatus } from "../../src/http/errors.ts";
import { NotRecording } from "../../src/observer/errors.ts";
import { defaultSettings, ObserverStatus } from "../../src/wire/records.ts";
import { InvalidRecord } from "../../src/wire/schema.ts";
import { type RequestOptions, send, testToken } from "../support/observerProcess.ts";

type FakeObserver = AppDependencies["observer"];

const idle = ObserverStatus.parse({ running: false, chunkIndex: 7 });

function unexpected(): never {
  throw new Error("nobody expected this call");
}

/** Every call that a test doesn't name fails. */
const silentObserver: FakeObserver = {
  status: unexpected,
  start: unexpected,
  stop: unexpected,
  receiveFrames: unexpected,
  replaceSettings: unexpected,
  preview: unexpected,
  forget: unexpected,
  complain: unexpected,
};

/** A server around the app; the result is its port. */
async function serve(
  test: TestContext,
  observer: Partial<FakeObserver> = {},
  options: Partial<AppDependencies> = {},
): Promise<number> {
  let port = 0;
  const app = createApp({
    observer: { ...silentObserver, ...observer },
    archive: unexpected,
    token: testToken,
    port: () => port,
    bodyDeadlineMs: 10_000,
    onRequest: () => undefined,
    onUnexpected: () => undefined,
    ...options,
  });
  const server = createServer({ requestTimeout: 0 }, app);
  server.listen(0, "127.0.0.1");
  await once(server, "listening");
  test.after(() => {
    server.closeAllConnections();
    server.close();
  });
  port = (server.address() as AddressInfo).port;
  return port;
}

/** The status, and the code of the error where it is one. */
async function outcome(port: number, method: string, path: string, options?: RequestOptions) {
  const answer = await send(port, method, path, options);
  const error = answer.body["error"] as { code: string; path?: string } | undefined;
  return [answer.status, error?.code, error?.path].filter((part) => part !== undefined);
}

it("errorCodes_andTheirStatus_arePinned", () => {
  assert.deepEqual(errorStatus, {
    invalidJson: 400,
    bodyCutOff: 400,
    unauthorized: 401,
    foreignHost: 403,
    foreignOrigin: 403,
    unknownRoute: 404,
    methodNotAllowed: 405,
    bodyTimeout: 408,
    notRecording: 409,
    archiveNotReady: 409,
    bodyTooLarge: 413,
    invalidRecord: 422,
    recoveryKeyWrong: 422,
    internal: 500,
    diskFailed: 500,
    archiveUnreachable: 502,
    shuttingDown: 503,
    keyringRefused: 503,
    diskFull: 507,
  });
});

describe("forget and preview", () => {
  const report = {
    frames: 1,
    rawInputs: 0,
    rawInputsUnknown: 0,
    journalLines: 2,
    archiveClips: 0,
    archiveFrames: 0,
    notSearched: undefined,
    archiveWaits: undefined,
  };

  it("forget_takesATimeAndTellsWhatWasRemoved", async (test) => {
    const ranges: unknown[] = [];
    const port = await serve(test, {
      forget: async (range) => {
        ranges.push(range);
        return report;
      },
    });
    const body = JSON.stringify({ fromMs: 5, toMs: 7 });
    const answer = await send(port, "POST", "/api/forget", { body });
    const { archiveWaits: _, notSearched: __, ...told } = report;
    assert.deepEqual([answer.status, answer.body], [200, told]);
    assert.deepEqual(ranges, [{ fromMs: 5, toMs: 7 }]);
  });

  it("forget_ofNoTime_isRefused", async (test) => {
    const port = await serve(test);
    for (const given of [{}, { fromMs: 7, toMs: 5 }, { fromMs: -1, toMs: 5 }, { fromMs: 1.5 }]) {
      const body = JSON.stringify(given);
      const [status, code] = await outcome(port, "POST", "/api/forget", { body });
      assert.deepEqual([status, code], [422, "invalidRecord"], body);
    }
    assert.deepEqual(await outcome(port, "GET", "/api/forget"), [405, "methodNotAllowed"]);
  });

  it("preview_hasPicturesWhereTheyAreAskedFor", async (test) => {
    const asked: boolean[] = [];
    const port = await serve(test, {
      preview: async (withPictures) => {
        asked.push(withPictures);
        return {
          reason: "Nothing waits to be sent.",
          recipient: undefined,
          instructions: undefined,
          prompt: [],
          request: undefined,
          frames: [],
        };
      },
    });
    for (const path of ["/api/preview", "/api/preview?pictures=1"]) {
      const answer = await send(port, "GET", path);
      assert.deepEqual(answer.body, {
        reason: "Nothing waits to be sent.",
        prompt: [],
        frames: [],
      });
    }
    assert.deepEqual(asked, [false, true]);
  });
});

describe("guards", () => {
  it("guard_ownHostNames_pass", async (test) => {
    const port = await serve(test, { status: () => idle });
    for (const host of [`127.0.0.1:${port}`, `localhost:${port}`]) {
      const answer = await send(port, "GET", "/api/status", { headers: { Host: host } });
      assert.equal(answer.status, 200);
      assert.deepEqual(answer.body, { running: false, chunkIndex: 7 });
    }
  });

  it("guard_foreignHost_isRefusedBeforeAllElse", async (test) => {
    const port = await serve(test);
    for (const host of [
      "evil.example",
      `evil.example:${port}`,
      "127.0.0.1",
      `127.0.0.1:${port + 1}`,
      `localhost:${port}.evil.example`,
      `LOCALHOST:${port}`,
      `[::1]:${port}`,
    ]) {
      const headers = { Host: host, Origin: "http://x", "X-Ostrel-Local-Token": "wrong" };
      assert.deepEqual(await outcome(port, "GET", "/nope", { headers }), [403, "foreignHost"]);
    }
  });

  it("guard_anyOrigin_isRefusedBeforeTheToken", async (test) => {
    const port = await serve(test);
    for (const origin of ["null", "http://evil.example", `http://127.0.0.1:${port}`]) {
      const headers = { Origin: origin, "X-Ostrel-Local-Token": "wrong" };
      assert.deepEqual(await outcome(port, "GET", "/nope", { headers }), [403, "foreignOrigin"]);
    }
  });

  it("guard_wrongToken_isRefusedBeforeTheRoute", async (test) => {
    const port = await serve(test);
    for (const token of [
      "",
      "wrong",
      `${testToken}x`,
      testToken.slice(1),
      testToken.toUpperCase(),
    ]) {
      const headers = { "X-Ostrel-Local-Token": token };
      for (const path of ["/api/status", "/nope", "//api/status", "/api/frames"]) {
        assert.deepEqual(await outcome(port, "GET", path, { headers }), [401, "unauthorized"]);
      }
    }
  });

  it("guard_refusedBody_isNotWaitedFor", async (test) => {
    const port = await serve(test);
    const socket = connect(port, "127.0.0.1");
    socket.write(
      `POST /api/frames HTTP/1.1\r\nHost: 127.0.0.1:${port}\r\nContent-Length: 1000000\r\n\r\n{`,
    );
    const [answer] = (await once(socket, "data")) as [Buffer];
    assert.match(answer.toString(), /^HTTP\/1.1 401 [\s\S]*Connection: close/);
    socket.destroy();
  });
});

describe("routes", () => {
  it("route_unknown_is404", async (test) => {
    const port = await serve(test);
    for (const path of [
      "/",
      "/api",
      "/api/status/",
      "/API/status",
      "/api//status",
      "/api/%73tatus",
      "/api/x/../status",
    ]) {
      assert.deepEqual(await outcome(port, "GET", path), [404, "unknownRoute"], path);
    }
  });

  it("route_wrongMethod_is405", async (test) => {
    const port = await serve(test);
    for (const [method, path] of [
      ["POST", "/api/status"],
      ["GET", "/api/start"],
      ["GET", "/api/frames"],
      ["POST", "/api/settings"],
      ["DELETE", "/api/stop"],
      ["POST", "/api/archive/status"],
    ] as const) {
      assert.deepEqual(await outcome(port, method, path), [405, "methodNotAllowed"], path);
    }
  });

  it("stop_withoutBody_stops", async (test) => {
    const port = await serve(test, { stop: async () => idle });
    assert.deepEqual(await outcome(port, "POST", "/api/stop"), [200]);
  });

  it("start_external_starts", async (test) => {
    const port = await serve(test, { start: async () => idle });
    const body = '{"captureMode":"external","more":1}';
    assert.deepEqual(await outcome(port, "POST", "/api/start", { body }), [200]);
  });

  it("start_otherCaptureModes_areRefusedWithThePath", async (test) => {
    const port = await serve(test);
    for (const body of [
      '{"captureMode":"screen"}',
      "{}",
      '{"captureMode":null}',
      '{"captureMode":1}',
    ]) {
      const answer = await outcome(port, "POST", "/api/start", { body });
      assert.deepEqual(answer, [422, "invalidRecord", "captureMode"]);
    }
  });

  it("settings_put_answersTheRecordInUse", async (test) => {
    const port = await serve(test, {
      replaceSettings: (given) => ({ ...given, archiveVaultId: "own" }),
    });
    const answer = await send(port, "PUT", "/api/settings", { body: '{"model":"m"}' });
    assert.equal(answer.status, 200);
    assert.deepEqual(answer.body, { ...defaultSettings, model: "m", archiveVaultId: "own" });
  });

  it("settings_wrongType_isRefusedWithThePath", async (test) => {
    const port = await serve(test);
    const answer = await outcome(port, "PUT", "/api/settings", { body: '{"chunkSizeMs":"1"}' });
    assert.deepEqual(answer, [422, "invalidRecord", "chunkSizeMs"]);
  });

  it("unexpectedError_is500AndTellsNothing", async (test) => {
    const seen: unknown[] = [];
    const port = await serve(
      test,
      { stop: () => Promise.reject(new Error("secret detail")) },
      { onUnexpected: (error) => seen.push(error) },
    );
    const answer = await send(port, "POST", "/api/stop");
    assert.equal(answer.status, 500);
    assert.doesNotMatch(JSON.stringify(answer.body), /secret detail/);
    assert.equal(seen.length, 1);
  });

  it("diskFull_is507", async (test) => {
    const full = Object.assign(new Error("ENOSPC"), { code: "ENOSPC" });
    const port = await serve(test, { stop: () => Promise.reject(full) });
    const answer = await send(port, "POST", "/api/stop");
    const error = { code: "diskFull", message: "The disk is full." };
    assert.deepEqual(answer, { status: 507, body: { error } });
  });

  it("diskThatRefusesOtherwise_is500AndSaysWhy", async (test) => {
    const refusal = Object.assign(new Error("EROFS"), { code: "EROFS", path: "/state" });
    const port = await serve(test, { stop: () => Promise.reject(refusal) });
    const answer = await send(port, "POST", "/api/stop");
    const message =
      "This can't be kept: The file system is read-only: /state. Mount it for writing.";
    assert.deepEqual(answer, { status: 500, body: { error: { code: "diskFailed", message } } });
  });
});

/** Sends everything before it looks for an answer, as simple clients do; the answer's first line. */
async function answerAfterSending(port: number, path: string, body: Uint8Array): Promise<string> {
  const socket = connect(port, "127.0.0.1").pause();
  const closed = once(socket, "close").then(() => assert.fail("closed"));
  closed.catch(() => undefined);
  socket.on("error", () => undefined);
  socket.write(
    `POST ${path} HTTP/1.1\r\nHost: 127.0.0.1:${port}\r\nX-Ostrel-Local-Token: ${testToken}\r\nContent-Length: ${body.length}\r\n\r\n`,
  );
  const sent = new Promise<void>((resolve, reject) => {
    socket.write(body, (error) => (error ? reject(error) : resolve()));
  });
  await Promise.race([sent, closed]);
  const answered = once(socket, "data");
  socket.resume();
  const [answer] = (await Promise.race([answered, closed])) as [Buffer];
  socket.destroy();
  return answer.toString().split("\r\n", 1)[0] ?? "";
}

describe("bodies", () => {
  const eightMegabytes = Buffer.alloc(8_000_000, " ");

  it("body_refusedUnread_isTakenToItsEnd", async (test) => {
    const receiveFrames = () => Promise.reject(new NotRecording("not now"));
    const port = await serve(test, { receiveFrames });
    for (const [path, status] of [
      ["/api/frames", 409],
      ["/api/start", 413],
      ["/nope", 404],
    ] as const) {
      const answer = await answerAfterSending(port, path, eightMegabytes);
      assert.match(answer, new RegExp(`^HTTP/1.1 ${status} `));
    }
  });

  it("body_refusedHalfWay_isTakenToItsEnd", async (test) => {
    const receiveFrames: FakeObserver["receiveFrames"] = async (body) => {
      for await (const _ of body) throw new InvalidRecord("frames.0", "Invalid input");
      return idle;
    };
    const port = await serve(test, { receiveFrames });
    const answer = await answerAfterSending(port, "/api/frames", eightMegabytes);
    assert.match(answer, /^HTTP\/1.1 422 /);
  });

  it("body_noJson_is400", async (test) => {
    const port = await serve(test);
    for (const body of ["", "{", "captureMode=external", "{} {}"]) {
      assert.deepEqual(await outcome(port, "POST", "/api/start", { body }), [400, "invalidJson"]);
    }
  });

  it("body_of1MiB_passes", async (test) => {
    const port = await serve(test, { start: async () => idle });
    const body = '{"captureMode":"external"}'.padEnd(1024 * 1024);
    assert.deepEqual(await outcome(port, "POST", "/api/start", { body }), [200]);
  });

  it("body_largerThan1MiB_is413", async (test) => {
    const port = await serve(test);
    const body = '{"captureMode":"external"}'.padEnd(1024 * 1024 + 1);
    assert.deepEqual(await outcome(port, "POST", "/api/start", { body }), [413, "bodyTooLarge"]);
  });

  it("body_largerThan1MiBWithoutALength_is413", async (test) => {
    const port = await serve(test);
    const body = Array.from({ length: 20 }, () => Buffer.alloc(100_000, " "));
    assert.deepEqual(await outcome(port, "POST", "/api/start", { body }), [413, "bodyTooLarge"]);
  });

  for (const path of ["/api/start", "/api/frames"]) {
    it(`body_thatDrips_is408: ${path}`, async (test) => {
      const receiveFrames: FakeObserver["receiveFrames"] = async (body) => {
        for await (const piece of body) assert.ok(piece.length > 0);
        return idle;
      };
      const port = await serve(test, { receiveFrames }, { bodyDeadlineMs: 50 });
      const socket = connect(port, "127.0.0.1");
      socket.write(
        `POST ${path} HTTP/1.1\r\nHost: 127.0.0.1:${port}\r\nX-Ostrel-Local-Token: ${testToken}\r\nContent-Length: 1000\r\n\r\n{`,
      );
      const drip = setInterval(() => socket.write(" "), 10);
      const [answer] = (await once(socket, "data")) as [Buffer];
      clearInterval(drip);
      socket.destroy();
      assert.match(answer.toString(), /^HTTP\/1.1 408 [\s\S]*bodyTimeout/);
    });
  }

  it("body_cutOff_endsTheReceiverWithAnError", async (test) => {
    let seen: unknown;
    let isOver = () => {};
    const over = new Promise<void>((resolve) => {
      isOver = resolve;
    });
    const receiveFrames: FakeObserver["receiveFrames"] = async (body) => {
      try {
        for await (const piece of body) assert.ok(piece.length > 0);
      } catch (error) {
        seen = error;
        throw error;
      } finally {
        isOver();
      }
      return idle;
    };
    const port = await serve(test, { receiveFrames });
    const socket = connect(port, "127.0.0.1");
    socket.write(
      `POST /api/frames HTTP/1.1\r\nHost: 127.0.0.1:${port}\r\nX-Ostrel-Local-Token: ${testToken}\r\nContent-Length: 1000\r\n\r\n{`,
      () => socket.destroy(),
    );
    await over;
    assert.match(String(seen), /ended too early/);
  });
});

describe("refusals of the archive", () => {
  it("requestThatChangesSomething_tellsTheStatusItsReasonUntilOneIsDone", async (test) => {
    const told: [string, string | undefined][] = [];
    const complain: FakeObserver["complain"] = (...complaint) => told.push(complaint);
    let isReady = false;
    const record = { archiveEnabled: false, archiveVaultId: "v", hasRecoveryKey: true };
    const disable = async () => {
      if (!isReady) throw new ArchiveNotReady("Not yet.");
      return { ...record, recoveryKey: undefined };
    };
    const archive = () => ({ disable }) as unknown as ArchiveApi;
    const port = await serve(test, { complain }, { archive });
    const path = "/api/archive/disable";
    assert.deepEqual(await outcome(port, "POST", path), [409, "archiveNotReady"]);
    isReady = true;
    assert.deepEqual(await outcome(port, "POST", path), [200]);
    assert.deepEqual(told, [
      ["archive request", "Not yet."],
      ["archive request", undefined],
    ]);
  });

  it("question_leavesTheStatusAlone", async (test) => {
    const archive = () => {
      throw new ArchiveNotReady("Not yet.");
    };
    const port = await serve(test, {}, { archive });
    for (const [method, path] of [
      ["GET", "/api/archive/status"],
      ["GET", "/api/archive/export/status"],
      ["POST", "/api/archive/export/estimate"],
    ] as const) {
      assert.deepEqual(await outcome(port, method, path), [409, "archiveNotReady"]);
    }
  });
});
