#pragma once

#include <QString>

#include <optional>

namespace ostrel {

/// What the desktop has granted, kept for later runs in a file of the user's alone. Any thread; blocks on the disk.
///
/// The desktop's token opens one session, without a question, and each session brings the next token. A desktop that
/// gives none asks its question at every session; that it was answered with yes is kept all the same.
class PortalGrantFile
{
public:
    struct Grant {
        QString restoreToken; ///< empty where the desktop gives none
    };

    /// @param path empty means the file in the state folder, as it is at each use
    explicit PortalGrantFile(QString path);

    /// Nothing was granted where there is no file, or one that can't be understood.
    std::optional<Grant> read() const;
    /// Takes the place of what was there. What can't be kept is logged: the desktop asks again another time.
    void keep(const Grant &grant) const;
    void drop() const;

private:
    QString path() const;

    const QString m_path;
};

} // namespace ostrel
