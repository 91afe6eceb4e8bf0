#pragma once

#include <QString>

namespace ostrel {

/// A number of bytes as file managers tell it, in powers of 1000: "1 byte", "999 bytes", "12 KB", "12.3 MB", "1.25 GB".
/// Kilobytes are whole, megabytes have one decimal, what is larger has two; zeros at the end are left out.
QString byteCountText(qint64 bytes);

} // namespace ostrel
