import { createHash } from "node:crypto";
import {
  type ArchiveTarget,
  ObjectConflict,
  ObjectMissing,
  type StoredObject,
  TargetFailure,
  type Upload,
} from "../../src/archive/targets/target.ts";

/** A target in memory, with whose objects tests do what nobody should. */
export class MemoryTarget implements ArchiveTarget {
  readonly objects = new Map<string, Buffer>();
  /** What was asked for, in order: "put <name>" and so on. */
  readonly calls: string[] = [];
  /** Called before anything else; what it throws is the answer. */
  onCall: (call: string) => void = () => {};
  /** After so many bytes reading fails. */
  cutAfterBytes = Number.POSITIVE_INFINITY;

  fail(): void {
    this.onCall = () => {
      throw new TargetFailure("The place can't be reached.");
    };
  }

  mend(): void {
    this.onCall = () => {};
    this.cutAfterBytes = Number.POSITIVE_INFINITY;
  }

  async put(upload: Upload): Promise<void> {
    this.#note(`put ${upload.name}`);
    const pieces: Uint8Array[] = [];
    for await (const piece of upload.read()) pieces.push(piece);
    const bytes = Buffer.concat(pieces);
    const sha256 = createHash("sha256").update(bytes).digest("hex");
    if (bytes.length !== upload.bytes || sha256 !== upload.sha256) {
      throw new Error(`${upload.name} is not what was announced`);
    }
    const stored = this.objects.get(upload.name);
    if (stored !== undefined && !stored.equals(bytes)) throw new ObjectConflict(upload.name);
    this.objects.set(upload.name, bytes);
  }

  async remove(name: string): Promise<void> {
    this.#note(`remove ${name}`);
    this.objects.delete(name);
  }

  async *read(name: string): AsyncGenerator<Uint8Array> {
    this.#note(`read ${name}`);
    const bytes = this.objects.get(name);
    if (bytes === undefined) throw new ObjectMissing(name);
    yield bytes.subarray(0, this.cutAfterBytes);
    if (this.cutAfterBytes < bytes.length) throw new TargetFailure("The network was cut.");
  }

  async *list(folder: string): AsyncGenerator<StoredObject> {
    this.#note(`list ${folder}`);
    for (const [name, bytes] of [...this.objects].sort(([a], [b]) => (a < b ? -1 : 1))) {
      if (name.startsWith(`${folder}/`)) yield { name, bytes: bytes.length };
    }
  }

  async topFolders(): Promise<string[]> {
    this.#note("topFolders");
    return [...new Set([...this.objects.keys()].map((name) => name.split("/")[0] ?? ""))];
  }

  /** The names that hold the part, in order. */
  names(part: string): string[] {
    return [...this.objects.keys()].filter((name) => name.includes(part)).sort();
  }

  #note(call: string): void {
    this.calls.push(call);
    this.onCall(call);
  }
}
