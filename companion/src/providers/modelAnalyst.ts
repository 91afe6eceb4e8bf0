import { readFile } from "node:fs/promises";
import type { Clock } from "../base/clock.ts";
import type { Analyst, ModelAnswer, RequestPreview } from "../engine/analyser.ts";
import { clip, plainLine } from "../journal/bulletText.ts";
import { journalTail } from "../journal/journalTail.ts";
import { expandedPath } from "../settings/expandedPath.ts";
import { type AnalysisLimits, UnreadableLimits } from "../settings/ownSettings.ts";
import type { ModelProvider } from "../settings/provider.ts";
import type { SettingsInUse } from "../settings/settingsInUse.ts";
import type { SpoolLayout } from "../spool/layout.ts";
import type { Chunk } from "../spool/records.ts";
import { parseAnswer } from "./answer.ts";
import { failureOf, withOwnStatus } from "./classify.ts";
import { ProviderFailure } from "./failures.ts";
import { post } from "./httpCall.ts";
import type { ModelRequest, ModelText, Protocol } from "./modelRequest.ts";
import { fewerPictures, pictureCount, type ShownFrame, shownFrames } from "./pictures.ts";
import { modelRequest } from "./prompt.ts";
import type { Reservation, UsageLedger } from "./usage.ts";

export interface ModelAnalystDependencies {
  readonly clock: Clock;
  readonly settings: SettingsInUse;
  readonly layout: SpoolLayout;
  readonly home: string;
  readonly usage: UsageLedger;
  /** The user's own limits as they are now. */
  limits(): Promise<AnalysisLimits>;
  protocolOf(provider: ModelProvider): Protocol;
}

/** What was learned of a provider's model by its refusals. */
interface Manners {
  readonly provider: string;
  readonly unknownParameters: Set<string>;
  takesNoPictures: boolean;
}

/** How one chunk is asked about at present. */
interface Question {
  readonly chunk: Chunk;
  readonly tail: readonly string[];
  shown: readonly ShownFrame[];
  maxOutputTokens: number;
  hasGrown: boolean;
}

const leastOutputTokens = 16;
const greatestOutputTokens = 65_536;
/** By how much an answer may grow that the limit has left without a bullet. */
const growth = 4;
const greatestTailSize = 100;
/** The most tokens that a picture takes: models cut it into patches of some such side. */
const patchSide = 28;
const leastPictureTokens = 1_200;

/** Asks a model about chunks, and reads its answers by the journal's grammar. */
export class ModelAnalyst implements Analyst {
  readonly #dependencies: ModelAnalystDependencies;
  #manners: Manners = { provider: "", unknownParameters: new Set(), takesNoPictures: false };

  constructor(dependencies: ModelAnalystDependencies) {
    this.#dependencies = dependencies;
  }

  async analyse(
    provider: ModelProvider,
    chunk: Chunk,
    signal: AbortSignal,
    keep: (request: string) => Promise<void>,
  ): Promise<ModelAnswer> {
    this.#recall(provider);
    const protocol = this.#dependencies.protocolOf(provider);
    const question = await this.#question(chunk);
    for (;;) {
      if (this.#manners.takesNoPictures) question.shown = withoutPictures(question.shown);
      if (!question.shown.some(({ frame, picture }) => picture ?? frame.text)) {
        return { bullets: [], remark: this.#remark(provider) };
      }
      try {
        const text = await this.#ask(protocol, this.#request(provider, question), signal, keep);
        const answer = this.#answer(provider, question, text);
        if (answer !== undefined) return answer;
      } catch (error) {
        if (!(error instanceof ProviderFailure) || signal.aborted) throw error;
        this.#adapt(question, error);
      }
    }
  }

  async preview(provider: ModelProvider, chunk: Chunk): Promise<RequestPreview> {
    this.#recall(provider);
    const protocol = this.#dependencies.protocolOf(provider);
    const question = await this.#question(chunk);
    const request = this.#request(provider, question);
    const { withoutPictures: body } = protocol.body(request, this.#manners.unknownParameters);
    return { url: await protocol.url(), request, body, shown: question.shown };
  }

  /** What is known of a provider's manners holds for that one only. */
  #recall(provider: ModelProvider): void {
    const name = JSON.stringify(provider);
    if (this.#manners.provider === name) return;
    this.#manners = { provider: name, unknownParameters: new Set(), takesNoPictures: false };
  }

  async #question(chunk: Chunk): Promise<Question> {
    const { settings, layout, home } = this.#dependencies;
    const { outputDirectory, journalTailSize, maxOutputTokens } = settings.record;
    const count = Math.min(Number(journalTailSize), greatestTailSize);
    const beforeMs = chunk.frames[0]?.receivedAtMs ?? 0;
    const wanted = Math.max(Number(maxOutputTokens), leastOutputTokens);
    const shown = await shownFrames(chunk, layout.chunk(chunk.id), (path) => readFile(path));
    return {
      chunk,
      tail: await journalTail(expandedPath(outputDirectory, home), beforeMs, count),
      shown: this.#manners.takesNoPictures ? withoutPictures(shown) : shown,
      maxOutputTokens: Math.min(wanted, greatestOutputTokens),
      hasGrown: false,
    };
  }

  #request(provider: ModelProvider, { shown, tail, maxOutputTokens }: Question): ModelRequest {
    const { record } = this.#dependencies.settings;
    return modelRequest(record, provider.model, shown, tail, maxOutputTokens);
  }

  async #ask(
    protocol: Protocol,
    request: ModelRequest,
    signal: AbortSignal,
    keep: (request: string) => Promise<void>,
  ): Promise<ModelText> {
    const { clock } = this.#dependencies;
    const { pieces, withoutPictures: record } = protocol.body(
      request,
      this.#manners.unknownParameters,
    );
    const endpoint = await protocol.endpoint(signal);
    await keep(endpoint.secret === "" ? record : record.replaceAll(endpoint.secret, "<redacted>"));
    const reservation = await this.#reserve(mostTokens(request, record));
    try {
      const answer = withOwnStatus(await post({ ...endpoint, body: pieces }, clock, signal));
      if (answer.status !== 200) {
        throw failureOf(answer, endpoint.who, clock.nowMs(), [endpoint.secret]);
      }
      const text = protocol.parse(answer.text);
      if (text.tokens !== undefined) await this.#settle(reservation, text.tokens);
      return text;
    } catch (error) {
      if (error instanceof ProviderFailure) {
        if (error.kind === "configuration") protocol.forgetSignIn();
        await this.#giveBack(reservation, error);
        const mayBeStale = error.kind === "configuration" && endpoint.isKept === true;
        // Once: after signing in anew it isn't kept.
        if (mayBeStale) return this.#ask(protocol, request, signal, keep);
      }
      throw error;
    }
  }

