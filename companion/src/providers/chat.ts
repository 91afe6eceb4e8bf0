import * as z from "zod/mini";
import { parseJson } from "../json/value.ts";
import type { ChatServer } from "../settings/provider.ts";
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

/** The chat completions protocol, as Ollama, llama.cpp, vLLM, LM Studio and hosted servers speak it. */

const Content = z.union([
  z.string(),
  z.array(z.object({ type: z.string(), text: optional(z.string()) })),
]);

const Completion = z.object({
  choices: z
    .array(
      z.object({
        message: z.object({ content: optional(Content), refusal: optional(z.string()) }),
        finish_reason: optional(z.string()),
      }),
    )
    .check(z.minLength(1)),
  usage: optional(z.object({ total_tokens: z.optional(z.unknown()) })),
});

const details: ReadonlyMap<string, string> = new Map([
  ["LOW", "low"],
  ["MEDIUM", "auto"],
  ["HIGH", "high"],
  ["ULTRA_HIGH", "high"],
]);

export function chatProtocol({ url, token }: ChatServer): Protocol {
  const who = `The analysis server ${url.host}`;
  const headers: Record<string, string> = token === "" ? {} : { Authorization: `Bearer ${token}` };
  return {
    url: async () => url,
    endpoint: async () => ({ url, headers, secret: token, who }),
    body: chatBody,
    parse: (text) => parsedCompletion(text, who),
    forgetSignIn: () => undefined,
  };
}

function chatBody(request: ModelRequest, unknownParameters: ReadonlySet<string>): RequestBody {
  const { model, instructions, parts, maxOutputTokens } = request;
  const knows = (parameter: string) => !unknownParameters.has(parameter);
  const detail = details.get(request.mediaResolution.replace(/^MEDIA_RESOLUTION_/, ""));
  const effort = request.thinkingLevel.toLowerCase();
  const limitName = knows("tokenLimitName") ? "max_tokens" : "max_completion_tokens";
  return requestBody((place) => ({
    model,
    stream: false,
    ...(knows("tokenLimit") && { [limitName]: maxOutputTokens }),
    ...(knows("thinking") && effort !== "" && { reasoning_effort: effort }),
    messages: [
      { role: "system", content: instructions },
      {
        role: "user",
        content: parts.map((part) => {
          if (part.kind === "text") return { type: "text", text: part.text };
          const { picture } = part;
          const url = `data:${picture.mimeType};base64,${place(picture)}`;
          const withDetail = detail !== undefined && knows("detail");
          return { type: "image_url", image_url: { url, ...(withDetail && { detail }) } };
        }),
      },
    ],
  }));
}

function parsedCompletion(text: string, who: string): ModelText {
  let completion: z.infer<typeof Completion>;
  try {
    completion = Completion.parse(parseJson(text));
  } catch (cause) {
    const what = /^\s*</.test(text) ? "a web page" : "something else";
    const message = `${who} answered with ${what}, not as a server of chat completions does.`;
    throw new ProviderFailure("retry", message, { cause });
  }
  const [choice] = completion.choices;
  const { content, refusal } = choice?.message ?? {};
  const isFiltered = choice?.finish_reason === "content_filter" || (refusal ?? "") !== "";
  return {
    text: typeof content === "string" ? content : (content ?? []).map(answerOf).join(""),
    isCut: choice?.finish_reason === "length",
    blockedBy: isFiltered ? "content filter" : undefined,
    tokens: countedTokens(completion.usage?.total_tokens),
  };
}

/** Of an answer in parts; others than these hold thoughts, which are no part of it. */
function answerOf({ type, text }: { readonly type: string; readonly text: string | undefined }) {
  return type === "text" || type === "output_text" ? (text ?? "") : "";
}
