#pragma once

#include "CommandFixture.h"

#include "base/Files.h"
#include "observer/SettingsStore.h"
#include "support/Printers.h"

namespace ostrel {

inline QString utf8(const char *text)
{
    return QString::fromUtf8(text);
}

inline QStringList setWords(const QString &key, const QString &value)
{
    return {utf8("settings"), utf8("set"), key, value};
}

/// `ostrel settings set` in this process.
class SettingsSet : public CommandFixture
{
protected:
    CommandResult set(const char *key, const char *value) { return run(setWords(utf8(key), utf8(value))); }
    CommandResult setFromInput(const char *key, const QByteArray &input)
    {
        return run(setWords(utf8(key), utf8("-")), input);
    }
    static void writeFile(const QByteArray &json)
    {
        ASSERT_TRUE(writeFileAtomically(SettingsStore::primaryFile(), json).has_value());
    }
    static QByteArray file() { return readFile(SettingsStore::primaryFile()).value_or("no file"); }
    static ObserverSettings saved() { return ObserverSettings::fromJson(file()).value(); }
    std::optional<QString> vertexKey() { return m_secrets.read(vertexApiKeyService, secretAccount); }
};

} // namespace ostrel
