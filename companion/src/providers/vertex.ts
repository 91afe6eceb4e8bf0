import * as z from "zod/mini";
import { parseJson } from "../json/value.ts";
import type { ModelProvider, Vertex } from "../settings/provider.ts";
import { optional } from "../wire/schema.ts";
import { ProviderFailure } from "./failures.ts";
import {
  countedTokens,
  type ModelRequest,
  type ModelText,
  type Protocol,
  type RequestBody,
  requestBody,
} from "./modelRequest.ts";
import type { ServiceAccounts } from "./serviceAccount.ts";

/** Google Vertex AI's generateContent. */

const Generated = z.object({
  candidates: optional(
    z.array(
      z.object({
        content: optional(
          z.object({
            parts: optional(
              z.array(z.object({ text: optional(z.string()), thought: optional(z.boolean()) })),
            ),
          }),
        ),
        finishReason: optional(z.string()),
      }),
    ),
  ),
  promptFeedback: optional(z.object({ blockReason: optional(z.string()) })),
  usageMetadata: optional(z.object({ totalTokenCount: z.optional(z.unknown()) })),
});

/** Ends of an answer after which the same question brings the same. */
const blocks: ReadonlySet<string> = new Set([
  "SAFETY",
  "RECITATION",
  "BLOCKLIST",
  "PROHIBITED_CONTENT",
  "SPII",
  "IMAGE_SAFETY",
]);

const who = "Google Vertex AI";

/** Where requests go: Google's own hosts, but for tests. */
export interface VertexHosts {
  /** The API's origin for a location, "https://aiplatform.googleapis.com". */
  api(location: string): string;
}

export const googleHosts: VertexHosts = {
  api: (location) =>
    location === "global"
      ? "https://aiplatform.googleapis.com"
      : `https://${location}-aiplatform.googleapis.com`,
};

function vertexBody(request: ModelRequest, unknownParameters: ReadonlySet<string>): RequestBody {
  const { instructions, parts, maxOutputTokens, thinkingLevel } = request;
  const resolution = request.mediaResolution.replace(/^MEDIA_RESOLUTION_/, "");
  const wants = (parameter: string, value: string) =>
    value !== "" && !unknownParameters.has(parameter);
  return requestBody((place) => ({
    systemInstruction: { parts: [{ text: instructions }] },
    contents: [
      {
        role: "user",
        parts: parts.map((part) => {
          if (part.kind === "text") return { text: part.text };
          const { mimeType } = part.picture;
          return { inlineData: { mimeType, data: place(part.picture) } };
        }),
      },
    ],
    generationConfig: {
      candidateCount: 1,
      ...(!unknownParameters.has("tokenLimit") && { maxOutputTokens }),
      ...(wants("mediaResolution", resolution) && {
        mediaResolution: `MEDIA_RESOLUTION_${resolution}`,
      }),
      ...(wants("thinking", thinkingLevel) && { thinkingConfig: { thinkingLevel } }),
    },
  }));
}

/** Asks with the credential that the settings name. */
export function vertexProtocol(
  provider: ModelProvider & Vertex,
  accounts: ServiceAccounts,
  hosts: VertexHosts = googleHosts,
): Protocol {
  const { credential, project, location, model } = provider;
  /** Without a project the express mode of API keys. */
  const urlFor = (projectId: string) => {
    const models = `publishers/google/models/${model}:generateContent`;
    if (projectId === "") return new URL(`${hosts.api("global")}/v1/${models}`);
    const place = `projects/${projectId}/locations/${location}`;
    return new URL(`${hosts.api(location)}/v1/${place}/${models}`);
  };
  return {
    async url() {
      if (credential.kind === "apiKey") return urlFor(project);
      return urlFor(project || (await accounts.read(credential.path)).projectId);
    },
    async endpoint(signal) {
      if (credential.kind === "apiKey") {
        const { key } = credential;
        return { url: urlFor(project), headers: { "x-goog-api-key": key }, secret: key, who };
      }
      const account = await accounts.read(credential.path);
      const { token, isKept } = await accounts.token(account, signal);
      const headers = { Authorization: `Bearer ${token}` };
      return { url: urlFor(project || account.projectId), headers, secret: token, who, isKept };
    },
    body: vertexBody,
    parse: parsedAnswer,
    forgetSignIn: () => accounts.forget(),
  };
}

function parsedAnswer(text: string): ModelText {
  let generated: z.infer<typeof Generated>;
  try {
    generated = Generated.parse(parseJson(text));
  } catch (cause) {
    throw new ProviderFailure("retry", `${who} answered with something else.`, { cause });
  }
  const candidate = generated.candidates?.[0];
  const finish = candidate?.finishReason ?? "";
  const parts = candidate?.content?.parts ?? [];
  return {
    // Thoughts are the way to the answer, and no part of it.
    text: parts.map((part) => (part.thought === true ? "" : (part.text ?? ""))).join(""),
    isCut: finish === "MAX_TOKENS",
    blockedBy: generated.promptFeedback?.blockReason ?? (blocks.has(finish) ? finish : undefined),
    tokens: countedTokens(generated.usageMetadata?.totalTokenCount),
  };
}
