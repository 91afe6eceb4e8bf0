import assert from "node:assert/strict";
import { describe, it } from "node:test";
import { failureOf } from "../../src/providers/classify.ts";
import type { FailureKind } from "../../src/providers/failures.ts";

const nowMs = Date.UTC(2026, 10, 21, 12);

function failure(status: number, body: unknown, headers: Record<string, string> = {}) {
  const text = typeof body === "string" ? body : JSON.stringify(body);
  return failureOf({ status, headers, text }, "The server", nowMs, ["sesame"]);
}

const message = (text: string, fields = {}) => ({ error: { message: text, ...fields } });

/** Who says it, the status, the body, and what it means. */
const refusals: readonly (readonly [string, number, unknown, FailureKind])[] = [
  [
    "ollama_missingModel",
    404,
    message('model "eyes" not found, try pulling it first', { type: "api_error" }),
    "configuration",
  ],
  ["ollama_olderErrors", 404, { error: "model 'eyes' not found" }, "configuration"],
  [
    "ollama_tooLittleMemory",
    500,
    message("model requires more system memory (9.1 GiB) than is available (7.2 GiB)"),
    "configuration",
  ],
  [
    "ollama_modelWithoutEyes",
    500,
    message("this model is missing data required for image input"),
    "noVision",
  ],
  ["ollama_noThinking", 400, message('"eyes" does not support thinking'), "parameter"],
  ["ollama_busy", 503, { error: "server busy, please try again. maximum pending" }, "retry"],
  [
    "llamaCpp_loading",
    503,
    message("Loading model", { code: 503, type: "unavailable_error" }),
    "retry",
  ],
  [
    "llamaCpp_context",
    400,
    message("the request exceeds the available context size", {
      code: 400,
      type: "exceed_context_size_error",
      n_ctx: 4096,
    }),
    "shrink",
  ],
  [
    "llamaCpp_modelWithoutEyes",
    500,
    message("image input is not supported - hint: you may need to provide the mmproj"),
    "noVision",
  ],
  ["llamaCpp_wrongKey", 401, message("Invalid API Key"), "configuration"],
  [
    "vllm_context",
    400,
    { object: "error", message: "This model's maximum context length is 4096 tokens.", code: 400 },
    "shrink",
  ],
  [
    "vllm_tooManyImages",
    400,
    message("At most 1 image(s) may be provided in one prompt."),
    "shrink",
  ],
  ["vllm_modelWithoutEyes", 400, message("eyes is not a multimodal model"), "noVision"],
  [
    "vllm_missingModel",
    404,
    { object: "error", message: "The model `eyes` does not exist.", type: "NotFoundError" },
    "configuration",
  ],
  ["vllm_validation", 422, { detail: "field required" }, "badRequest"],
  ["lmStudio_modelWithoutEyes", 400, { error: "Model does not support images." }, "noVision"],
  [
    "hosted_wrongKey",
    401,
    message("Incorrect API key provided: sesame.", { code: "invalid_api_key" }),
    "configuration",
  ],
  ["hosted_rateLimit", 429, message("Rate limit reached", { code: "rate_limit" }), "retry"],
  [
    "hosted_noMoney",
    429,
    message("You exceeded your current quota", { code: "insufficient_quota" }),
    "configuration",
  ],
  [
    "google_quotaOfTheMinute",
    429,
    [
      message("You exceeded your current quota, please check your plan and billing details.", {
        code: 429,
        status: "RESOURCE_EXHAUSTED",
      }),
    ],
    "retry",
  ],
  [
    "hosted_context",
    400,
    message("Your input is too long.", { code: "context_length_exceeded" }),
    "shrink",
  ],
  [
    "hosted_limitName",
    400,
    message("Unsupported parameter: 'max_tokens'. Use 'max_completion_tokens' instead."),
    "parameter",
  ],
  [
    "hosted_limitTooLarge",
    400,
    message("max_tokens is too large: 65536. This model supports at most 4096."),
    "parameter",
  ],
  [
    "hosted_noEffort",
    400,
    message("Unrecognized request argument supplied: reasoning_effort"),
    "parameter",
  ],
  [
    "google_wrongKey",
    400,
    message("API key not valid.", { status: "INVALID_ARGUMENT" }),
    "configuration",
  ],
  [
    "google_denied",
    403,
    message("Permission denied", { status: "PERMISSION_DENIED" }),
    "configuration",
  ],
  ["google_missingModel", 404, message("Publisher Model `x` was not found"), "configuration"],
  [
    "google_tooLarge",
    400,
    message("Request payload size exceeds the limit: 20971520 bytes."),
    "shrink",
  ],
  [
    "google_tooManyTokens",
    400,
    message("The input token count (1100000) exceeds the maximum number of tokens allowed."),
    "shrink",
  ],
  ["google_noThinking", 400, message("thinking_level is not supported by this model"), "parameter"],
  ["google_array", 429, [message("Resource exhausted", { code: 429 })], "retry"],
  ["google_other", 400, message("Unable to process input image."), "badRequest"],
  ["proxy_page", 502, "<html><body>Bad gateway</body></html>", "retry"],
  ["proxy_tooLarge", 413, "<html>Request Entity Too Large</html>", "shrink"],
  ["proxy_wrongPath", 404, "<html>Not Found</html>", "configuration"],
  ["proxy_nothing", 504, "", "retry"],
  ["any_timeout", 408, "", "retry"],
  ["any_teapot", 418, "", "badRequest"],
];

