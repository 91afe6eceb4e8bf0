import { type JsonEvent, JsonTokenizer } from "../json/tokenizer.ts";
import { type JsonObject, ValueBuilder } from "../json/value.ts";
import { CapturedFramePayload } from "../wire/records.ts";
import { InvalidRecord, parseRecord } from "../wire/schema.ts";

/** A frame without its picture, whose parts came before it. */
export type FrameRecord = Omit<CapturedFramePayload, "videoBase64">;

/** What a piece of the body brought. The base64 bytes are valid until the next push. */
export type FramePart =
  | { readonly kind: "picturePart"; readonly base64: Uint8Array }
  | { readonly kind: "pictureEnd" }
  | { readonly kind: "frame"; readonly record: FrameRecord };

/** Far more than any context says. A page may give itself a title of any length. */
const greatestTextBytes = 16 * 1024;

/** Where in the body `{"frames": [{...}, ...]}` the reader stands. */
type Place = "start" | "body" | "framesStart" | "frames" | "frame" | "value" | "picture" | "end";

/**
 * Reads the body of "/api/frames" as it arrives. A batch may be as large as the disk, so the
 * pictures pass through in pieces and only the other fields of one frame are held.
 */
export class FrameReader {
  readonly #tokenizer = new JsonTokenizer();
  #place: Place = "start";
  #framesSeen = false;
  #frameCount = 0;
  #fields: JsonObject = Object.create(null) as JsonObject;
  #key = "";
  /** The value of a key, read by a builder, or only counted through where nobody wants it. */
  #builder: ValueBuilder | undefined;
  #depth = 0;
  #afterValue: Place = "body";
  #parts: FramePart[] = [];

  /** The index of the frame that is being read. */
  get frameIndex(): number {
    return this.#frameCount;
  }

  /** Throws JsonError where the body stops being JSON, InvalidRecord where it doesn't fit. */
  push(chunk: Uint8Array): FramePart[] {
    this.#parts = [];
    for (const event of this.#tokenizer.push(chunk)) this.#take(event);
    return this.#parts;
  }

  /** The body has ended: throws like `push` when something is missing. */
  end(): void {
    for (const event of this.#tokenizer.end()) this.#take(event);
    if (!this.#framesSeen) throw new InvalidRecord("frames", "Invalid input: expected array");
  }

  #take(event: JsonEvent): void {
    switch (this.#place) {
      case "start":
        this.#expect(event, "beginObject", "", "object");
        this.#place = "body";
        break;
      case "body":
        this.#takeBodyKey(event);
        break;
      case "framesStart":
        this.#expect(event, "beginArray", "frames", "array");
        this.#place = "frames";
        break;
      case "frames":
        this.#takeFrameStart(event);
        break;
      case "frame":
        this.#takeFrameKey(event);
        break;
      case "picture":
        this.#takePicture(event);
        break;
      case "value":
        this.#takeValue(event);
        break;
      case "end":
        break;
    }
  }

  #takeBodyKey(event: JsonEvent): void {
    if (event.kind !== "key") {
      this.#place = "end";
    } else if (event.name !== "frames") {
      this.#beginValue(undefined, "body");
    } else if (this.#framesSeen) {
      // A second list would replace the first, whose frames are on the disk already.
      throw new InvalidRecord("frames", "Invalid input: the key occurs twice");
    } else {
      this.#framesSeen = true;
      this.#place = "framesStart";
    }
  }

  #takeFrameStart(event: JsonEvent): void {
    if (event.kind === "endArray") {
      this.#place = "body";
      return;
    }
    this.#expect(event, "beginObject", `frames.${this.#frameCount}`, "object");
    this.#fields = Object.create(null) as JsonObject;
    this.#place = "frame";
  }

  #takeFrameKey(event: JsonEvent): void {
    if (event.kind !== "key") {
      this.#finishFrame();
      return;
    }
    this.#key = event.name;
    if (event.name === "videoBase64") {
      if ("videoBase64" in this.#fields) this.#failPicture("the key occurs twice");
      this.#place = "picture";
    } else {
      const wanted = Object.hasOwn(CapturedFramePayload.shape, event.name);
      this.#beginValue(wanted ? new ValueBuilder(greatestTextBytes) : undefined, "frame");
    }
  }

  #takePicture(event: JsonEvent): void {
    if (event.kind === "textPart") {
      this.#parts.push({ kind: "picturePart", base64: event.bytes });
    } else if (event.kind === "textEnd") {
      this.#parts.push({ kind: "pictureEnd" });
      this.#fields["videoBase64"] = "";
      this.#place = "frame";
    } else {
      this.#failPicture("expected string");
    }
  }

  #finishFrame(): void {
    const { videoBase64: _, ...record } = parseRecord(CapturedFramePayload, this.#fields, [
      "frames",
      String(this.#frameCount),
    ]);
    this.#parts.push({ kind: "frame", record });
    this.#frameCount += 1;
    this.#place = "frames";
  }

  #beginValue(builder: ValueBuilder | undefined, afterValue: Place): void {
    this.#builder = builder;
    this.#depth = 0;
    this.#afterValue = afterValue;
    this.#place = "value";
  }

  #takeValue(event: JsonEvent): void {
    this.#builder?.push(event);
    if (event.kind === "beginObject" || event.kind === "beginArray") this.#depth += 1;
    if (event.kind === "endObject" || event.kind === "endArray") this.#depth -= 1;
    if (this.#depth > 0 || event.kind === "textPart") return;
    const value = this.#builder?.result;
    if (value !== undefined) this.#fields[this.#key] = value;
    this.#place = this.#afterValue;
  }

  #expect(event: JsonEvent, kind: JsonEvent["kind"], path: string, name: string): void {
    if (event.kind !== kind) throw new InvalidRecord(path, `Invalid input: expected ${name}`);
  }

  #failPicture(what: string): never {
    throw new InvalidRecord(`frames.${this.#frameCount}.videoBase64`, `Invalid input: ${what}`);
  }
}
