#pragma once

#include "base/Error.h"
#include "context/PrivacyRules.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <ctime>
#include <mutex>
#include <optional>
#include <sys/types.h>

namespace ostrel {

/// Rules as they stand in a file, and what of it can't be used.
struct PrivacyRulesText {
    PrivacyRules rules;
    /// A clause for each entry that is left aside, which names it and its list. Holds nothing that a terminal obeys.
    QStringList complaints;

    /// A key that is left out has the built-in list.
    /// @return Fault::UndecodableAnswer where it is no JSON object, or where a key holds anything but a list
    static Result<PrivacyRulesText> parse(const QByteArray &json);
};

/// The user's privacy rules, `~/.ostrel/privacy.json`, read again whenever the file has changed. Any thread; a question
/// costs one call of the file system while the file stays as it is.
///
/// Where there is no file the built-in rules hold. While it can't be used, the built-in rules and those that were read
/// last hold together: an error must not uncover anything. That is logged once for each state of the file.
class PrivacyRulesFile
{
public:
    explicit PrivacyRulesFile(QString path = primaryFile());

    static QString primaryFile();

    PrivacyRules current();

    /// The rules as the file has them now, for whoever wants to tell what is wrong with it. Logs nothing.
    /// @return nothing where there is no file; the error says why none of it can be used
    static std::optional<Result<PrivacyRulesText>> look(const QString &path = primaryFile());

    /// Writes the built-in rules, readable by the user alone, for the user to find and to change.
    /// @return an error only where there was no file and none could be written
    static Result<> makeIfMissing(const QString &path = primaryFile());

private:
    /// What tells one state of a file from another.
    struct Stamp {
        dev_t device = 0;
        ino_t inode = 0;
        off_t size = 0;
        timespec changed{};
        timespec statusChanged{};
        int error = 0; ///< why there is no more to say of it

        bool operator==(const Stamp &other) const;
    };
    Stamp readStamp() const;
    void read(const Stamp &stamp);

    const QString m_path;
    std::mutex m_mutex;
    std::optional<Stamp> m_stamp; ///< of the file that was read last
    PrivacyRules m_current;
    std::optional<PrivacyRules> m_lastGood;
};

} // namespace ostrel
