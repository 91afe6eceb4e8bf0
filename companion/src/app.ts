import type { IncomingMessage, RequestListener, ServerResponse } from "node:http";
import { type ArchiveApi, archiveRefusal, archiveRoutes } from "./archive/archiveRoutes.ts";
import { describeFailure, isDiskFull, isSystemError } from "./base/failure.ts";
import { bodyPieces, readJson } from "./http/body.ts";
import { RequestError } from "./http/errors.ts";
import { Guard } from "./http/guards.ts";
import { JsonError } from "./json/tokenizer.ts";
import { writeJson } from "./json/writer.ts";
import { NotRecording, ShuttingDown } from "./observer/errors.ts";
import type { Observer } from "./observer/observer.ts";
import { ForgetRequest, ObserverSettings, StartRequest } from "./wire/records.ts";
import { InvalidRecord, parseRecord } from "./wire/schema.ts";

export interface AppDependencies {
  readonly observer: Pick<
    Observer,
    | "status"
    | "start"
    | "stop"
    | "receiveFrames"
    | "replaceSettings"
    | "preview"
    | "forget"
    | "complain"
  >;
  /** Throws ArchiveNotReady where it can't be used at all. */
  archive(): ArchiveApi;
  readonly token: string;
  /** A request has come that bears the token. */
  onRequest(): void;
  /** The port that requests have to name as their host's. */
  port(): number;
  /** How long a body may take to arrive. */
  readonly bodyDeadlineMs: number;
  /** An error that nobody foresaw. */
  onUnexpected(error: unknown): void;
}

/** Answers with the record that becomes the body. */
type Handler = (request: IncomingMessage) => Promise<unknown> | unknown;
type Routes = ReadonlyMap<string, ReadonlyMap<string, Handler>>;

/** How long the rest of a refused body may go on arriving before the connection is cut. */
const lingerMs = 2_000;

/** The loopback API as a request listener; everything that it touches is in its dependencies. */
export function createApp(dependencies: AppDependencies): RequestListener {
  const guard = new Guard(dependencies.token);
  const routes = createRoutes(dependencies);
  return (request, response) => {
    const answer = async () => {
      guard.check(request, dependencies.port());
      dependencies.onRequest();
      return findHandler(routes, request)(request);
    };
    answer().then(
      (record) => send(request, response, 200, record),
      (error: unknown) => {
        const refusal = asRequestError(error, dependencies);
        send(request, response, refusal.status, refusal.body);
      },
    );
  };
}

function createRoutes({ observer, archive, bodyDeadlineMs }: AppDependencies): Routes {
  const json = (request: IncomingMessage) => readJson(request, bodyDeadlineMs);
  const route = (method: string, handler: Handler) => new Map([[method, handler]]);
  const routes = new Map([
    ["/api/status", route("GET", () => observer.status())],
    [
      "/api/start",
      route("POST", async (request) => {
        parseRecord(StartRequest, await json(request));
        return observer.start();
      }),
    ],
    ["/api/stop", route("POST", () => observer.stop())],
    [
      "/api/frames",
      route("POST", (request) => observer.receiveFrames(bodyPieces(request, bodyDeadlineMs))),
    ],
    [
      "/api/settings",
      route("PUT", async (request) =>
        observer.replaceSettings(parseRecord(ObserverSettings, await json(request))),
      ),
    ],
    [
      "/api/preview",
      route("GET", (request) => observer.preview(request.url?.endsWith("?pictures=1") === true)),
    ],
    [
      "/api/forget",
      route("POST", async (request) =>
        observer.forget(parseRecord(ForgetRequest, await json(request))),
      ),
    ],
  ]);
  for (const { method, path, answer } of archiveRoutes) {
    const plain: Handler = (request) => answer(archive(), () => json(request));
    const isQuestion = method === "GET" || path === "/api/archive/export/estimate";
    const handler = isQuestion ? plain : tellingRefusals(plain, observer);
    routes.set(path, new Map([...(routes.get(path) ?? []), [method, handler]]));
  }
  return routes;
}

/** The application reads no body of a refusal: why something was not done stands in the status. */
function tellingRefusals(answer: Handler, observer: AppDependencies["observer"]): Handler {
  return async (request) => {
    try {
      const record = await answer(request);
      observer.complain("archive request", undefined);
      return record;
    } catch (error) {
      const refusal = archiveRefusal(error);
      if (refusal !== undefined) observer.complain("archive request", refusal.message);
      throw error;
    }
  };
}

function findHandler(routes: Routes, request: IncomingMessage): Handler {
  const [path = ""] = (request.url ?? "").split("?", 1);
  const methods = routes.get(path);
  if (methods === undefined) throw new RequestError("unknownRoute", "There is no such endpoint.");
  const handler = methods.get(request.method ?? "");
  if (handler === undefined) {
    const allowed = [...methods.keys()].join(", ");
    throw new RequestError("methodNotAllowed", `This endpoint takes only ${allowed}.`);
  }
  return handler;
}

function asRequestError(error: unknown, { onUnexpected }: AppDependencies): RequestError {
  if (error instanceof RequestError) return error;
  if (error instanceof JsonError) {
    return new RequestError("invalidJson", `The body is not JSON: ${error.message}.`);
  }
  if (error instanceof InvalidRecord) {
    return new RequestError("invalidRecord", error.message, error.path);
  }
  if (error instanceof NotRecording) return new RequestError("notRecording", error.message);
  if (error instanceof ShuttingDown) return new RequestError("shuttingDown", error.message);
  const refusal = archiveRefusal(error);
  if (refusal !== undefined) return refusal;
  if (isDiskFull(error)) {
    return new RequestError("diskFull", "The disk is full.");
  }
  if (isSystemError(error)) {
    return new RequestError("diskFailed", `${describeFailure("This can't be kept", error)}.`);
  }
  onUnexpected(error);
  return new RequestError("internal", "The observer failed to do this.");
}

function send(
  request: IncomingMessage,
  response: ServerResponse,
  status: number,
  record: unknown,
): void {
  const body = Buffer.from(writeJson(record));
  response.statusCode = status;
  response.setHeader("Content-Type", "application/json");
  response.setHeader("Content-Length", body.length);
  response.setHeader("Cache-Control", "no-store");
  if (request.complete) {
    response.end(body);
    return;
  }
  response.setHeader("Connection", "close");
  response.write(body);
  dropRest(request, () => response.end());
}

/**
 * The body of a refused request is still arriving. The end of the answer closes the connection,
 * which would break off a sender that hasn't come to reading the answer yet. So the rest is read
 * and thrown away for a while before.
 */
function dropRest(request: IncomingMessage, then: () => void): void {
  const cut = setTimeout(then, lingerMs);
  request.once("end", then);
  request.once("close", () => {
    clearTimeout(cut);
    then();
  });
  request.resume();
}
