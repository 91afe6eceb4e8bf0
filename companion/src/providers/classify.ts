import { clip, plainLine } from "../journal/bulletText.ts";
import { parseJson } from "../json/value.ts";
import { type FailureKind, ProviderFailure } from "./failures.ts";
import type { HttpAnswer } from "./httpCall.ts";

/**
 * What the servers' refusals mean. They share the protocol but neither the codes nor the words, so
 * both are looked at: a local server says 500 where it means that it can't see, and another 400
 * where it means that the key is wrong.
 */

interface Rule {
  readonly kind: FailureKind;
  /** Which statuses it is for; all when there are none. */
  readonly statuses?: readonly number[];
  /** What the text has to say; anything when there is none. */
  readonly words?: RegExp;
  readonly parameter?: string;
}

const unknown =
  /not supported|unsupported|does not support|doesn't support|unknown|unrecogni[sz]ed|unexpected|invalid|not permitted|extra inputs/i;

/** The parameters that not every server knows, by the names that refusals use for them. */
const parameters: readonly (readonly [string, RegExp])[] = [
  ["thinking", /reasoning|thinking/i],
  ["tokenLimitName", /max_completion_tokens/i],
  ["detail", /\bdetail\b/i],
  ["mediaResolution", /media_?resolution/i],
];

