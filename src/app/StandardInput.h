#pragma once

#include "base/Error.h"

#include <QString>

namespace ostrel {

/// Whether a person who types sees it.
enum class InputEcho { Shown, Hidden };

/// The longest value that is taken from standard input or a command line, in bytes of UTF-8. The observer takes
/// messages of 1 MiB.
constexpr qsizetype longestInput = 65'536;

/// Reads a value from standard input, less the line breaks at its end. A person at a terminal is asked for it: for all
/// until Ctrl+D, or for one hidden line.
/// @param what  names the value in the question
/// @return an error when it can't be read, is too long, or is not UTF-8
Result<QString> readStandardInput(const QString &what, InputEcho echo);

/// Reads one line from standard input, without its line break, and nothing behind it. Whoever asks for it has put the
/// question already.
/// @return an error as above, also where the input has ended
Result<QString> readStandardInputLine();

/// The same for a secret: a person at a terminal is asked for it, and doesn't see what is typed.
/// @param what names the value in the question
Result<QString> readStandardInputSecretLine(const QString &what);

} // namespace ostrel
