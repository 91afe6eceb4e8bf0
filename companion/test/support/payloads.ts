import type { CapturedFramePayload } from "../../src/wire/records.ts";

/** A picture of no use, but of JPEG's beginning and end. */
export const tinyPicture = "/9j/4AAQSkZJRgABAQAAAQABAAD/2Q==";

export function framePayload(
  receivedAtMs: number,
  fields: Partial<CapturedFramePayload> = {},
): CapturedFramePayload {
  return {
    receivedAtMs,
    frameIndex: 0,
    videoBase64: tinyPicture,
    videoMimeType: "image/jpeg",
    displayId: "1",
    displayLabel: "Display 1",
    displayWidth: 1920,
    displayHeight: 1080,
    text: undefined,
    activeDisplayId: undefined,
    activeDisplayLabel: undefined,
    activeDisplayReason: undefined,
    ...fields,
  };
}

/** The pieces of a batch with pictures of the size, without holding more than one picture. */
export function* largeBatch(
  frameCount: number,
  pictureBytes: number,
  firstAtMs: number,
): Generator<Uint8Array> {
  const picture = Buffer.alloc(pictureBytes, 0xa5).toString("base64");
  yield Buffer.from('{"frames":[');
  for (let index = 0; index < frameCount; index += 1) {
    const frame = framePayload(firstAtMs + index * 50, { frameIndex: index, videoBase64: picture });
    yield Buffer.from(`${index === 0 ? "" : ","}${JSON.stringify(frame)}`);
  }
  yield Buffer.from("]}");
}
