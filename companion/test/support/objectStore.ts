import { type ChildProcess, spawn } from "node:child_process";
import { once } from "node:events";
import { createInterface } from "node:readline";
import { before } from "node:test";

const keys = { accessKeyId: "tests:observer", secretAccessKey: "the/secret+of-the-tests" };
const bucket = "footage";
const region = "eu-test-1";
/** It needs about a second; a busy machine a few. */
const startMs = 30_000;

/**
 * A real server that speaks S3: Debian's OpenStack Swift, in a process of its own that ends with the
 * tests. It is the word of somebody else about what a server may do.
 */
export class ObjectStore {
  readonly port: number;

  private constructor(port: number) {
    this.port = port;
  }

  static async start(): Promise<ObjectStore> {
    // Debian's own interpreter: its packages are not there for another one.
    const child = spawn(
      "/usr/bin/python3",
      [TEST_OBJECT_STORE_PATH, keys.accessKeyId, keys.secretAccessKey, bucket, region],
      { stdio: ["pipe", "pipe", "inherit"] },
    );
    const port = Number(await firstLine(child));
    if (!Number.isInteger(port) || port === 0) throw new Error("the object store did not start");
    // It must not keep the tests alive: its standard input ends with them, and so does it.
    child.unref();
    for (const stream of [child.stdin, child.stdout]) (stream as { unref?(): void }).unref?.();
    return new ObjectStore(port);
  }

  /** The whole bucket; tests keep apart by prefixes. */
  get record() {
    return {
      kind: "s3",
      lossless: true,
      endpoint: `http://127.0.0.1:${this.port}`,
      region,
      bucket,
      prefix: "",
      pathStyle: true,
      ...keys,
    } as const;
  }
}

/** One store for all tests of the file. */
export function objectStoreOfTheFile(): () => ObjectStore {
  let store: ObjectStore | undefined;
  before(async () => {
    store = await ObjectStore.start();
  });
  return () => {
    if (store === undefined) throw new Error("the object store is not there yet");
    return store;
  };
}

async function firstLine(child: ChildProcess): Promise<string> {
  if (child.stdout === null) throw new Error("its output is not ours");
  const signal = AbortSignal.timeout(startMs);
  const ended = once(child, "exit", { signal }).then(() => "");
  ended.catch(() => undefined);
  const [line] = await Promise.race([
    once(createInterface(child.stdout), "line", { signal }),
    ended.then(() => [""]),
  ]);
  return String(line);
}
