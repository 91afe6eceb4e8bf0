#pragma once

#include "base/Error.h"

#include <QByteArray>
#include <QJsonObject>

namespace ostrel {

/// What the observer would ask a model next: "reason", "recipient", "instructions", "prompt", "request" and "frames",
/// as the observer documents them. Absent ones have no key.
struct RequestPreview {
    QJsonObject record;

    /// @return Fault::UndecodableAnswer where it is no object with a list of frames
    static Result<RequestPreview> fromJson(const QByteArray &json);
};

} // namespace ostrel
