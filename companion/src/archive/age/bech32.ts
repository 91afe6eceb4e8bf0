const alphabet = "qpzry9x8gf2tvdw0s3jn54khce6mua7l";
const generators = [0x3b6a57b2, 0x26508e6d, 0x1ea119fa, 0x3d4233dd, 0x2a1462b3];
const checksumLength = 6;

export class Bech32Error extends Error {
  override readonly name = "Bech32Error";
  /** Where in the text the fault lies, counted from 0; undefined when that can't be told. */
  readonly position: number | undefined;

  constructor(message: string, position?: number) {
    super(message);
    this.position = position;
  }
}

function remainder(values: readonly number[]): number {
  let sum = 1;
  for (const value of values) {
    const top = sum >>> 25;
    sum = ((sum & 0x1ffffff) << 5) ^ value;
    generators.forEach((generator, bit) => {
      if ((top >>> bit) & 1) sum ^= generator;
    });
  }
  return sum >>> 0;
}

function expanded(prefix: string): number[] {
  const codes = [...prefix].map((character) => character.charCodeAt(0));
  return [...codes.map((code) => code >>> 5), 0, ...codes.map((code) => code & 31)];
}

/** Groups of `from` bits as groups of `to` bits; undefined where the rest is no padding. */
function regrouped(values: Iterable<number>, from: number, to: number): number[] {
  const groups: number[] = [];
  let bits = 0;
  let held = 0;
  for (const value of values) {
    held = (held << from) | value;
    bits += from;
    while (bits >= to) {
      bits -= to;
      groups.push((held >>> bits) & ((1 << to) - 1));
    }
    held &= (1 << bits) - 1;
  }
  if (to < from) {
    if (bits > 0) groups.push((held << (to - bits)) & ((1 << to) - 1));
  } else if (bits >= from || held !== 0) {
    throw new Bech32Error("the padding is not zero");
  }
  return groups;
}

/** BIP 173's encoding, without its limit of 90 characters; in lower case. */
export function encodeBech32(prefix: string, bytes: Uint8Array): string {
  const values = regrouped(bytes, 8, 5);
  const sum = remainder([...expanded(prefix), ...values, 0, 0, 0, 0, 0, 0]) ^ 1;
  for (let index = checksumLength - 1; index >= 0; index -= 1)
    values.push((sum >>> (5 * index)) & 31);
  return `${prefix}1${values.map((value) => alphabet[value]).join("")}`;
}

/** Takes one case or the other, not both; throws Bech32Error. */
export function decodeBech32(text: string): { prefix: string; bytes: Buffer } {
  if (text !== text.toLowerCase() && text !== text.toUpperCase()) {
    throw new Bech32Error("capitals and small letters are mixed");
  }
  const lower = text.toLowerCase();
  const separator = lower.lastIndexOf("1");
  if (separator < 1 || lower.length - separator <= checksumLength) {
    throw new Bech32Error("it is not complete");
  }
  const prefix = lower.slice(0, separator);
  const values = [...lower.slice(separator + 1)].map((character, index) => {
    const value = alphabet.indexOf(character);
    if (value < 0) throw new Bech32Error("no key holds this character", separator + 1 + index);
    return value;
  });
  const head = expanded(prefix);
  if (remainder([...head, ...values]) !== 1) {
    const wrong = singleFault(head, values);
    throw new Bech32Error(
      "the checksum is wrong",
      wrong === undefined ? undefined : separator + 1 + wrong,
    );
  }
  return { prefix, bytes: Buffer.from(regrouped(values.slice(0, -checksumLength), 5, 8)) };
}

/** The one character a change of which makes the checksum right. */
function singleFault(head: readonly number[], values: readonly number[]): number | undefined {
  for (let index = 0; index < values.length; index += 1) {
    for (let value = 0; value < alphabet.length; value += 1) {
      const changed = values.map((old, at) => (at === index ? value : old));
      if (remainder([...head, ...changed]) === 1) return index;
    }
  }
  return undefined;
}
