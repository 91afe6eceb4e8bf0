export interface PictureSize {
  readonly width: number;
  readonly height: number;
}

/** Frame headers; the other markers of that range define tables, or are arithmetic conditioning. */
function isFrameHeader(marker: number): boolean {
  return marker >= 0xc0 && marker <= 0xcf && ![0xc4, 0xc8, 0xcc].includes(marker);
}

/** What a JPEG says of its own size; undefined where it is none. */
export function jpegSize(picture: Buffer): PictureSize | undefined {
  if (picture.length < 4 || picture.readUInt16BE(0) !== 0xffd8) return undefined;
  for (let at = 2; at + 9 <= picture.length; ) {
    if (picture[at] !== 0xff) return undefined;
    const marker = picture[at + 1] ?? 0;
    if (marker === 0xff) {
      at += 1;
      continue;
    }
    if (isFrameHeader(marker)) {
      return { height: picture.readUInt16BE(at + 5), width: picture.readUInt16BE(at + 7) };
    }
    at += 2 + picture.readUInt16BE(at + 2);
  }
  return undefined;
}
