import { createHash } from "node:crypto";
import { writeFileSync } from "node:fs";
import { join } from "node:path";
import type { ArchiveTarget, Upload } from "../../src/archive/targets/target.ts";
import { realDisk } from "../../src/spool/disk.ts";
import { temporaryHome } from "./temporaryHome.ts";

export const forever = new AbortController().signal;
export const vault = "0123456789abcdef0123";

export function uploadOf(name: string, bytes: Buffer): Upload {
  const path = join(temporaryHome(), "file");
  writeFileSync(path, bytes);
  const sha256 = createHash("sha256").update(bytes).digest("hex");
  return {
    name: `${vault}/${name}`,
    path,
    bytes: bytes.length,
    sha256,
    read: () => realDisk.read(path),
  };
}

export async function contents(target: ArchiveTarget, name: string): Promise<Buffer> {
  const pieces: Uint8Array[] = [];
  for await (const piece of target.read(`${vault}/${name}`, forever)) pieces.push(piece);
  return Buffer.concat(pieces);
}

export async function listed(
  target: ArchiveTarget,
  folder: string,
): Promise<Record<string, number>> {
  const objects: Record<string, number> = {};
  for await (const { name, bytes } of target.list(folder, forever)) objects[name] = bytes;
  return objects;
}