/** The first that fits holds. */
const rules: readonly Rule[] = [
  { kind: "shrink", statuses: [413] },
  // A quota that comes back by itself, though the sentence speaks of plans and bills.
  { kind: "retry", statuses: [429], words: /RESOURCE_EXHAUSTED/ },
  // It names the limit that it would accept; without any it takes its own.
  {
    kind: "parameter",
    parameter: "tokenLimit",
    statuses: [400, 422],
    words: /max_(?:completion_|output_)?tokens.*(?:too large|at most|less than|must be)/i,
  },
  {
    kind: "noVision",
    words:
      /image input is not supported|(?:does not|doesn't|not) support (?:the )?(?:images?|vision|multimodal)|not a multimodal|mmproj|data required for image|image_url.{0,40}(?:not supported|unsupported)|vision is not (?:supported|enabled)|only supports? text/i,
  },
  {
    kind: "shrink",
    words:
      /context[ _](?:size|length|window)|maximum context|exceed_context|too many (?:images|tokens)|at most [0-9]+ image|payload size|too large|prompt is too long|maximum number of tokens|input token count/i,
  },
  {
    kind: "configuration",
    words:
      /api[ _]key (?:not valid|expired)|invalid api[ _]key|insufficient_quota|billing|requires more system memory|model.{0,100}(?:not found|does not exist|not exist)|location is not supported/i,
  },
  { kind: "retry", words: /loading model|model is loading|overloaded|try again later/i },
  { kind: "configuration", statuses: [401, 402, 403, 404, 405, 407, 410] },
  { kind: "retry", statuses: [408, 409, 425, 429] },
];

/** The failure that an answer tells which is no success. `secrets` are kept out of its message. */
export function failureOf(
  answer: HttpAnswer,
  who: string,
  nowMs: number,
  secrets: readonly string[],
): ProviderFailure {
  const { status } = answer;
  const said = spoken(answer, secrets);
  const message = `${who} answered ${status}${said === "" ? "" : `: ${said}`}`.replace(/\.?$/, ".");
  if (status >= 300 && status < 400) {
    return new ProviderFailure("configuration", redirected(answer, who), { cost: "refused" });
  }
  const parameter = unknownParameter(status, said);
  if (parameter !== undefined) {
    return new ProviderFailure("parameter", message, { parameter, cost: "refused" });
  }
  const rule = rules.find(
    ({ statuses, words }) =>
      (statuses?.includes(status) ?? true) && (words?.test(wordsOf(answer)) ?? true),
  );
  const kind = rule?.kind ?? (status >= 400 && status < 500 ? "badRequest" : "retry");
  return new ProviderFailure(kind, message, {
    retryAfterMs: retryAfterMs(answer, nowMs),
    parameter: rule?.parameter,
    cost: status < 500 ? "refused" : "unknown",
  });
}

/**
 * The answer with the status that it should have had: servers that pass a request on say 200 first,
 * and then what went wrong behind them in the body.
 */
export function withOwnStatus(answer: HttpAnswer): HttpAnswer {
  const { error, choices, candidates } = answerIn(answer.text);
  if (answer.status !== 200 || !error || choices || candidates) return answer;
  const code = Number(asObject(error)["code"]);
  return { ...answer, status: Number.isInteger(code) && code >= 400 && code < 600 ? code : 500 };
}

function unknownParameter(status: number, said: string): string | undefined {
  if (![400, 422, 500].includes(status) || !unknown.test(said)) return undefined;
  return parameters.find(([, name]) => name.test(said))?.[0];
}

/** The address is that of a page to sign in on, or has moved; pictures don't follow it there. */
function redirected({ status, headers }: HttpAnswer, who: string): string {
  const to = /^[a-z]+:\/\/([^/?#@]+)/i.exec(headers.location ?? "")?.[1];
  const where = to === undefined ? "" : ` to ${clip(plainLine(to), 80)}`;
  return `${who} answered ${status}, which leads elsewhere${where}. Put the right address into the settings.`;
}

/** What the answer says, for the user: a clean line, without secrets; empty for a web page. */
function spoken(answer: HttpAnswer, secrets: readonly string[]): string {
  let line = plainLine(messageIn(answer.text));
  for (const secret of secrets) {
    if (secret !== "") line = line.replaceAll(secret, "<redacted>");
  }
  return clip(line, 200);
}

/** With the codes, for which the message may have other words. */
function wordsOf({ text }: HttpAnswer): string {
  const { code, type, status } = asObject(answerIn(text)["error"]);
  return [messageIn(text), code, type, status].filter((word) => typeof word === "string").join(" ");
}

/** Where the servers put the sentence: error.message, error_description, error, message or detail. */
function messageIn(text: string): string {
  const answer = answerIn(text);
  const error = asObject(answer["error"]);
  const { error_description: description, message, detail } = answer;
  const found = [error["message"], description, answer["error"], message, detail];
  return found.find((candidate) => typeof candidate === "string") ?? plainText(text);
}

/** Some wrap the one answer that there is into an array. */
function answerIn(text: string): Record<string, unknown> {
  const value = parsed(text);
  return asObject(Array.isArray(value) ? value[0] : value);
}

function plainText(text: string): string {
  return /^\s*(?:<|\{|\[)/.test(text) ? "" : text.slice(0, 1_000);
}

function parsed(text: string): unknown {
  try {
    return parseJson(text);
  } catch {
    return undefined;
  }
}

function asObject(value: unknown): Record<string, unknown> {
  return typeof value === "object" && value !== null ? (value as Record<string, unknown>) : {};
}

/** Seconds, or a date by the server's own clock, which may differ from ours. */
function retryAfterMs({ headers, text }: HttpAnswer, nowMs: number): number | undefined {
  const given = headers["retry-after"]?.trim() ?? "";
  if (/^[0-9]{1,9}$/.test(given)) return Number(given) * 1_000;
  const at = given === "" ? Number.NaN : Date.parse(given);
  if (Number.isNaN(at)) return retryInfoMs(text);
  const serverNow = Date.parse(headers.date ?? "");
  return Math.max(0, at - (Number.isNaN(serverNow) ? nowMs : serverNow));
}

/** Google's way to say it: a detail of the error with "retryDelay": "37s". */
function retryInfoMs(text: string): number | undefined {
  const { details } = asObject(answerIn(text)["error"]);
  for (const detail of Array.isArray(details) ? details : []) {
    const seconds = /^([0-9]{1,6}(?:\.[0-9]+)?)s$/.exec(String(asObject(detail)["retryDelay"]));
    if (seconds !== null) return Math.ceil(Number(seconds[1]) * 1_000);
  }
  return undefined;
}
