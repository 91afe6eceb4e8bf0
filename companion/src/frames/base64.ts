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
const hyphen = "-".charCodeAt(0);
const underscore = "_".charCodeAt(0);

/** Each write of a file is a trip to another thread. */
const blockBytes = 256 * 1024;

/**
 * Decodes base64 that arrives in pieces, and hands the bytes out in blocks that are worth writing.
 * `Buffer.from(text, "base64")` needs the whole text and passes over what is not base64, so that
 * a damaged picture would be kept as if it were whole.
 */
export class Base64Decoder {
  /** Holds bytes that have not been handed out; a group that is begun fits behind them. */
  #block = Buffer.alloc(0);
  #length = 0;
  #bits = 0;
  #sextetCount = 0;
  #paddingCount = 0;

  /** A block of bytes once there is one, else nothing; they are valid until the next call. */
  push(piece: Uint8Array): Uint8Array {
    this.#makeRoom(Math.ceil((piece.length * 3) / 4) + 3);
    const untilGroup = this.#sextetCount === 0 ? 0 : 4 - this.#sextetCount;
    this.#decode(piece.subarray(0, untilGroup));
    const rest = piece.subarray(untilGroup);
    const groups = rest.subarray(0, rest.length - (rest.length % 4));
    if (!this.#decodeGroups(groups)) this.#decode(groups);
    this.#decode(rest.subarray(groups.length));
    return this.#length < blockBytes ? this.#block.subarray(0, 0) : this.#handOut();
  }

  /** The text has ended: the bytes that are left. Ready for a new text afterwards. */
  end(): Uint8Array {
    const sextetCount = this.#sextetCount;
    const whole = sextetCount + this.#paddingCount;
    if ((whole !== 0 && whole !== 4) || sextetCount === 1) {
      throw new Base64Error("the text is cut off in the middle of a group");
    }
    this.#makeRoom(2);
    if (sextetCount === 2) {
      this.#append(this.#bits >> 4);
    } else if (sextetCount === 3) {
      this.#append(this.#bits >> 10);
      this.#append(this.#bits >> 2);
    }
    this.#bits = 0;
    this.#sextetCount = 0;
    this.#paddingCount = 0;
    return this.#handOut();
  }

  #makeRoom(bytes: number): void {
    const needed = this.#length + bytes;
    if (this.#block.length >= needed) return;
    const larger = Buffer.allocUnsafeSlow(Math.max(needed, 2 * this.#block.length));
    this.#block.copy(larger, 0, 0, this.#length);
    this.#block = larger;
  }

  #append(byte: number): void {
    this.#block[this.#length] = byte;
    this.#length += 1;
  }

  #handOut(): Uint8Array {
    const bytes = this.#block.subarray(0, this.#length);
    this.#length = 0;
    return bytes;
  }

  /** Groups without padding, all at once. False when they need a closer look. */
  #decodeGroups(groups: Uint8Array): boolean {
    if (this.#sextetCount > 0 || this.#paddingCount > 0) return false;
    const text = Buffer.from(groups.buffer, groups.byteOffset, groups.length);
    // Node takes the alphabet for addresses too, and passes over everything else.
    if (text.includes(hyphen) || text.includes(underscore)) return false;
    const bytes = (groups.length / 4) * 3;
    if (this.#block.write(text.toString("latin1"), this.#length, bytes, "base64") < bytes) {
      return false;
    }
    this.#length += bytes;
    return true;
  }

  #decode(piece: Uint8Array): void {
    for (const character of piece) {
      const sextet = sextets[character] ?? notInAlphabet;
      if (sextet >= notInAlphabet || this.#paddingCount > 0) {
        this.#readPadding(sextet);
        continue;
      }
      this.#bits = (this.#bits << 6) | sextet;
      this.#sextetCount += 1;
      if (this.#sextetCount < 4) continue;
      this.#append(this.#bits >> 16);
      this.#append(this.#bits >> 8);
      this.#append(this.#bits);
      this.#bits = 0;
      this.#sextetCount = 0;
    }
  }

  #readPadding(sextet: number): void {
    const room = this.#sextetCount >= 2 && this.#sextetCount + this.#paddingCount < 4;
    if (sextet !== padding || !room) throw new Base64Error("a character is not base64");
    this.#paddingCount += 1;
  }
}
