import assert from "node:assert/strict";
import { describe, it, type TestContext } from "node:test";
import { gzipSync } from "node:zlib";
import { until } from "../support/archiveHarness.ts";
import { noted, pass, record } from "../support/modelQueue.ts";
import { ModelServer, type Reply } from "../support/modelServer.ts";

/** A completion with this message, which is otherwise as it should be. */
function saying(message: object, finish = "stop"): Reply {
  return { body: { choices: [{ index: 0, message, finish_reason: finish }] } };
}

async function answered(test: TestContext, reply: Reply) {
  const { server, harness } = await record(test, [reply]);
  const status = await harness.observer.stop();
  return { server, harness, status, said: status.analysisBackfillLastError ?? "" };
}

describe("answers that are none", () => {
  const bullet = "- [Editor] Wrote: what nobody did";
  const call = { id: "1", type: "function", function: { name: "run", arguments: "{}" } };
  const odd: readonly (readonly [string, Reply, RegExp])[] = [
    ["toolCalls", saying({ content: null, tool_calls: [call] }, "tool_calls"), /nothing at all/],
    ["onlyThoughts", saying({ content: "", reasoning_content: bullet }), /nothing at all/],
    ["thoughtsInParts", saying({ content: [{ type: "thinking", text: bullet }] }), /nothing at/],
    ["thoughtsWithoutEnd", saying({ content: `<think>\n${bullet}` }), /instead of journal lines/],
    ["noChoice", { body: { choices: [] } }, /answered with something else/],
    ["anotherProtocol", { body: { response: bullet } }, /answered with something else/],
    ["aWebPage", { body: `<html>${bullet}</html>` }, /answered with a web page/],
    ["jsonOfAnotherShape", { body: `[${JSON.stringify(bullet)}]` }, /answered with something else/],
  ];
  for (const [name, reply, words] of odd) {
    it(`answer_${name}_writesNothingAndIsSaid`, async (test) => {
      const { harness, status, said } = await answered(test, reply);
      assert.match(said, words);
      assert.deepEqual(harness.lines, []);
      assert.equal(status.pendingAnalysisChunks, 1);
    });
  }

  const inside: readonly (readonly [string, unknown, RegExp, boolean])[] = [
    [
      "withACode",
      { error: { code: 401, message: "No such key" } },
      /answered 401: No such k/,
      true,
    ],
    ["without", { error: { message: "It broke down" } }, /answered 500: It broke down/, false],
    ["asText", { error: "It broke down" }, /answered 500: It broke down/, false],
    ["ofAnotherSort", { error: { code: 7, message: "Seven" } }, /answered 500: Seven/, false],
  ];
  for (const [name, body, words, isBlocked] of inside) {
    it(`error_insideOfAnAnswer_${name}_isTakenForOne`, async (test) => {
      const { said, status } = await answered(test, { body });
      assert.match(said, words);
      assert.equal(status.analysisBackfillBlocked, isBlocked);
    });
  }

  it("answer_withAnEmptyError_isAnAnswer", async (test) => {
    const choices = [{ message: { content: "- [Editor] Wrote: a letter" } }];
    const { harness } = await answered(test, { body: { error: null, choices } });
    assert.deepEqual(harness.lines, ["[Editor] Wrote: a letter"]);
  });

  it("answer_refusedInWords_isNotAskedForAgain", async (test) => {
    const { harness, status } = await answered(test, saying({ content: null, refusal: "No." }));
    assert.deepEqual(harness.lines, []);
    assert.equal(status.pendingAnalysisChunks, 0);
    assert.match(status.lastError ?? "", /refused to describe/);
  });

  it("answer_inParts_isReadWithoutItsThoughts", async (test) => {
    const content = [
      { type: "thinking", thinking: [{ type: "text", text: bullet }] },
      { type: "reasoning", text: `${bullet}\n` },
      { type: "text", text: "- [Editor] Wrote: " },
      { type: "text", text: "a letter" },
    ];
    const { harness } = await answered(test, saying({ content }));
    assert.deepEqual(harness.lines, ["[Editor] Wrote: a letter"]);
  });

  it("answer_withControlCharacters_isOneCleanLine", async (test) => {
    const content = "- [Edi\u0000tor] Wro\u001b[2Jte: \u202e a\u2066 <!-- key:1-1-1 -->\u0000b";
    const { harness } = await answered(test, saying({ content }));
    assert.deepEqual(harness.lines, ["[Edi tor] Wro [2Jte: a key:1-1-1 b"]);
  });
});

describe("servers that don't come to an end", () => {
  it("answer_largerThanAnyModels_isCutOff", async (test) => {
    let isClosed = false;
    const { said } = await answered(test, (_, response) => {
      response.writeHead(200, { "Content-Type": "application/json" });
      const more = () => {
        if (!isClosed) response.write(Buffer.alloc(65_536, " "), () => setImmediate(more));
      };
      response.on("close", () => {
        isClosed = true;
      });
      response.on("error", () => undefined);
      more();
    });
    assert.match(said, /answered with more than a model would/);
    await until(() => isClosed);
  });

  it("answer_compressed_isNotUnpackedAndWasNotAskedFor", async (test) => {
    const bomb = gzipSync(Buffer.alloc(10_000_000, " "));
    const { server, said } = await answered(test, (_, response) => {
      response.writeHead(200, { "Content-Type": "application/json", "Content-Encoding": "gzip" });
      response.end(bomb);
    });
    assert.match(said, /answered with something else/);
    assert.equal(server.requests[0]?.headers["accept-encoding"], undefined);
  });

  it("answer_thatNeverComesToItsEnd_isGivenUpAfterTenMinutes", async (test) => {
    let isBegun = false;
    const { server, harness } = await record(test, [
      (_, response) => {
        response.writeHead(200, { "Content-Type": "application/json" });
        response.write('{"choices":', () => {
          isBegun = true;
        });
      },
    ]);
    const stopped = harness.observer.stop();
    await server.received(1);
    await until(() => isBegun);
    harness.clock.advance(600_000);
    await stopped;
    await harness.observer.settled();
    const status = harness.observer.status();
    assert.match(status.analysisBackfillLastError ?? "", /has not answered within 10 minutes/);
    server.reply(noted("late"));
    await pass(harness, 5_000);
    assert.deepEqual(harness.lines, ["[Editor] late"]);
  });
});

describe("servers that lead elsewhere", () => {
  for (const status of [301, 302, 303, 307, 308]) {
    it(`redirect_${status}_isNotFollowed`, async (test) => {
      // Fails at its end if anything came.
      const elsewhere = await ModelServer.start(test);
      const headers = { Location: `${elsewhere.origin}/v1/chat/completions` };
      const { said, harness } = await answered(test, { status, headers, body: {} });
      assert.match(said, /which leads elsewhere to 127\.0\.0\.1/);
      assert.deepEqual(harness.lines, []);
      // It may be a network's page to sign in on, which somebody then does.
      assert.equal(harness.clock.nextDelayMs, 60_000);
    });
  }
});
