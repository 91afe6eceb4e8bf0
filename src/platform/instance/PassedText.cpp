#include "platform/instance/PassedText.h"

#include "app/StandardInput.h"

#include <QByteArray>
#include <QStringDecoder>

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace ostrel {

namespace {

/// A word of the command line may be longer than a value from standard input, but no value has to be.
constexpr off_t longestText = 4 * longestInput;

} // namespace

PassedText::PassedText(const QString &text) : m_descriptor(::memfd_create("ostrel-value", MFD_CLOEXEC))
{
    const QByteArray bytes = text.toUtf8();
    if (m_descriptor >= 0 && ::write(m_descriptor, bytes.constData(), size_t(bytes.size())) == bytes.size())
        return;
    if (m_descriptor >= 0)
        ::close(m_descriptor);
    m_descriptor = -1;
}

PassedText::~PassedText()
{
    if (m_descriptor >= 0)
        ::close(m_descriptor);
}

std::optional<QString> PassedText::readFrom(int descriptor)
{
    struct stat info{};
    if (::fstat(descriptor, &info) != 0 || !S_ISREG(info.st_mode) || info.st_size > longestText)
        return std::nullopt;
    QByteArray bytes(info.st_size, Qt::Uninitialized);
    if (::pread(descriptor, bytes.data(), size_t(bytes.size()), 0) != bytes.size())
        return std::nullopt;
    QStringDecoder decode(QStringDecoder::Utf8);
    QString text = decode(bytes);
    return decode.hasError() ? std::nullopt : std::optional(std::move(text));
}

} // namespace ostrel
