import { type Disk, realDisk } from "../../src/spool/disk.ts";

/** A disk that refuses to make files while `isFull`. */
export function fillableDisk(): { disk: Disk; state: { isFull: boolean } } {
  const state = { isFull: false };
  const refuse = () => {
    if (state.isFull) throw Object.assign(new Error("ENOSPC: no"), { code: "ENOSPC" });
  };
  const disk: Disk = {
    ...realDisk,
    async createFile(path) {
      refuse();
      const file = await realDisk.createFile(path);
      return {
        ...file,
        async write(bytes) {
          refuse();
          await file.write(bytes);
        },
      };
    },
    async replaceFile(path, text) {
      refuse();
      await realDisk.replaceFile(path, text);
    },
  };
  return { disk, state };
}
