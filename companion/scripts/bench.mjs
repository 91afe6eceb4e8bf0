// Bundles a program of bench/ and runs it: `npm run bench -- archive`.
import { spawnSync } from "node:child_process";
import { rmSync } from "node:fs";
import { join } from "node:path";
import { build } from "esbuild";

const name = process.argv[2] ?? "archive";
const outfile = join("out", `bench-${process.pid}.mjs`);
try {
  await build({
    entryPoints: [join("bench", `${name}.ts`)],
    outfile,
    bundle: true,
    platform: "node",
    format: "esm",
    target: "node18",
    logLevel: "warning",
  });
  process.exitCode =
    spawnSync(process.execPath, [outfile, ...process.argv.slice(3)], { stdio: "inherit" }).status ??
    1;
} finally {
  rmSync(outfile, { force: true });
}
