#pragma once

#include "observer/ObserverSettings.h"

#include <concepts>
#include <type_traits>

namespace ostrel {

/// Calls `visit(key, field)` for every field of the settings, in declaration order. Fields are of type QString, qint64,
/// double or bool, and const where the settings are.
template <class Settings, class Visitor>
    requires std::same_as<std::remove_const_t<Settings>, ObserverSettings>
void eachSettingsField(Settings &settings, Visitor &&visit)
{
    visit("inferenceProvider", settings.inferenceProvider);
    visit("analysisServerUrl", settings.analysisServerUrl);
    visit("analysisApiToken", settings.analysisApiToken);
    visit("byokGoogleVertexAuthMode", settings.byokGoogleVertexAuthMode);
    visit("byokGoogleVertexProjectId", settings.byokGoogleVertexProjectId);
    visit("byokGoogleVertexLocation", settings.byokGoogleVertexLocation);
    visit("byokGoogleVertexApiKey", settings.byokGoogleVertexApiKey);
    visit("byokGoogleVertexServiceAccountPath", settings.byokGoogleVertexServiceAccountPath);
    visit("outputDirectory", settings.outputDirectory);
    visit("rawInputDirectory", settings.rawInputDirectory);
    visit("instructions", settings.instructions);
    visit("chunkSizeMs", settings.chunkSizeMs);
    visit("chunkOverlapMs", settings.chunkOverlapMs);
    visit("frameFps", settings.frameFps);
    visit("mediaResolution", settings.mediaResolution);
    visit("model", settings.model);
    visit("thinkingLevel", settings.thinkingLevel);
    visit("maxOutputTokens", settings.maxOutputTokens);
    visit("journalTailSize", settings.journalTailSize);
    visit("saveRawInputs", settings.saveRawInputs);
    visit("archiveEnabled", settings.archiveEnabled);
    visit("archiveVaultId", settings.archiveVaultId);
    visit("localPort", settings.localPort);
}

} // namespace ostrel
