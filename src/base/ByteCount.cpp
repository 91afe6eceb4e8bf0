#include "base/ByteCount.h"

#include <QLocale>

#include <array>
#include <cmath>

namespace ostrel {

namespace {

struct Unit {
    double bytes;
    const char *name;
    int decimals;
};

constexpr std::array<Unit, 6> units{
    {{1e3, "KB", 0}, {1e6, "MB", 1}, {1e9, "GB", 2}, {1e12, "TB", 2}, {1e15, "PB", 2}, {1e18, "EB", 2}}};

double rounded(double value, int decimals)
{
    const double steps = std::pow(10.0, decimals);
    return std::round(value * steps) / steps;
}

} // namespace

QString byteCountText(qint64 bytes)
{
    const double exact = std::abs(static_cast<double>(bytes));
    if (exact < units.front().bytes)
        return bytes == 1 ? QStringLiteral("1 byte") : QStringLiteral("%1 bytes").arg(bytes);
    size_t chosen = 0;
    double number = 0;
    for (;; ++chosen) {
        number = rounded(exact / units[chosen].bytes, units[chosen].decimals);
        // What rounds up to a thousand of one unit is one of the next.
        if (number < 1000 || chosen + 1 == units.size())
            break;
    }
    const QString text = QString::number(bytes < 0 ? -number : number, 'g', QLocale::FloatingPointShortest);
    return QStringLiteral("%1 %2").arg(text, QLatin1String(units[chosen].name));
}

} // namespace ostrel
