import { createPrivateKey, type KeyObject, sign } from "node:crypto";
import { readFile } from "node:fs/promises";
import * as z from "zod/mini";
import type { Clock } from "../base/clock.ts";
import { describeFailure, errorCode } from "../base/failure.ts";
import { parseJson } from "../json/value.ts";
import { expandedPath } from "../settings/expandedPath.ts";
import { optional } from "../wire/schema.ts";
import { failureOf } from "./classify.ts";
import { ProviderFailure } from "./failures.ts";
import { post } from "./httpCall.ts";

/** Signing in to Google by a service account's key: an assertion that is exchanged for a token. */

const KeyFile = z.object({
  type: z.literal("service_account"),
  client_email: z.string().check(z.minLength(1)),
  private_key: z.string().check(z.minLength(1)),
  private_key_id: optional(z.string()),
  project_id: optional(z.string()),
  token_uri: optional(z.string()),
});

const Token = z.object({ access_token: z.string().check(z.minLength(1)), expires_in: z.number() });

/** The only places that an assertion is sent to, whatever a key file says. */
export const googleTokenUris: readonly string[] = [
  "https://oauth2.googleapis.com/token",
  "https://accounts.google.com/o/oauth2/token",
  "https://www.googleapis.com/oauth2/v4/token",
];

const scope = "https://www.googleapis.com/auth/cloud-platform";
const assertionLifeMs = 3_600_000;
/** A token is not used in its last minutes: the clocks may differ. */
const tokenMarginMs = 300_000;
const who = "Google's sign-in";

export interface ServiceAccount {
  readonly email: string;
  readonly keyId: string | undefined;
  readonly key: KeyObject;
  readonly projectId: string;
  readonly tokenUri: string;
}

export interface SignIn {
  readonly token: string;
  readonly isKept: boolean;
}

interface KnownToken {
  readonly email: string;
  readonly keyId: string | undefined;
  readonly token: string;
  readonly fromMs: number;
  readonly untilMs: number;
}

/** Reads key files, and keeps the token of the last one for as long as it is good. */
export class ServiceAccounts {
  readonly #clock: Clock;
  readonly #home: string;
  readonly #tokenUris: readonly string[];
  #known: KnownToken | undefined;

  constructor(clock: Clock, home: string, tokenUris = googleTokenUris) {
    this.#clock = clock;
    this.#home = home;
    this.#tokenUris = tokenUris;
  }

