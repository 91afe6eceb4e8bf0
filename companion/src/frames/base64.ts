/** The text is not base64 with padding. */
export class Base64Error extends Error {
  override readonly name = "Base64Error";
}

const alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
const notInAlphabet = 64;
const padding = 65;
const sextets = new Uint8Array(256).fill(notInAlphabet);
for (let value = 0; value < alphabet.length; value += 1) {
  sextets[alphabet.charCodeAt(value)] = value;
}
sextets["=".charCodeAt(0)] = padding;

/**
 * Decodes base64 that arrives in pieces. `Buffer.from(text, "base64")` needs the whole text and
 * passes over what is not base64, so that a damaged picture would be kept as if it were whole.
 */
export class Base64Decoder {
  #buffer = new Uint8Array(0);
  #bits = 0;
  #sextetCount = 0;
  #paddingCount = 0;

  /** The bytes that the piece completes; they are valid until the next call. */
  push(piece: Uint8Array): Uint8Array {
    const needed = Math.ceil((piece.length * 3) / 4) + 3;
    if (this.#buffer.length < needed) this.#buffer = new Uint8Array(needed);
    let length = 0;
    for (const character of piece) {
      const sextet = sextets[character] ?? notInAlphabet;
      if (sextet >= notInAlphabet || this.#paddingCount > 0) {
        this.#readPadding(sextet);
        continue;
      }
      this.#bits = (this.#bits << 6) | sextet;
      this.#sextetCount += 1;
      if (this.#sextetCount < 4) continue;
      this.#buffer[length] = this.#bits >> 16;
      this.#buffer[length + 1] = this.#bits >> 8;
      this.#buffer[length + 2] = this.#bits;
      length += 3;
      this.#bits = 0;
      this.#sextetCount = 0;
    }
    return this.#buffer.subarray(0, length);
  }

  /** The text has ended: the bytes of a last, padded group. Ready for a new text afterwards. */
  end(): Uint8Array {
    const sextetCount = this.#sextetCount;
    const whole = sextetCount + this.#paddingCount;
    if ((whole !== 0 && whole !== 4) || sextetCount === 1) {
      throw new Base64Error("the text is cut off in the middle of a group");
    }
    const bits = this.#bits;
    this.#bits = 0;
    this.#sextetCount = 0;
    this.#paddingCount = 0;
    if (sextetCount === 2) return Uint8Array.of(bits >> 4);
    if (sextetCount === 3) return Uint8Array.of(bits >> 10, bits >> 2);
    return new Uint8Array(0);
  }

  #readPadding(sextet: number): void {
    const room = this.#sextetCount >= 2 && this.#sextetCount + this.#paddingCount < 4;
    if (sextet !== padding || !room) throw new Base64Error("a character is not base64");
    this.#paddingCount += 1;
  }
}
