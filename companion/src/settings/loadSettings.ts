import { readFile } from "node:fs/promises";
import { join } from "node:path";
import { parseJson } from "../json/value.ts";
import { defaultSettings, ObserverSettings } from "../wire/records.ts";
import { parseRecord } from "../wire/schema.ts";

/** Directories that earlier versions had as defaults; compared exactly. */
const formerOutputDirectories = ["~/Moravel/journal", "~/Tamsk Ostrel/journal"];
const formerRawInputDirectories = ["~/Moravel/model-input", "~/Tamsk Ostrel/model-input"];

function withoutFormerDirectories(settings: ObserverSettings): ObserverSettings {
  const { outputDirectory, rawInputDirectory } = settings;
  return {
    ...settings,
    outputDirectory: formerOutputDirectories.includes(outputDirectory)
      ? defaultSettings.outputDirectory
      : outputDirectory,
    rawInputDirectory: formerRawInputDirectories.includes(rawInputDirectory)
      ? defaultSettings.rawInputDirectory
      : rawInputDirectory,
  };
}

async function decoded(path: string): Promise<ObserverSettings | undefined> {
  try {
    return parseRecord(ObserverSettings, parseJson(await readFile(path)));
  } catch {
    return undefined;
  }
}

/**
 * The shared settings file by the application's own rules; never fails and never writes. The
 * secrets are empty in the result whatever the file says: the application alone keeps them, and
 * tells them on standard input.
 */
export async function loadSettings(home: string): Promise<ObserverSettings> {
  const settings =
    (await decoded(join(home, ".ostrel", "settings.json"))) ??
    (await decoded(join(home, ".moravel", "settings.json"))) ??
    defaultSettings;
  return {
    ...withoutFormerDirectories(settings),
    analysisApiToken: "",
    byokGoogleVertexApiKey: "",
  };
}
