#pragma once

#include <QByteArray>
#include <QString>

namespace ostrel {

/// Decodes the X Window System's COMPOUND_TEXT, in which old programs still write titles that are not Latin-1: ISO
/// 2022 with Latin-1 to begin with, and UTF-8 passages. Passages in character sets that the system's iconv does not
/// have are left out.
QString decodeCompoundText(const QByteArray &bytes);

} // namespace ostrel
