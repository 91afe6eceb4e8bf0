import { plainTextEnd } from "./plainText.ts";

/** What the tokenizer found. Bytes are parts of the pushed chunk: use them before the next push. */
export type JsonEvent =
  | { readonly kind: "beginObject" | "endObject" | "beginArray" | "endArray" | "textEnd" }
  | { readonly kind: "key"; readonly name: string }
  | { readonly kind: "textPart"; readonly bytes: Uint8Array }
  | { readonly kind: "number"; readonly text: string }
  | { readonly kind: "literal"; readonly value: boolean | null };

/** The text is not JSON. */
export class JsonError extends Error {
  override readonly name = "JsonError";
}

type State =
  | "value"
  | "valueOrEnd"
  | "key"
  | "keyOrEnd"
  | "colon"
  | "afterValue"
  | "text"
  | "escape"
  | "unicode"
  | "number"
  | "literal";

const quote = 0x22;
const backslash = 0x5c;
const maximumDepth = 256;
const maximumNumberLength = 1024;
const numberGrammar = /^-?(?:0|[1-9][0-9]*)(?:\.[0-9]+)?(?:[eE][+-]?[0-9]+)?$/;
const literals = new Map<string, boolean | null>([
  ["true", true],
  ["false", false],
  ["null", null],
]);
const simpleEscapes = new Map<number, Uint8Array>(
  [
    ['"', '"'],
    ["\\", "\\"],
    ["/", "/"],
    ["b", "\b"],
    ["f", "\f"],
    ["n", "\n"],
    ["r", "\r"],
    ["t", "\t"],
  ].map(([letter = "", value = ""]) => [letter.charCodeAt(0), Buffer.from(value)]),
);

function isBlank(byte: number): boolean {
  return byte === 0x20 || byte === 0x0a || byte === 0x0d || byte === 0x09;
}

function isNumberByte(byte: number): boolean {
  return (byte >= 0x30 && byte <= 0x39) || "+-.eE".includes(String.fromCharCode(byte));
}

/** Decodes UTF-8 and refuses what isn't. A byte order mark is a character like any other. */
export function decodeUtf8(bytes: Uint8Array, { dropsTornEnd = false } = {}): string {
  try {
    const decoder = new TextDecoder("utf-8", { fatal: true, ignoreBOM: true });
    return decoder.decode(bytes, { stream: dropsTornEnd });
  } catch {
    throw new JsonError("text is not UTF-8");
  }
}

/**
 * A strict JSON reader that is fed the text piece by piece, so that a body of any size needs no
 * more memory than one piece. `JSON.parse` would need the whole text, and it rounds integers
 * beyond 2^53.
 */
export class JsonTokenizer {
  #state: State = "value";
  /** One entry per open object (true) or array (false). */
  readonly #open: boolean[] = [];
  #readingKey = false;
  #keyParts: Uint8Array[] = [];
  #pendingText = "";
  #highSurrogate = 0;
  #offset = 0;
  #complete = false;
  #events: JsonEvent[] = [];

  /** Reads one more piece. Throws JsonError where the text stops being JSON. */
  push(chunk: Uint8Array): JsonEvent[] {
    this.#events = [];
    let index = 0;
    while (index < chunk.length) {
      index = this.#step(chunk, index);
    }
    this.#offset += chunk.length;
    return this.#events;
  }

  /** The text has ended: throws JsonError unless exactly one value was read. */
  end(): JsonEvent[] {
    this.#events = [];
    if (this.#state === "number") this.#finishNumber();
    if (this.#state === "literal") this.#finishLiteral();
    if (!this.#complete) throw new JsonError("the text ends before its value does");
    return this.#events;
  }

  #step(chunk: Uint8Array, index: number): number {
    switch (this.#state) {
      case "text":
        return this.#readText(chunk, index);
      case "escape":
        return this.#readEscape(chunk, index);
      case "unicode":
        return this.#readUnicode(chunk, index);
      case "number":
        return this.#readNumber(chunk, index);
      case "literal":
        return this.#readLiteral(chunk, index);
      default:
        this.#readStructure(chunk[index] ?? 0, index);
        return index + 1;
    }
  }

  #readStructure(byte: number, index: number): void {
    if (isBlank(byte)) return;
    if (this.#complete) this.#fail(index, "text after the value");
    const character = String.fromCharCode(byte);
    if (this.#state === "colon") {
      if (character !== ":") this.#fail(index, "expected a colon");
      this.#state = "value";
    } else if (this.#state === "key" || this.#state === "keyOrEnd") {
      this.#readKeyStart(character, index);
    } else if (this.#state === "afterValue") {
      this.#readSeparator(character, index);
    } else if (character === "]" && this.#state === "valueOrEnd") {
      this.#close("endArray");
    } else {
      this.#readValueStart(character, index);
    }
  }

  #readKeyStart(character: string, index: number): void {
    if (character === "}" && this.#state === "keyOrEnd") {
      this.#close("endObject");
      return;
    }
    if (character !== '"') this.#fail(index, "expected a key");
    this.#readingKey = true;
    this.#keyParts = [];
    this.#state = "text";
  }

  #readSeparator(character: string, index: number): void {
    const inObject = this.#open.at(-1) === true;
    if (character === ",") {
      this.#state = inObject ? "key" : "value";
    } else if (character === (inObject ? "}" : "]")) {
      this.#close(inObject ? "endObject" : "endArray");
    } else {
      this.#fail(index, "expected a comma or the end");
    }
  }

