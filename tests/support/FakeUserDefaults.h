#pragma once

#include "base/UserDefaults.h"

#include <map>

namespace ostrel {

/// User defaults that last as long as the object does: a second user of it is a later launch.
class FakeUserDefaults final : public UserDefaults
{
public:
    std::map<QString, QStringList> lists;

    std::optional<QStringList> stringList(const QString &key) const override
    {
        const auto found = lists.find(key);
        return found == lists.end() ? std::nullopt : std::optional(found->second);
    }
    void setStringList(const QString &key, const QStringList &value) override { lists[key] = value; }
};

} // namespace ostrel
