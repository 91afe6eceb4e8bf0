import { decodeUtf8, JsonError, type JsonEvent, JsonTokenizer } from "./tokenizer.ts";

/** Integers are exact: a bigint where a number would round. Objects have no prototype. */
export type JsonValue = null | boolean | number | bigint | string | JsonValue[] | JsonObject;
export interface JsonObject {
  [key: string]: JsonValue;
}

const integerGrammar = /^(-?[0-9]+)(?:\.0+)?$/;
const leastInt64 = -(2n ** 63n);
const greatestInt64 = 2n ** 63n - 1n;

/** A zero fraction makes no difference: 20000.0 is the integer 20000. */
export function numberFromText(text: string): number | bigint {
  const digits = integerGrammar.exec(text)?.[1];
  if (digits === undefined) return Number(text);
  const integer = BigInt(digits);
  const asNumber = Number(integer);
  if (Number.isSafeInteger(asNumber)) return asNumber;
  return integer >= leastInt64 && integer <= greatestInt64 ? integer : asNumber;
}

/** Builds one value from the tokenizer's events. Texts beyond the greatest length are cut there. */
export class ValueBuilder {
  readonly #greatestTextBytes: number;
  readonly #containers: (JsonValue[] | JsonObject)[] = [];
  readonly #keys: string[] = [];
  #textParts: Uint8Array[] = [];
  #textBytes = 0;
  #result: JsonValue | undefined;

  constructor(greatestTextBytes = Number.POSITIVE_INFINITY) {
    this.#greatestTextBytes = greatestTextBytes;
  }

  /** The finished value; undefined until its last event has come. */
  get result(): JsonValue | undefined {
    return this.#result;
  }

  push(event: JsonEvent): void {
    switch (event.kind) {
      case "beginObject":
        this.#containers.push(Object.create(null) as JsonObject);
        break;
      case "beginArray":
        this.#containers.push([]);
        break;
      case "endObject":
      case "endArray":
        this.#place(this.#containers.pop() ?? null);
        break;
      case "key":
        this.#keys.push(event.name);
        break;
      case "textPart":
        this.#addText(event.bytes);
        break;
      case "textEnd":
        this.#place(this.#finishText());
        break;
      case "number":
        this.#place(numberFromText(event.text));
        break;
      case "literal":
        this.#place(event.value);
        break;
    }
  }

  #addText(bytes: Uint8Array): void {
    const room = this.#greatestTextBytes - this.#textBytes;
    if (room > 0) this.#textParts.push(Uint8Array.from(bytes.subarray(0, room)));
    this.#textBytes += bytes.length;
  }

  #finishText(): string {
    const isCut = this.#textBytes > this.#greatestTextBytes;
    const text = decodeUtf8(Buffer.concat(this.#textParts), { dropsTornEnd: isCut });
    this.#textParts = [];
    this.#textBytes = 0;
    return text;
  }

  #place(value: JsonValue): void {
    const container = this.#containers.at(-1);
    if (container === undefined) this.#result = value;
    else if (Array.isArray(container)) container.push(value);
    else container[this.#keys.pop() ?? ""] = value;
  }
}

/** Parses a whole text. Throws JsonError; of a key that occurs twice the last value holds. */
export function parseJson(text: string | Uint8Array): JsonValue {
  const tokenizer = new JsonTokenizer();
  const builder = new ValueBuilder();
  const bytes = typeof text === "string" ? Buffer.from(text) : text;
  for (const event of tokenizer.push(bytes)) builder.push(event);
  for (const event of tokenizer.end()) builder.push(event);
  if (builder.result === undefined) throw new JsonError("no value");
  return builder.result;
}