describe("refusals", () => {
  for (const [name, status, body, kind] of refusals) {
    it(`refusal_${name}_means_${kind}`, () => {
      const found = failure(status, body);
      assert.equal(found.kind, kind);
      assert.match(found.message, /^The server answered [0-9]+.*\.$/);
      assert.doesNotMatch(found.message, /<html|sesame/);
    });
  }

  it("refusal_ofAParameter_namesIt", () => {
    const named = (text: string) => failure(400, message(text)).parameter;
    assert.equal(named("reasoning_effort is not supported"), "thinking");
    assert.equal(named("Unsupported 'max_tokens', use 'max_completion_tokens'"), "tokenLimitName");
    assert.equal(named("max_tokens must be at most 4096"), "tokenLimit");
    assert.equal(named("unknown field `detail`"), "detail");
    assert.equal(named("mediaResolution is not supported"), "mediaResolution");
  });

  it("refusal_thatEchoesTheToken_doesNotTellIt", () => {
    const { message: told } = failure(401, message("Incorrect key: sesame"));
    assert.equal(told, "The server answered 401: Incorrect key: <redacted>.");
  });

  it("refusal_withHostileText_isOneCleanLine", () => {
    const { message: told } = failure(400, message("a\n## Session x\u202e <!-- key:1 --> b"));
    assert.equal(told, "The server answered 400: a ## Session x key:1 b.");
    assert.ok(failure(400, message("x".repeat(10_000))).message.length < 300);
  });

  it("redirect_isNotFollowedAndNamesOnlyTheHost", () => {
    const location = "https://login.example.org/sso?token=1";
    const found = failure(302, "", { location });
    assert.equal(found.kind, "configuration");
    assert.match(found.message, /leads elsewhere to login\.example\.org\. Put the right/);
    assert.doesNotMatch(found.message, /token=1/);
  });
});

describe("when to come back", () => {
  const cases: readonly (readonly [string, Record<string, string>, number | undefined])[] = [
    ["seconds", { "retry-after": "120" }, 120_000],
    ["date_byOurClock", { "retry-after": "Sat, 21 Nov 2026 12:05:00 GMT" }, 300_000],
    [
      "date_byTheServersClock",
      {
        "retry-after": "Sat, 21 Nov 2026 13:05:00 GMT",
        date: "Sat, 21 Nov 2026 13:00:00 GMT",
      },
      300_000,
    ],
    ["date_thatIsPast", { "retry-after": "Sat, 21 Nov 2026 11:00:00 GMT" }, 0],
    ["nonsense", { "retry-after": "soon" }, undefined],
    ["nothing", {}, undefined],
  ];
  for (const [name, headers, expected] of cases) {
    it(`retryAfter_${name}_isUnderstood`, () => {
      assert.equal(failure(503, "", headers).retryAfterMs, expected);
    });
  }

  it("retryAfter_inGooglesDetails_isUnderstood", () => {
    const details = [{ "@type": "type.googleapis.com/google.rpc.RetryInfo", retryDelay: "37.5s" }];
    assert.equal(failure(429, message("exhausted", { details })).retryAfterMs, 37_500);
  });
});
