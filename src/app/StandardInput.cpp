#include "app/StandardInput.h"

#include "app/CommandLine.h"
#include "base/Fault.h"
#include "base/Text.h"

#include <QStringDecoder>

#include <cerrno>

#include <termios.h>
#include <unistd.h>

namespace ostrel {

namespace {

/// Keeps the terminal from showing what is typed.
class HiddenTyping
{
public:
    HiddenTyping()
    {
        m_wasShown = ::tcgetattr(STDIN_FILENO, &m_before) == 0;
        termios hidden = m_before;
        hidden.c_lflag &= ~tcflag_t(ECHO);
        if (m_wasShown)
            ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &hidden);
    }
    HiddenTyping(const HiddenTyping &) = delete;
    HiddenTyping &operator=(const HiddenTyping &) = delete;
    ~HiddenTyping()
    {
        if (!m_wasShown)
            return;
        ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &m_before);
        printMessage(QStringLiteral("\n")); // the one that was typed was hidden too
    }

private:
    termios m_before{};
    bool m_wasShown = false;
};

enum class Until { End, LineBreak };

Error inputError(const QString &words)
{
    return {.domain = QStringLiteral("TamskOstrel.StandardInput"), .code = 1, .localizedDescription = words};
}

Result<QByteArray> readBytes(Until until, qsizetype pieceSize = 4096)
{
    QByteArray bytes;
    while (bytes.size() <= longestInput) {
        QByteArray piece(pieceSize, Qt::Uninitialized);
        const ssize_t length = ::read(STDIN_FILENO, piece.data(), size_t(piece.size()));
        if (length < 0 && errno == EINTR)
            continue;
        if (length < 0)
            return std::unexpected(fileError(errno, QStringLiteral("standard input")));
        bytes.append(piece.constData(), length);
        if (length == 0 || (until == Until::LineBreak && bytes.contains('\n')))
            return bytes;
    }
    return std::unexpected(inputError(
        QStringLiteral("Standard input holds more than the %1 bytes that a value may have.").arg(longestInput)));
}

Result<QByteArray> askAtTerminal(const QString &what, InputEcho echo)
{
    if (echo == InputEcho::Shown) {
        printMessage(QStringLiteral("Type %1. Ctrl+D on a line of its own ends it.\n").arg(what));
        return readBytes(Until::End);
    }
    printMessage(QStringLiteral("Type or paste %1, which is not shown, and press Enter: ").arg(what));
    const HiddenTyping hidden;
    return readBytes(Until::LineBreak);
}

Result<QString> decoded(const QByteArray &bytes)
{
    QStringDecoder decode(QStringDecoder::Utf8);
    QString text = decode(bytes);
    if (decode.hasError())
        return std::unexpected(inputError(QStringLiteral("Standard input holds no text in UTF-8.")));
    while (!text.isEmpty() && isNewline(text.back()))
        text.chop(1);
    return text;
}

} // namespace

Result<QString> readStandardInput(const QString &what, InputEcho echo)
{
    const auto bytes = ::isatty(STDIN_FILENO) == 1 ? askAtTerminal(what, echo) : readBytes(Until::End);
    if (!bytes)
        return std::unexpected(bytes.error());
    return decoded(*bytes);
}

Result<QString> readStandardInputLine()
{
    // A byte at a time: what follows the line belongs to whoever reads next.
    const auto bytes = readBytes(Until::LineBreak, 1);
    if (!bytes)
        return std::unexpected(bytes.error());
    if (bytes->isEmpty())
        return std::unexpected(inputError(QStringLiteral("Standard input has ended.")));
    return decoded(*bytes);
}

Result<QString> readStandardInputSecretLine(const QString &what)
{
    return ::isatty(STDIN_FILENO) == 1 ? readStandardInput(what, InputEcho::Hidden) : readStandardInputLine();
}

} // namespace ostrel
