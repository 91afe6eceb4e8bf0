import { dirname } from "node:path";
import { errorCode, systemFailure } from "./failure.ts";
import { type FileSystem, realFileSystem } from "./fileSystem.ts";

/**
 * Makes the folder and its parents, for this user's eyes only; one that is there already stays as
 * it is. Resolves with the topmost folder that was made, or undefined. Not `mkdir` with
 * `recursive`: where a file system answers "no such file" whatever one does, as /proc does, that
 * never returns.
 */
export async function makeFolder(
  path: string,
  fs: FileSystem = realFileSystem,
): Promise<string | undefined> {
  const outcome = await tryMake(path, fs);
  if (outcome !== "noParent") return outcome === "made" ? path : undefined;
  const parent = dirname(path);
  const topmost = parent === path ? undefined : await makeFolder(parent, fs);
  // Another one may make it in between; a second "no such file" is the last word.
  const second = await tryMake(path, fs);
  if (second === "noParent") throw systemFailure("ENOENT", path);
  return topmost ?? (second === "made" ? path : undefined);
}

async function tryMake(path: string, fs: FileSystem): Promise<"made" | "wasThere" | "noParent"> {
  try {
    await fs.mkdir(path, { mode: 0o700 });
    return "made";
  } catch (error) {
    if (errorCode(error) === "ENOENT") return "noParent";
    if (errorCode(error) !== "EEXIST" || !(await fs.stat(path, { bigint: true })).isDirectory())
      throw error;
    return "wasThere";
  }
}
