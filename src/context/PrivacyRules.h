#pragma once

#include <QList>
#include <QRegularExpression>
#include <QString>
#include <QStringList>
#include <optional>

namespace ostrel {

/// What is known of a window, as far as the desktop tells.
struct WindowIdentity {
    std::optional<QString> bundleIdentifier; ///< the desktop-file id without ".desktop"
    QString windowClass;                     ///< both parts of WM_CLASS, a blank between them; the app id on Wayland
    QString title;
    std::optional<QString> pageAddress = {}; ///< of the web page that it shows
};

/// Which windows are nobody's business: they stay out of every picture, and their titles and pages out of every text.
/// A value; made from the built-in list (password managers, private browser windows) and the user's own. Comparing a
/// copy with what it was copied from costs next to nothing.
class PrivacyRules
{
public:
    /// Only what is built in.
    static PrivacyRules builtIn();

    bool excludes(const WindowIdentity &window) const;
    /// Excludes what either of the two excludes.
    PrivacyRules joinedWith(const PrivacyRules &other) const;

    /// Compared without case with the identifier. Not every desktop knows it, so they are also compared with the class,
    /// which is the identifier or its last part ("org.keepassxc.KeePassXC", "KeePassXC").
    QStringList desktopIds;
    QStringList windowClasses;        ///< compared without case with each part of the class
    QList<QRegularExpression> titles; ///< searched for in the title; made by `titlePattern`
    /// Hosts, or hosts with the beginning of a path ("example.org/private"), compared with the page's address without
    /// case but for the path. Subdomains of a host belong to it.
    QStringList sites = {};

    bool operator==(const PrivacyRules &) const = default;
};

/// A pattern for `PrivacyRules::titles`: how long it may search is limited. A title that it can't decide upon within
/// the limit counts as found.
QRegularExpression titlePattern(const QString &pattern);

} // namespace ostrel
