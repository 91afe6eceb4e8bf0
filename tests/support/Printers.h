#pragma once

#include "base/Error.h"

#include <QByteArray>
#include <QString>

#include <ostream>

/// What a failing expectation prints for our own and Qt's values. Include it in every test.
QT_BEGIN_NAMESPACE
inline void PrintTo(const QString &text, std::ostream *out)
{
    *out << '"' << text.toStdString() << '"';
}
inline void PrintTo(const QByteArray &bytes, std::ostream *out)
{
    *out << '"' << bytes.toStdString() << '"';
}
QT_END_NAMESPACE

namespace ostrel {
inline void PrintTo(const Error &error, std::ostream *out)
{
    *out << error.domain.toStdString() << ' ' << error.code << ": " << error.localizedDescription.toStdString();
}
} // namespace ostrel
