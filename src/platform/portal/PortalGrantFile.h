#pragma once

#include <QList>
#include <QString>
#include <QStringList>

namespace ostrel {

/// What the desktop has granted, kept for later runs in a file of the user's alone. Any thread; blocks on the disk.
///
/// The desktop's token opens one session, without a question, and each session brings the next token. It is good for
/// the monitors that there were when the user was asked: with others the desktop asks again, or shares only those of
/// then. So there is one for each set of monitors that the desktop tells of. A desktop that gives no token asks its
/// question at every session; that it was answered with yes is kept all the same.
class PortalGrantFile
{
public:
    struct Grant {
        QStringList monitors; ///< that it was given for, in order; empty where nobody told
        QString restoreToken; ///< empty where the desktop gives none
    };
    /// Those that were used last stay: people have a desk at home and one at work, not hundreds.
    static constexpr qsizetype mostGrants = 8;

    /// @param path empty means the file in the state folder, as it is at each use
    explicit PortalGrantFile(QString path);

    /// Nothing was granted where there is no file, or one that can't be understood.
    bool isGranted() const { return !read().isEmpty(); }
    /// What to open a session with while these monitors are there. Where nobody tells monitors, or did so when
    /// something was granted, it is the newest that may be good.
    Grant grantFor(const QStringList &monitors) const;
    /// The newest of which all monitors are there. Where there is none, the newest of all, for no monitors in
    /// particular: the desktop may ask then, and the user says which.
    Grant grantWithin(const QStringList &monitors) const;
    /// Whether there is a token that was given for just these monitors.
    bool hasTokenForJust(const QStringList &monitors) const;
    /// Takes the place of what was kept for these monitors. What can't be kept is logged: the desktop asks again
    /// another time.
    /// @param usedToken the one that has opened the session; it opens no other
    void keep(const Grant &grant, const QString &usedToken) const;
    void drop() const;

private:
    QList<Grant> read() const; ///< the newest first
    QString path() const;

    const QString m_path;
};

} // namespace ostrel
