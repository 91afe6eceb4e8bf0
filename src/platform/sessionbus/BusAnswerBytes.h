#pragma once

#include "platform/sessionbus/GlibHandles.h"

#include <QByteArray>

#include <optional>

namespace ostrel {

/// The answer to a call, as it travels. Asked again, most questions have the same answer: whoever keeps the last one
/// sees that by a comparison, and needs not read it, which allocates memory for each field and value.
struct BusAnswerBytes {
    quint32 call = 0;   ///< the number of the call that it answers
    QByteArray content; ///< all of it but for the numbers, which are never the same

    /// @param message a whole one
    /// @return absent for one that is no answer, or of another byte order than this machine's
    static std::optional<BusAnswerBytes> in(QByteArray message);
    /// With numbers that mean nothing. @return null for nonsense
    GlibHandle<GDBusMessage> message() const;
};

} // namespace ostrel
