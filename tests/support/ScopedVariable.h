#pragma once

#include <QByteArray>
#include <QtGlobal>

#include <optional>

namespace ostrel {

/// An environment variable of this process that has another value, or none, until the end of the scope.
class ScopedVariable
{
public:
    ScopedVariable(const char *name, const std::optional<QByteArray> &value) : m_name(name)
    {
        if (qEnvironmentVariableIsSet(name))
            m_outer = qgetenv(name);
        set(value);
    }
    ScopedVariable(const ScopedVariable &) = delete;
    ScopedVariable &operator=(const ScopedVariable &) = delete;
    ~ScopedVariable() { set(m_outer); }

private:
    void set(const std::optional<QByteArray> &value) const
    {
        if (value)
            qputenv(m_name.constData(), *value);
        else
            qunsetenv(m_name.constData());
    }

    QByteArray m_name;
    std::optional<QByteArray> m_outer;
};

} // namespace ostrel