  #readValueStart(character: string, index: number): void {
    if (character === "{" || character === "[") {
      if (this.#open.length >= maximumDepth) this.#fail(index, "nested too deeply");
      const isObject = character === "{";
      this.#open.push(isObject);
      this.#events.push({ kind: isObject ? "beginObject" : "beginArray" });
      this.#state = isObject ? "keyOrEnd" : "valueOrEnd";
    } else if (character === '"') {
      this.#readingKey = false;
      this.#state = "text";
    } else if (/[-0-9]/.test(character)) {
      this.#pendingText = character;
      this.#state = "number";
    } else if (/[a-z]/.test(character)) {
      this.#pendingText = character;
      this.#state = "literal";
    } else {
      this.#fail(index, "expected a value");
    }
  }

  #close(kind: "endObject" | "endArray"): void {
    this.#open.pop();
    this.#events.push({ kind });
    this.#valueRead();
  }

  #valueRead(): void {
    this.#state = "afterValue";
    if (this.#open.length === 0) this.#complete = true;
  }

  #readText(chunk: Uint8Array, start: number): number {
    const index = plainTextEnd(chunk, start);
    if (index > start) this.#emitText(chunk.subarray(start, index));
    if (index === chunk.length) return index;
    if (chunk[index] === backslash) this.#state = "escape";
    else if (chunk[index] === quote) this.#finishText();
    else this.#fail(index, "control character in a text");
    return index + 1;
  }

  #readEscape(chunk: Uint8Array, index: number): number {
    const byte = chunk[index] ?? 0;
    const simple = simpleEscapes.get(byte);
    if (simple !== undefined) {
      this.#emitText(simple);
      this.#state = "text";
    } else if (byte === 0x75) {
      this.#pendingText = "";
      this.#state = "unicode";
    } else {
      this.#fail(index, "unknown escape");
    }
    return index + 1;
  }

  #readUnicode(chunk: Uint8Array, index: number): number {
    this.#pendingText += String.fromCharCode(chunk[index] ?? 0);
    if (this.#pendingText.length < 4) return index + 1;
    if (!/^[0-9a-fA-F]{4}$/.test(this.#pendingText)) this.#fail(index, "unknown escape");
    this.#state = "text";
    this.#emitCodeUnit(Number.parseInt(this.#pendingText, 16));
    return index + 1;
  }

  /** Half a surrogate pair waits for its other half; one that stays alone becomes U+FFFD. */
  #emitCodeUnit(unit: number): void {
    const high = this.#highSurrogate;
    if (high !== 0 && unit >= 0xdc00 && unit <= 0xdfff) {
      this.#highSurrogate = 0;
      this.#emitText(Buffer.from(String.fromCharCode(high, unit)));
    } else if (unit >= 0xd800 && unit <= 0xdbff) {
      this.#flushSurrogate();
      this.#highSurrogate = unit;
    } else {
      this.#emitText(Buffer.from(String.fromCharCode(unit)));
    }
  }

  #flushSurrogate(): void {
    if (this.#highSurrogate === 0) return;
    this.#highSurrogate = 0;
    this.#emitText(Buffer.from("\ufffd"));
  }

  #emitText(bytes: Uint8Array): void {
    this.#flushSurrogate();
    if (this.#readingKey) this.#keyParts.push(Uint8Array.from(bytes));
    else this.#events.push({ kind: "textPart", bytes });
  }

  #finishText(): void {
    this.#flushSurrogate();
    if (this.#readingKey) {
      this.#events.push({ kind: "key", name: decodeUtf8(Buffer.concat(this.#keyParts)) });
      this.#state = "colon";
    } else {
      this.#events.push({ kind: "textEnd" });
      this.#valueRead();
    }
  }

  #readNumber(chunk: Uint8Array, start: number): number {
    let index = start;
    while (index < chunk.length && isNumberByte(chunk[index] ?? 0)) index += 1;
    this.#pendingText += Buffer.from(chunk.subarray(start, index)).toString("latin1");
    if (this.#pendingText.length > maximumNumberLength) this.#fail(index, "number too long");
    if (index < chunk.length) this.#finishNumber();
    return index;
  }

  #finishNumber(): void {
    if (!numberGrammar.test(this.#pendingText)) this.#fail(0, "not a number");
    this.#events.push({ kind: "number", text: this.#pendingText });
    this.#valueRead();
  }

  #readLiteral(chunk: Uint8Array, start: number): number {
    let index = start;
    while (index < chunk.length && /[a-z]/.test(String.fromCharCode(chunk[index] ?? 0))) {
      this.#pendingText += String.fromCharCode(chunk[index] ?? 0);
      if (this.#pendingText.length > 5) this.#fail(index, "unknown word");
      index += 1;
    }
    if (index < chunk.length) this.#finishLiteral();
    return index;
  }

  #finishLiteral(): void {
    const value = literals.get(this.#pendingText);
    if (value === undefined) this.#fail(0, "unknown word");
    else this.#events.push({ kind: "literal", value });
    this.#valueRead();
  }

  #fail(index: number, what: string): never {
    throw new JsonError(`${what} near byte ${this.#offset + index}`);
  }
}
