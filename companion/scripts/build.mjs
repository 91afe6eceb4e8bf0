// Bundles the observer, its one dependency included, into the single file that
// the application starts.
import { build } from "esbuild";

await build({
  entryPoints: ["src/server.ts"],
  outfile: "dist/observer.mjs",
  bundle: true,
  platform: "node",
  format: "esm",
  target: "node18",
  charset: "utf8",
  legalComments: "eof",
  logLevel: "warning",
});
