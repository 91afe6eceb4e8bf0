#pragma once

#include "observer/ObserverSettings.h"

#include <QString>

namespace ostrel {

/// Values of the settings that say where pictures are analysed.
namespace InferenceProvider {
inline const QString ostrel = QStringLiteral("ostrel");
/// The user's own account there ("bring your own key").
inline const QString googleVertex = QStringLiteral("google_vertex_ai");
} // namespace InferenceProvider

/// Values of the settings that say how that account is proved.
namespace VertexAuthMode {
inline const QString apiKey = QStringLiteral("api_key");
inline const QString serviceAccount = QStringLiteral("service_account");
} // namespace VertexAuthMode

inline bool usesGoogleVertex(const ObserverSettings &settings)
{
    return settings.inferenceProvider == InferenceProvider::googleVertex;
}

} // namespace ostrel