  /** Throws ProviderFailure (`configuration`) when it isn't such a file. */
  async read(path: string): Promise<ServiceAccount> {
    const file = parsedKeyFile(await this.#text(path), path);
    const tokenUri = file.token_uri ?? this.#tokenUris[0] ?? "";
    if (!this.#tokenUris.includes(tokenUri)) {
      throw unusable(path, "its token_uri is not Google's");
    }
    const projectId = file.project_id ?? "";
    if (!/^[a-z0-9][a-z0-9.:-]*$/.test(projectId)) throw unusable(path, "it names no project_id");
    return {
      email: file.client_email,
      keyId: file.private_key_id,
      key: privateKey(file.private_key, path),
      projectId,
      tokenUri,
    };
  }

  /** A token that should be good for a while yet, and whether it is one of before. Throws ProviderFailure. */
  async token(account: ServiceAccount, signal: AbortSignal): Promise<SignIn> {
    const nowMs = this.#clock.nowMs();
    const known = this.#known;
    // By a clock that was set back an old token would look new.
    const isGood = known !== undefined && known.fromMs <= nowMs && nowMs < known.untilMs;
    if (isGood && known.email === account.email && known.keyId === account.keyId) {
      return { token: known.token, isKept: true };
    }
    this.#known = await this.#fetchToken(account, nowMs, signal);
    return { token: this.#known.token, isKept: false };
  }

  forget(): void {
    this.#known = undefined;
  }

  async #text(path: string): Promise<string> {
    try {
      return await readFile(expandedPath(path, this.#home), "utf8");
    } catch (error) {
      // The application knows this sentence, and takes it back when Vertex is left.
      const message =
        errorCode(error) === "ENOENT"
          ? `BYOK Vertex AI service account JSON not found: ${path}`
          : `${describeFailure("BYOK Vertex AI service account JSON can't be read", error)}.`;
      throw new ProviderFailure("configuration", message, { cause: error });
    }
  }

  async #fetchToken(
    account: ServiceAccount,
    nowMs: number,
    signal: AbortSignal,
  ): Promise<KnownToken> {
    const assertion = signedAssertion(account, nowMs);
    const form = new URLSearchParams({
      grant_type: "urn:ietf:params:oauth:grant-type:jwt-bearer",
      assertion,
    });
    const url = new URL(account.tokenUri);
    const headers = { "Content-Type": "application/x-www-form-urlencoded" };
    const call = { url, headers, body: [form.toString()], who };
    const answer = await post(call, this.#clock, signal);
    if (answer.status !== 200) {
      const failure = failureOf(answer, who, nowMs, [assertion]);
      if (failure.kind === "retry") throw failure;
      throw refusedSignIn(answer.text, failure, account);
    }
    return parsedToken(answer.text, account, nowMs);
  }
}

function unusable(path: string, why: string, cause?: unknown): ProviderFailure {
  const message = `BYOK Vertex AI service account JSON can't be used: ${path}: ${why}.`;
  return new ProviderFailure("configuration", message, { cause });
}

function parsedKeyFile(text: string, path: string): z.infer<typeof KeyFile> {
  try {
    return KeyFile.parse(parseJson(text));
  } catch (cause) {
    throw unusable(path, "it is not the key file of a service account", cause);
  }
}

function privateKey(pem: string, path: string): KeyObject {
  let key: KeyObject;
  try {
    key = createPrivateKey(pem);
  } catch (cause) {
    throw unusable(path, "its private_key is damaged", cause);
  }
  if (key.asymmetricKeyType !== "rsa") throw unusable(path, "its private_key is not an RSA key");
  return key;
}

function encoded(value: unknown): string {
  return Buffer.from(JSON.stringify(value)).toString("base64url");
}

function signedAssertion({ email, keyId, key, tokenUri }: ServiceAccount, nowMs: number): string {
  const issuedAt = Math.floor(nowMs / 1_000);
  const header = { alg: "RS256", typ: "JWT", ...(keyId !== undefined && { kid: keyId }) };
  const claims = {
    iss: email,
    scope,
    aud: tokenUri,
    iat: issuedAt,
    exp: issuedAt + assertionLifeMs / 1_000,
  };
  const content = `${encoded(header)}.${encoded(claims)}`;
  const signature = sign("sha256", Buffer.from(content), key).toString("base64url");
  return `${content}.${signature}`;
}

/** The usual reasons that only a look at this machine can tell. */
function refusedSignIn(
  text: string,
  failure: ProviderFailure,
  { email }: ServiceAccount,
): ProviderFailure {
  // A wrong clock may be put right without anybody touching the settings.
  if (/reasonable timeframe|short-lived/i.test(text)) {
    const message = `${who} refused ${email}'s key, because this machine's clock is wrong.`;
    return new ProviderFailure("retry", message, { cause: failure });
  }
  return new ProviderFailure("configuration", failure.message, { cause: failure, cost: "notSent" });
}

function parsedToken(text: string, { email, keyId }: ServiceAccount, nowMs: number): KnownToken {
  try {
    const { access_token: token, expires_in: seconds } = Token.parse(parseJson(text));
    if (!/^[\x21-\x7e]+$/.test(token)) throw new Error("not a token");
    const untilMs = nowMs + seconds * 1_000 - tokenMarginMs;
    return { email, keyId, token, fromMs: nowMs, untilMs };
  } catch (cause) {
    throw new ProviderFailure("retry", `${who} answered with something else.`, { cause });
  }
}
