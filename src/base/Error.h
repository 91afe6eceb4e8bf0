#pragma once

#include <QString>
#include <expected>

namespace ostrel {

/// A failure as a value. Nothing throws across a folder.
struct Error {
    /// Which table `code` belongs to, as in "TamskOstrel.ScreenCapture".
    QString domain;
    int code = 0;
    /// A plain sentence, fit to be shown to the user as it stands.
    QString localizedDescription;

    bool operator==(const Error &) const = default;
};

template <class T = void>
using Result = std::expected<T, Error>;

} // namespace ostrel
