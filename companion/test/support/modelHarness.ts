import { chatProtocol } from "../../src/providers/chat.ts";
import { ModelAnalyst, type ModelAnalystDependencies } from "../../src/providers/modelAnalyst.ts";
import { UsageLedger } from "../../src/providers/usage.ts";
import { readAnalysisLimits } from "../../src/settings/ownSettings.ts";
import { SettingsInUse } from "../../src/settings/settingsInUse.ts";
import { realDisk } from "../../src/spool/disk.ts";
import { SpoolLayout } from "../../src/spool/layout.ts";
import { defaultSettings, type ObserverSettings } from "../../src/wire/records.ts";
import { ManualClock } from "./manualClock.ts";
import { type HarnessOptions, ObserverHarness, observerFolder } from "./observerHarness.ts";
import { temporaryHome } from "./temporaryHome.ts";

export type ModelHarnessOptions = HarnessOptions &
  Partial<Pick<ModelAnalystDependencies, "protocolOf">>;

/** An observer that asks models over real sockets; the clock stands still. */
export function openModelHarness(options: ModelHarnessOptions): Promise<ObserverHarness> {
  const home = options.home ?? temporaryHome();
  const clock = options.clock ?? new ManualClock();
  const settings = new SettingsInUse({ ...defaultSettings, ...options.settings });
  const layout = new SpoolLayout(observerFolder(home));
  const analyst = new ModelAnalyst({
    clock,
    settings,
    layout,
    home,
    usage: new UsageLedger(realDisk, layout.usageFile, clock),
    limits: () => readAnalysisLimits(layout.ownSettingsFile),
    protocolOf:
      options.protocolOf ??
      ((provider) => {
        if (provider.kind !== "chat") throw new Error("nobody expected Vertex AI");
        return chatProtocol(provider);
      }),
  });
  return ObserverHarness.open({ ...options, home, clock, analyst, settingsInUse: settings });
}

/** Settings that name a server of the chat protocol. */
export function chatSettings(
  origin: string,
  fields: Partial<ObserverSettings> = {},
): Partial<ObserverSettings> {
  return { analysisServerUrl: origin, model: "eyes", ...fields };
}
