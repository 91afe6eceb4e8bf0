import * as z from "zod/mini";
import type { ObserverSettings } from "../wire/records.ts";
import { defaulting } from "../wire/schema.ts";

/** Stands where a secret is not told; given as a secret, it leaves the one in use alone. */
const redacted = "<redacted>";

/** The first line on standard input. */
export const Secrets = z.object({
  analysisApiToken: defaulting(z.string(), ""),
  byokGoogleVertexApiKey: defaulting(z.string(), ""),
});
export type Secrets = z.infer<typeof Secrets>;

function secretInUse(given: string, current: string): string {
  const trimmed = given.trim();
  return trimmed === redacted ? current : trimmed;
}

function told(secret: string): string {
  return secret === "" ? "" : redacted;
}

type ArchiveSettings = Pick<ObserverSettings, "archiveEnabled" | "archiveVaultId">;

/** The settings by which the observer works: the file's at first, then the last ones put. */
export class SettingsInUse {
  #record: ObserverSettings;
  /** Whether there is an archive is the observer's own to say. */
  #ownArchive: () => ArchiveSettings = () => ({ archiveEnabled: false, archiveVaultId: "" });

  constructor(loaded: ObserverSettings) {
    this.#record = loaded;
  }

  /** From now on the record tells this of the archive, whatever is put. */
  tellArchive(own: () => ArchiveSettings): void {
    this.#ownArchive = own;
  }

  /** With the secrets in clear. */
  get record(): ObserverSettings {
    return { ...this.#record, ...this.#ownArchive() };
  }

  /** The record as it may be told to others. */
  get answer(): ObserverSettings {
    const { analysisApiToken, byokGoogleVertexApiKey } = this.#record;
    return {
      ...this.record,
      analysisApiToken: told(analysisApiToken),
      byokGoogleVertexApiKey: told(byokGoogleVertexApiKey),
    };
  }

  replace(given: ObserverSettings): void {
    this.#record = { ...given, ...this.#secrets(given) };
  }

  applySecrets(given: Secrets): void {
    this.#record = { ...this.#record, ...this.#secrets(given) };
  }

  #secrets(given: Secrets): Secrets {
    const current = this.#record;
    return {
      analysisApiToken: secretInUse(given.analysisApiToken, current.analysisApiToken),
      byokGoogleVertexApiKey: secretInUse(
        given.byokGoogleVertexApiKey,
        current.byokGoogleVertexApiKey,
      ),
    };
  }
}
