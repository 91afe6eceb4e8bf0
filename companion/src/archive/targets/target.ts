/** Something to store: a file of ours that doesn't change any more. */
export interface Upload {
  /** Its name in the archive, of segments by "/": letters, digits, ".", "-" and "_". */
  readonly name: string;
  readonly path: string;
  readonly bytes: number;
  /** In hexadecimal digits. */
  readonly sha256: string;
  read(): AsyncIterable<Uint8Array>;
}

export interface StoredObject {
  readonly name: string;
  readonly bytes: number;
}

/**
 * Where an archive lies. What is stored there never changes and is never overwritten; it goes only when
 * its user has it forgotten. Every operation may take long, ends soon after the signal, and throws TargetFailure unless it says more.
 */
export interface ArchiveTarget {
  /**
   * Resolves when the target has confirmed that it keeps exactly these bytes under the name, also
   * where it kept them already. Throws ObjectConflict where it keeps others.
   */
  put(upload: Upload, signal: AbortSignal): Promise<void>;
  /** Resolves when the target shows the object no more; nothing of that name is no error. */
  remove(name: string, signal: AbortSignal): Promise<void>;
  /** Throws ObjectMissing. What comes is checked by the reader, who knows what it should be. */
  read(name: string, signal: AbortSignal): AsyncIterable<Uint8Array>;
  /** All objects in the folder and those below it; none where it isn't there. */
  list(folder: string, signal: AbortSignal): AsyncIterable<StoredObject>;
  /** The names of the folders at the top. */
  topFolders(signal: AbortSignal): Promise<string[]>;
}

/** The target can't be used at present; the message is a sentence for the user. */
export class TargetFailure extends Error {
  override readonly name: string = "TargetFailure";
}

export class ObjectMissing extends TargetFailure {
  override readonly name = "ObjectMissing";

  constructor(name: string) {
    super(`The archive has no object ${name}.`);
  }
}

/** It is there, and the target can't give it back: the others may be whole. */
export class ObjectUnreadable extends TargetFailure {
  override readonly name = "ObjectUnreadable";
}

export class ObjectConflict extends TargetFailure {
  override readonly name = "ObjectConflict";

  constructor(name: string) {
    super(`The archive already has another object ${name}; it is left as it is.`);
  }
}
