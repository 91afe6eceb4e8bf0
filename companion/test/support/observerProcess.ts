import { type ChildProcess, spawn } from "node:child_process";
import { once } from "node:events";
import { readFileSync } from "node:fs";
import * as http from "node:http";
import { createServer } from "node:net";
import type { TestContext } from "node:test";
import { writeSettings } from "./temporaryHome.ts";

export const testToken = "the-token-of-the-tests";

export interface Answer {
  readonly status: number;
  readonly body: Record<string, unknown>;
}

export interface RequestOptions {
  readonly body?: string | Uint8Array | Iterable<Uint8Array>;
  readonly headers?: Record<string, string>;
}

/** A port that was free a moment ago. */
export async function freePort(): Promise<number> {
  const server = createServer();
  server.listen(0, "127.0.0.1");
  await once(server, "listening");
  const address = server.address();
  server.close();
  await once(server, "close");
  if (address === null || typeof address === "string") throw new Error("no port");
  return address.port;
}

/** Sends the pieces as fast as the receiver takes them. */
async function sendBody(request: http.ClientRequest, body: RequestOptions["body"]): Promise<void> {
  if (body === undefined || typeof body === "string" || body instanceof Uint8Array) {
    request.end(body);
    return;
  }
  for (const piece of body) {
    if (!request.write(piece)) await once(request, "drain");
  }
  request.end();
}

/** One request on a connection of its own. */
export async function send(
  port: number,
  method: string,
  path: string,
  { body, headers }: RequestOptions = {},
): Promise<Answer> {
  const request = http.request({ host: "127.0.0.1", port, method, path, agent: false });
  request.setHeader("X-Ostrel-Local-Token", testToken);
  for (const [name, value] of Object.entries(headers ?? {})) {
    if (value === "") request.removeHeader(name);
    else request.setHeader(name, value);
  }
  const answered = once(request, "response");
  await Promise.race([sendBody(request, body), answered]);
  const [response] = (await answered) as [http.IncomingMessage];
  const pieces: Buffer[] = [];
  for await (const piece of response) pieces.push(piece as Buffer);
  const text = Buffer.concat(pieces).toString();
  return { status: response.statusCode ?? 0, body: JSON.parse(text) as Answer["body"] };
}

export interface ObserverOptions {
  readonly home: string;
  readonly port?: number;
  readonly settings?: Record<string, unknown>;
  readonly environment?: Record<string, string>;
  /** Written to standard input before anything else. */
  readonly firstLine?: string;
  readonly nodeArguments?: readonly string[];
  /** A descriptor for its standard error instead of the pipe of which `log` is read. */
  readonly logTo?: number;
}

/** The real program as a child, as the application starts it. */
export class ObserverProcess {
  readonly port: number;
  readonly child: ChildProcess;
  readonly exited: Promise<number | null>;
  #log = "";

  private constructor(port: number, child: ChildProcess) {
    this.port = port;
    this.child = child;
    this.exited = once(child, "exit").then(([code]) => code as number | null);
    child.stderr?.setEncoding("utf8").on("data", (text: string) => {
      this.#log += text;
    });
  }

  /** Starts it and returns at once; the test's end kills it. */
  static async launch(test: TestContext, options: ObserverOptions): Promise<ObserverProcess> {
    const port = options.port ?? (await freePort());
    writeSettings(options.home, { ...options.settings, localPort: port });
    const child = spawn(process.execPath, [...(options.nodeArguments ?? []), TEST_OBSERVER_PATH], {
      env: {
        PATH: process.env["PATH"],
        HOME: options.home,
        OSTREL_LOCAL_API_TOKEN: testToken,
        OSTREL_PARENT_PID: String(process.pid),
        ...options.environment,
      },
      stdio: ["pipe", "ignore", options.logTo ?? "pipe"],
    });
    const observer = new ObserverProcess(port, child);
    test.after(async () => {
      child.kill("SIGKILL");
      await observer.exited;
    });
    child.stdin?.on("error", () => undefined);
    child.stdin?.write(options.firstLine ?? "{}\n");
    return observer;
  }

  /** Starts it and resolves when it serves. */
  static async start(test: TestContext, options: ObserverOptions): Promise<ObserverProcess> {
    const observer = await ObserverProcess.launch(test, options);
    await observer.says("listening on");
    return observer;
  }

  get log(): string {
    return this.#log;
  }

  /** Resolves when the log holds the words; rejects when the process ends without them. */
  async says(words: string): Promise<void> {
    const ended = this.exited.then((code) => {
      throw new Error(`the observer ended with ${code}: ${this.#log}`);
    });
    ended.catch(() => undefined);
    while (!this.#log.includes(words)) {
      if (this.child.stderr === null) throw new Error("no log");
      await Promise.race([once(this.child.stderr, "data"), ended]);
    }
  }

  request(method: string, path: string, options?: RequestOptions): Promise<Answer> {
    return send(this.port, method, path, options);
  }

  startRecording(): Promise<Answer> {
    return this.request("POST", "/api/start", { body: '{"captureMode":"external"}' });
  }

  async terminate(): Promise<number | null> {
    this.child.kill("SIGTERM");
    return this.exited;
  }

  async kill(): Promise<void> {
    this.child.kill("SIGKILL");
    await this.exited;
  }

  /** Kilobytes of memory that are this process's share. */
  proportionalSetKb(): number {
    const rollup = readFileSync(`/proc/${this.child.pid}/smaps_rollup`, "latin1");
    return Number(/^Pss:\s+([0-9]+) kB/m.exec(rollup)?.[1]);
  }
}
