import { defaultAnalysisServerUrl, type ObserverSettings } from "../wire/records.ts";

/** Who writes the bullets; `unavailable` gives the reason in one sentence. */
export type Provider =
  | { readonly kind: "local" }
  | { readonly kind: "unavailable"; readonly reason: string };

const names = new Map([
  ["google_vertex_ai", "Google Vertex AI"],
  ["ostrel", "the analysis server"],
]);

/** A provider that the user chose is never replaced by another, least of all silently. */
export function chosenProvider(settings: ObserverSettings): Provider {
  const { inferenceProvider, analysisApiToken, analysisServerUrl } = settings;
  const isDefaultServer = analysisServerUrl.trim().replace(/\/+$/, "") === defaultAnalysisServerUrl;
  if (inferenceProvider === "ostrel" && analysisApiToken === "" && isDefaultServer) {
    return { kind: "local" };
  }
  const name = names.get(inferenceProvider) ?? `the provider "${inferenceProvider}"`;
  return {
    kind: "unavailable",
    reason: `The settings choose ${name} (${inferenceProvider}), and this version of the observer can't use it yet. The recorded frames are kept.`,
  };
}
