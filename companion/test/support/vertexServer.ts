import assert from "node:assert/strict";
import { generateKeyPairSync, verify } from "node:crypto";
import { writeFileSync } from "node:fs";
import type { TestContext } from "node:test";
import type { VertexHosts } from "../../src/providers/vertex.ts";
import { ModelServer, type ReceivedRequest, type Reply } from "./modelServer.ts";

const keys = generateKeyPairSync("rsa", { modulusLength: 2048 });

/** Google's part: the sign-in, and the API of every location, on one loopback address. */
export class VertexServer {
  readonly server: ModelServer;

  private constructor(server: ModelServer) {
    this.server = server;
  }

  static async start(test: TestContext, ...replies: Reply[]): Promise<VertexServer> {
    return new VertexServer(await ModelServer.start(test, ...replies));
  }

  /** The location becomes the first part of the path, so that tests see which host was meant. */
  get hosts(): VertexHosts {
    return { api: (location) => `${this.server.origin}/${location}` };
  }

  get tokenUri(): string {
    return `${this.server.origin}/token`;
  }

  /** Writes the key file of a service account. */
  writeKeyFile(path: string, fields: Record<string, unknown> = {}): void {
    const file = {
      type: "service_account",
      project_id: "project-of-the-file",
      private_key_id: "key-1",
      private_key: keys.privateKey.export({ type: "pkcs8", format: "pem" }),
      client_email: "observer@project-of-the-file.iam.example.com",
      token_uri: this.tokenUri,
      ...fields,
    };
    writeFileSync(path, JSON.stringify(file));
  }

  /** Checks the assertion as Google does, and answers with a token. */
  signIn(token: string, nowMs: () => number, expiresInSeconds = 3_600): Reply {
    return ({ method, path, headers, text }, response) => {
      assert.equal(`${method} ${path}`, "POST /token");
      assert.equal(headers["content-type"], "application/x-www-form-urlencoded");
      assert.equal(headers.authorization, undefined);
      const form = new URLSearchParams(text);
      assert.deepEqual([...form.keys()], ["grant_type", "assertion"]);
      assert.equal(form.get("grant_type"), "urn:ietf:params:oauth:grant-type:jwt-bearer");
      checkAssertion(form.get("assertion") ?? "", this.tokenUri, nowMs());
      response.writeHead(200, { "Content-Type": "application/json" });
      response.end(
        JSON.stringify({ access_token: token, expires_in: expiresInSeconds, token_type: "Bearer" }),
      );
    };
  }
}

function decoded(part: string | undefined): Record<string, unknown> {
  return JSON.parse(Buffer.from(part ?? "", "base64url").toString()) as Record<string, unknown>;
}

function checkAssertion(assertion: string, audience: string, nowMs: number): void {
  const [header, claims, signature] = assertion.split(".");
  assert.deepEqual(decoded(header), { alg: "RS256", typ: "JWT", kid: "key-1" });
  const issuedAt = Math.floor(nowMs / 1000);
  assert.deepEqual(decoded(claims), {
    iss: "observer@project-of-the-file.iam.example.com",
    scope: "https://www.googleapis.com/auth/cloud-platform",
    aud: audience,
    iat: issuedAt,
    exp: issuedAt + 3_600,
  });
  const content = Buffer.from(`${header}.${claims}`);
  const bytes = Buffer.from(signature ?? "", "base64url");
  assert.ok(verify("sha256", content, keys.publicKey, bytes), "the signature is wrong");
}

/** What generateContent answers. */
export function generated(text: string, fields: Record<string, unknown> = {}): Reply {
  return {
    body: {
      candidates: [
        { content: { role: "model", parts: [{ text }] }, finishReason: "STOP", ...fields },
      ],
      usageMetadata: { totalTokenCount: 1234 },
    },
  };
}

/** The body of a request to generateContent, with exactly the keys that there are. */
export function checkedBody(request: ReceivedRequest | undefined) {
  const body = JSON.parse(request?.text ?? "") as {
    systemInstruction: { parts: { text: string }[] };
    contents: { role: string; parts: { text?: string; inlineData?: object }[] }[];
    generationConfig: Record<string, unknown>;
  };
  assert.deepEqual(Object.keys(body), ["systemInstruction", "contents", "generationConfig"]);
  assert.deepEqual(
    body.contents.map((content) => content.role),
    ["user"],
  );
  return body;
}
