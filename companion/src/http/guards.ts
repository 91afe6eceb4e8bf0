import { createHash, timingSafeEqual } from "node:crypto";
import type { IncomingMessage } from "node:http";
import { RequestError } from "./errors.ts";

function hash(text: string): Buffer {
  return createHash("sha256").update(text).digest();
}

/** Decides from the headers alone, before anything of the body is read, whether a request may pass. */
export class Guard {
  readonly #tokenHash: Buffer;

  constructor(token: string) {
    this.#tokenHash = hash(token);
  }

  /** Throws RequestError. */
  check(request: IncomingMessage, port: number): void {
    const { host, origin } = request.headers;
    // A page whose name was rebound to this address still sends its own name as the host.
    if (host !== `127.0.0.1:${port}` && host !== `localhost:${port}`) {
      throw new RequestError("foreignHost", "This host name is not served here.");
    }
    // Only browsers send an origin, and no page has any business here.
    if (origin !== undefined) {
      throw new RequestError("foreignOrigin", "Requests of web pages are refused.");
    }
    if (!this.#isOurs(request.headers["x-ostrel-local-token"])) {
      throw new RequestError("unauthorized", "The local token is missing or wrong.");
    }
  }

  /** Hashes are compared, so that neither the time nor the length tells anything of the token. */
  #isOurs(given: string | string[] | undefined): boolean {
    return timingSafeEqual(hash(typeof given === "string" ? given : ""), this.#tokenHash);
  }
}
