import { isLoopback } from "../base/loopback.ts";
import { defaultAnalysisServerUrl, type ObserverSettings } from "../wire/records.ts";

/** A server that speaks the chat completions protocol. */
export interface ChatServer {
  readonly kind: "chat";
  /** The endpoint itself. */
  readonly url: URL;
  /** Empty when there is none. */
  readonly token: string;
}

export type VertexCredential =
  | { readonly kind: "apiKey"; readonly key: string }
  | { readonly kind: "serviceAccount"; readonly path: string };

export interface Vertex {
  readonly kind: "vertex";
  readonly credential: VertexCredential;
  /** Empty for express mode, and where the service account's own holds. */
  readonly project: string;
  readonly location: string;
}

/** Whoever is sent pictures and texts. */
export type ModelProvider = (ChatServer | Vertex) & { readonly model: string };

/** Who writes the bullets; `unavailable` gives the reason in one sentence. */
export type Provider =
  | { readonly kind: "local" }
  | { readonly kind: "unavailable"; readonly reason: string }
  | { readonly kind: "model"; readonly provider: ModelProvider };

const kept = "The recorded frames are kept.";

/** A provider that the user chose is never replaced by another, least of all silently. */
export function chosenProvider(settings: ObserverSettings): Provider {
  const { inferenceProvider } = settings;
  if (inferenceProvider === "ostrel") return analysisServer(settings);
  if (inferenceProvider === "google_vertex_ai") return vertex(settings);
  return unavailable(
    `The settings choose the provider "${inferenceProvider}", which this observer doesn't know. ${kept}`,
  );
}

/** Whether both would ask the same model of the same provider in the same way. */
export function isSameProvider(one: ObserverSettings, other: ObserverSettings): boolean {
  return JSON.stringify(chosenProvider(one)) === JSON.stringify(chosenProvider(other));
}

function unavailable(reason: string): Provider {
  return { kind: "unavailable", reason };
}

function analysisServer(settings: ObserverSettings): Provider {
  const { analysisApiToken: token } = settings;
  const model = settings.model.trim();
  const address = settings.analysisServerUrl.trim();
  const isDefaultServer = address.replace(/\/+$/, "") === defaultAnalysisServerUrl;
  if (isDefaultServer && token === "") return { kind: "local" };
  const url = parsedUrl(address);
  if (url === undefined) {
    return unavailable(`The analysis server's address "${address}" is not a URL. ${kept}`);
  }
  const refusal = refusalOf(url) ?? refusalOfToken(token);
  if (refusal !== undefined) return unavailable(`${refusal} ${kept}`);
  if (model === "") return unavailable(`No model is chosen in the settings. ${kept}`);
  return { kind: "model", provider: { kind: "chat", url: endpoint(url), token, model } };
}

function parsedUrl(text: string): URL | undefined {
  try {
    return new URL(text);
  } catch {
    return undefined;
  }
}

/** Why nothing may be sent there; undefined where it may. */
function refusalOf(url: URL): string | undefined {
  const where = `The analysis server's address "${url.host}"`;
  if (url.protocol !== "https:" && url.protocol !== "http:") {
    return `${where} begins with ${url.protocol}//, and only https:// can be used.`;
  }
  if (url.protocol === "http:" && !isLoopback(url.hostname)) {
    return `${where} begins with http://, by which pictures would travel openly. Use https://, or a server on this machine.`;
  }
  if (url.username !== "" || url.password !== "") {
    return `${where} holds a name or password. Put the token into the settings instead.`;
  }
  if (url.hostname.endsWith(".invalid")) {
    return "There is no managed analysis server yet: name your own in the settings, or remove the token.";
  }
  return undefined;
}

/** What may stand in a header. */
function refusalOfToken(token: string): string | undefined {
  if (/^[\x21-\x7e]*$/.test(token)) return undefined;
  return "The token or key in the settings holds characters that none has; copy it again.";
}

/** Servers are named by their root, by the protocol's folder ("/v1"), or in full. */
function endpoint(base: URL): URL {
  const url = new URL(base);
  const path = url.pathname.replace(/\/+$/, "");
  url.hash = "";
  if (path === "") url.pathname = "/v1/chat/completions";
  else if (!path.endsWith("/chat/completions")) url.pathname = `${path}/chat/completions`;
  return url;
}

function vertex(settings: ObserverSettings): Provider {
  const credential = vertexCredential(settings);
  if (typeof credential === "string") return unavailable(credential);
  const model = settings.model.trim().replace(/^publishers\/google\/models\//, "");
  const project = settings.byokGoogleVertexProjectId.trim();
  const location = settings.byokGoogleVertexLocation.trim() || "global";
  // They become parts of the host and the path, which they must not be able to change.
  if (!/^[A-Za-z0-9][A-Za-z0-9._@-]*$/.test(model)) {
    return unavailable(`"${model}" is not the name of a Vertex AI model. ${kept}`);
  }
  if (!/^(?:[a-z0-9][a-z0-9.:-]*)?$/.test(project)) {
    return unavailable(`"${project}" is not the ID of a Google Cloud project. ${kept}`);
  }
  if (!/^[a-z0-9][a-z0-9-]*$/.test(location)) {
    return unavailable(`"${location}" is not a Vertex AI location. ${kept}`);
  }
  return { kind: "model", provider: { kind: "vertex", credential, project, location, model } };
}

/** A text says what is wrong; those that the application knows are in its own words. */
function vertexCredential(settings: ObserverSettings): VertexCredential | string {
  const mode = settings.byokGoogleVertexAuthMode;
  if (mode === "service_account") {
    const path = settings.byokGoogleVertexServiceAccountPath.trim();
    if (path !== "") return { kind: "serviceAccount", path };
    return "BYOK Vertex AI service account JSON path is not configured.";
  }
  if (mode !== "api_key")
    return `The settings choose "${mode}", which is no way to sign in. ${kept}`;
  const key = settings.byokGoogleVertexApiKey;
  if (key === "") return "BYOK Vertex AI API key is not configured.";
  return refusalOfToken(key) ?? { kind: "apiKey", key };
}
