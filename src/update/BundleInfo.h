#pragma once

#include <QString>

#include <optional>

namespace ostrel {

/// What the bundle says about itself, in `<prefix>/share/ostrel/Info.json`. Keys that are missing, empty or not texts
/// are absent.
struct BundleInfo {
    QString prefix;                      ///< where the bundle lies, links resolved
    std::optional<QString> feedUrl;      ///< "SUFeedURL": without it there are no updates
    std::optional<QString> publicKey;    ///< "SUPublicEDKey": Ed25519, 32 bytes in base64
    std::optional<QString> shortVersion; ///< "CFBundleShortVersionString"

    /// Reads the bundle of a prefix. A file that is missing or can't be understood says nothing. Blocks for a moment.
    static BundleInfo read(const QString &prefix);
    /// The bundle of the running program.
    static BundleInfo ofThisProgram();
};

} // namespace ostrel