  async #reserve(tokens: number): Promise<Reservation> {
    const { usage, limits } = this.#dependencies;
    try {
      return await usage.reserve(await limits(), tokens);
    } catch (error) {
      if (!(error instanceof UnreadableLimits)) throw error;
      throw new ProviderFailure("ceiling", error.message, { cost: "notSent", cause: error });
    }
  }

  async #giveBack(reservation: Reservation, { cost }: ProviderFailure): Promise<void> {
    const { usage } = this.#dependencies;
    // What the disk refuses to give back stays counted: the limit holds all the same.
    if (cost === "notSent") await usage.release(reservation).catch(() => undefined);
    if (cost === "refused") await this.#settle(reservation, 0);
  }

  async #settle(reservation: Reservation, tokens: number): Promise<void> {
    await this.#dependencies.usage.settle(reservation, tokens).catch(() => undefined);
  }

  /** Undefined when it is to be asked again, with more room for the answer. */
  #answer(provider: ModelProvider, question: Question, said: ModelText): ModelAnswer | undefined {
    if (said.blockedBy !== undefined) {
      const reason = clip(plainLine(said.blockedBy), 40);
      const remark = `The model ${provider.model} refused to describe some frames (${reason}).`;
      return { bullets: [], remark };
    }
    const times = question.shown.map(({ frame }) => frame.receivedAtMs);
    const { bullets, isUnderstood } = parseAnswer(said.text, said.isCut, times);
    if (isUnderstood) {
      const known = new Set(question.tail.map((line) => line.replace(/^\[[^\]]*\] /, "")));
      const news = bullets.filter(({ text }) => !known.has(text));
      return { bullets: news, remark: this.#remark(provider) };
    }
    if (said.isCut && !question.hasGrown) {
      question.hasGrown = true;
      question.maxOutputTokens = Math.min(question.maxOutputTokens * growth, greatestOutputTokens);
      return undefined;
    }
    throw new ProviderFailure("badRequest", misunderstood(provider.model, said));
  }

  #remark({ model }: ModelProvider): string | undefined {
    if (!this.#manners.takesNoPictures) return undefined;
    return `The model ${model} takes no pictures, so its lines are made of window titles alone. Choose one that does.`;
  }

  /** Makes the question fit for what was refused; throws where nothing more can be done. */
  #adapt(question: Question, failure: ProviderFailure): void {
    const { unknownParameters } = this.#manners;
    const { kind, parameter } = failure;
    const pictures = pictureCount(question.shown);
    if (kind === "shrink" && pictures > 0) {
      question.shown = fewerPictures(question.shown, Math.floor(pictures / 2));
    } else if (kind === "noVision" && pictures > 0) {
      this.#manners.takesNoPictures = true;
    } else if (
      kind === "parameter" &&
      parameter !== undefined &&
      !unknownParameters.has(parameter)
    ) {
      unknownParameters.add(parameter);
    } else if (kind === "shrink" || kind === "noVision" || kind === "parameter") {
      throw new ProviderFailure("badRequest", failure.message, { cause: failure });
    } else {
      throw failure;
    }
  }
}

function withoutPictures(shown: readonly ShownFrame[]): readonly ShownFrame[] {
  return shown.map((one) => ({ ...one, picture: undefined, isAsBefore: false }));
}

/** More than any model counts: a token has at least one byte. */
function mostTokens({ parts, maxOutputTokens }: ModelRequest, record: string): number {
  const pictures = parts.reduce((sum, part) => {
    if (part.kind === "text") return sum;
    const { width, height } = part.picture;
    const patches = Math.ceil(width / patchSide) * Math.ceil(height / patchSide);
    return sum + Math.max(patches || 0, leastPictureTokens);
  }, 0);
  return Buffer.byteLength(record) + pictures + maxOutputTokens;
}

function misunderstood(model: string, { text, isCut }: ModelText): string {
  if (isCut) return `The model ${model} needs more tokens for its answer: raise maxOutputTokens.`;
  const start = clip(plainLine(text), 60);
  const said = start === "" ? "nothing at all" : `"${start}"`;
  return `The model ${model} answered with ${said} instead of journal lines. Choose another model, or mend the instructions.`;
}
