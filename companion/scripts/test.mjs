// Bundles every test into out/ and runs them by node:test. Arguments are parts
// of paths: `npm test -- spool` runs the tests whose path contains "spool".
import { spawnSync } from "node:child_process";
import { readdirSync, rmSync } from "node:fs";
import { join } from "node:path";
import { build } from "esbuild";

function testFiles(folder) {
  return readdirSync(folder, { withFileTypes: true }).flatMap((entry) => {
    const path = join(folder, entry.name);
    if (entry.isDirectory()) return testFiles(path);
    return entry.name.endsWith(".test.ts") ? [path] : [];
  });
}

const wanted = process.argv.slice(2);
const files = testFiles("test").filter(
  (file) => wanted.length === 0 || wanted.some((part) => file.includes(part)),
);
if (files.length === 0) throw new Error(`no test file matches ${wanted.join(" ")}`);

// A folder per run, so that two runs at the same time don't delete each other's files.
const outdir = join("out", `tests-${process.pid}`);
const common = {
  bundle: true,
  platform: "node",
  format: "esm",
  target: "node18",
  sourcemap: "inline",
  logLevel: "warning",
};

try {
  await build({ ...common, entryPoints: ["src/server.ts"], outfile: join(outdir, "observer.mjs") });
  await build({
    ...common,
    entryPoints: files,
    outbase: "test",
    outdir,
    outExtension: { ".js": ".mjs" },
    // Tests that need the real program, a fixture or a temporary folder find them by these.
    define: {
      TEST_OBSERVER_PATH: JSON.stringify(join(process.cwd(), outdir, "observer.mjs")),
      TEST_FIXTURES_PATH: JSON.stringify(join(process.cwd(), "..", "tests", "fixtures")),
      TEST_OBJECT_STORE_PATH: JSON.stringify(join(process.cwd(), "test/support/object_store.py")),
    },
  });
  const bundles = files.map((file) =>
    join(outdir, file.slice("test/".length).replace(/\.ts$/, ".mjs")),
  );
  const { status } = spawnSync(process.execPath, ["--enable-source-maps", "--test", ...bundles], {
    stdio: "inherit",
  });
  process.exitCode = status ?? 1;
} finally {
  rmSync(outdir, { recursive: true, force: true });
}
