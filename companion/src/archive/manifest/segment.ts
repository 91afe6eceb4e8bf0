import { createHash, createHmac, timingSafeEqual } from "node:crypto";
import * as z from "zod/mini";
import { parseJson } from "../../json/value.ts";
import { writeJson } from "../../json/writer.ts";
import { parseRecord } from "../../wire/schema.ts";
import { decryptBytes, encryptBytes } from "../age/age.ts";
import { ClipEntry, dayText, sha256Text } from "../clips/records.ts";
import type { Vault } from "../keys/vault.ts";

/** What stands for the one before the first. */
export const noPrevious = "0".repeat(64);

/**
 * A part of the archive's list: the clips that one machine has stored of one day. The parts of a
 * machine are numbered from 1, and each names the hash of the one before, so that none can be taken
 * away, put in or exchanged unnoticed.
 */
export const Segment = z.object({
  format: z.literal("ostrel-archive-list"),
  version: z.literal(1),
  vault: z.string(),
  writer: z.string(),
  sequence: z.int().check(z.gte(1)),
  day: dayText,
  /** Of the whole object before. */
  previous: sha256Text,
  clips: z.array(ClipEntry),
  /** Clips of that day that the user has had forgotten, whoever has listed them. */
  forgotten: z.optional(z.array(z.string())),
});
export type Segment = z.infer<typeof Segment>;

export interface SegmentName {
  readonly writer: string;
  readonly sequence: number;
  readonly day: string;
}

/** Somebody without the vault's key has written or changed it, or it isn't what its name says. */
export class ForgedSegment extends Error {
  override readonly name = "ForgedSegment";
}

export function segmentName({ writer, sequence, day }: SegmentName): string {
  return `manifest/${day}/${writer}-${String(sequence).padStart(8, "0")}.age`;
}

export function parseSegmentName(name: string): SegmentName | undefined {
  const match = /^manifest\/([0-9-]{10})\/([0-9a-f]{16})-([0-9]{8,15})\.age$/.exec(name);
  const [, day, writer, digits] = match ?? [];
  if (day === undefined || writer === undefined) return undefined;
  const parsed = { day, writer, sequence: Number(digits) };
  return segmentName(parsed) === name && parsed.sequence > 0 ? parsed : undefined;
}

export function sha256Of(bytes: Uint8Array): string {
  return createHash("sha256").update(bytes).digest("hex");
}

/** The object: one line of JSON and one with its authenticating code, encrypted. */
export function sealSegment(segment: Segment, vault: Vault): Promise<Buffer> {
  const line = writeJson(segment);
  const code = codeOf(line, vault).toString("hex");
  return encryptBytes(Buffer.from(`${line}\n${code}\n`), vault.identity.recipient);
}

/** Throws ForgedSegment unless the vault's own machine has written it under this name. */
export async function openSegment(
  object: Uint8Array,
  vault: Vault,
  name: SegmentName,
): Promise<Segment> {
  const segment = await decoded(object, vault);
  const isItself =
    segment.vault === vault.id &&
    segment.writer === name.writer &&
    segment.sequence === name.sequence &&
    segment.day === name.day &&
    segment.clips.every((clip) => clip.day === name.day);
  if (!isItself) throw new ForgedSegment("it stands under another name than its own");
  return segment;
}

async function decoded(object: Uint8Array, vault: Vault): Promise<Segment> {
  try {
    const [line = "", code = ""] = (await decryptBytes(object, vault.identity))
      .toString("utf8")
      .split("\n");
    const [given, expected] = [Buffer.from(code, "hex"), codeOf(line, vault)];
    if (given.length !== expected.length || !timingSafeEqual(given, expected)) {
      throw new ForgedSegment("its code is not the vault's");
    }
    return parseRecord(Segment, parseJson(line));
  } catch (error) {
    if (error instanceof ForgedSegment) throw error;
    throw new ForgedSegment(error instanceof Error ? error.message : String(error));
  }
}

function codeOf(line: string, vault: Vault): Buffer {
  return createHmac("sha256", vault.manifestKey).update(line).digest();
}
