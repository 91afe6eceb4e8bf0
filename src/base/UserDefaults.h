#pragma once

#include <QString>
#include <QStringList>
#include <optional>

namespace ostrel {

/// Small choices of the user, kept between launches. Main thread only.
class UserDefaults
{
public:
    virtual ~UserDefaults() = default;

    /// The list stored under a key; nothing when there is none.
    virtual std::optional<QStringList> stringList(const QString &key) const = 0;
    virtual void setStringList(const QString &key, const QStringList &value) = 0;
};

} // namespace ostrel
