/** An element of a Matroska file: its id in hexadecimal digits, and what is in it. */
export type Element = readonly [id: string, content: Buffer | readonly Element[]];

const sizeBytes = 8;

export function unsigned(value: number): Buffer {
  const bytes = Buffer.alloc(8);
  bytes.writeBigUInt64BE(BigInt(value));
  const first = bytes.findIndex((byte) => byte !== 0);
  return bytes.subarray(first < 0 ? 7 : first);
}

export function float(value: number): Buffer {
  const bytes = Buffer.alloc(8);
  bytes.writeDoubleBE(value);
  return bytes;
}

export function text(value: string): Buffer {
  return Buffer.from(value, "utf8");
}

/** Nanoseconds since the beginning of 2001, as the format counts them. */
export function date(ms: number): Buffer {
  const bytes = Buffer.alloc(8);
  bytes.writeBigInt64BE((BigInt(ms) - BigInt(Date.UTC(2001, 0))) * 1_000_000n);
  return bytes;
}

/** What stands before the content of an element of that length. */
export function head(id: string, contentBytes: number): Buffer {
  const size = Buffer.alloc(sizeBytes);
  size.writeBigUInt64BE(BigInt(contentBytes));
  size[0] = 0x01;
  return Buffer.concat([Buffer.from(id, "hex"), size]);
}

export function encoded([id, content]: Element): Buffer {
  const bytes = Buffer.isBuffer(content) ? content : Buffer.concat(content.map(encoded));
  return Buffer.concat([head(id, bytes.length), bytes]);
}
