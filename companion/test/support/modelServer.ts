import { once } from "node:events";
import { createServer, type IncomingMessage, type Server, type ServerResponse } from "node:http";
import type { AddressInfo } from "node:net";
import type { TestContext } from "node:test";

export interface ReceivedRequest {
  readonly method: string;
  readonly path: string;
  readonly headers: IncomingMessage["headers"];
  readonly text: string;
}

/** What the far side answers; a function has the connection to itself. */
export type Reply =
  | {
      readonly status?: number;
      readonly headers?: Readonly<Record<string, string>>;
      readonly body: unknown;
    }
  | ((request: ReceivedRequest, response: ServerResponse) => void);

/** The far side of a provider: answers as it was told, once for each reply, and no more. */
export class ModelServer {
  readonly requests: ReceivedRequest[] = [];
  readonly #server: Server;
  #replies: Reply[] = [];
  #arrived: (() => void)[] = [];
  #unexpected: string[] = [];

  private constructor(server: Server) {
    this.#server = server;
  }

  /** At the test's end every reply must have been asked for, and nothing besides. */
  static async start(test: TestContext, ...replies: Reply[]): Promise<ModelServer> {
    const server = createServer();
    const model = new ModelServer(server);
    model.reply(...replies);
    server.on("request", (request, response) => {
      void model.#receive(request, response);
    });
    server.listen(0, "127.0.0.1");
    await once(server, "listening");
    test.after(() => model.#stop());
    return model;
  }

  get origin(): string {
    return `http://127.0.0.1:${(this.#server.address() as AddressInfo).port}`;
  }

  reply(...replies: Reply[]): void {
    this.#replies.push(...replies);
  }

  /** Resolves when so many requests have come in all. */
  async received(count: number): Promise<void> {
    while (this.requests.length < count) {
      await new Promise<void>((resolve) => this.#arrived.push(resolve));
    }
  }

  async #receive(request: IncomingMessage, response: ServerResponse): Promise<void> {
    const pieces: Buffer[] = [];
    try {
      for await (const piece of request) pieces.push(piece as Buffer);
    } catch {
      return;
    }
    const received: ReceivedRequest = {
      method: request.method ?? "",
      path: request.url ?? "",
      headers: request.headers,
      text: Buffer.concat(pieces).toString(),
    };
    this.requests.push(received);
    for (const resolve of this.#arrived.splice(0)) resolve();
    const reply = this.#replies.shift();
    if (reply === undefined) {
      this.#unexpected.push(`${received.method} ${received.path}`);
      response.writeHead(599).end();
    } else if (typeof reply === "function") {
      reply(received, response);
    } else {
      const { status = 200, headers, body } = reply;
      const isText = typeof body === "string";
      const type = isText ? "text/html" : "application/json";
      response.writeHead(status, { "Content-Type": type, ...headers });
      response.end(isText ? body : JSON.stringify(body));
    }
  }

  #stop(): void {
    this.#server.closeAllConnections();
    this.#server.close();
    if (this.#unexpected.length > 0) throw new Error(`nobody expected ${this.#unexpected}`);
    if (this.#replies.length > 0) throw new Error(`${this.#replies.length} replies are left`);
  }
}

/** A completion as servers of the chat protocol answer it. */
export function completion(content: string, fields: Record<string, unknown> = {}): Reply {
  const { finish_reason = "stop", ...others } = fields;
  return {
    body: {
      id: "1",
      object: "chat.completion",
      choices: [{ index: 0, message: { role: "assistant", content }, finish_reason }],
      ...others,
    },
  };
}
