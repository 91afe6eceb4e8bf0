import { constants } from "node:fs";
import type { FileSystem } from "./fileSystem.ts";

/** Makes the names in a folder durable. */
export async function syncFolder(fs: FileSystem, path: string): Promise<void> {
  const folder = await fs.open(path, constants.O_RDONLY | constants.O_DIRECTORY);
  try {
    await folder.sync();
  } finally {
    await folder.close();
  }
}
