#include "update/ArchiveUnpacker.h"

#include "base/Fault.h"
#include "base/Text.h"
#include "update/UpdateFault.h"

#include <QDir>
#include <QFile>
#include <QSet>
#include <QStringList>

#include <archive.h>
#include <archive_entry.h>

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace ostrel {

namespace {

struct CloseArchive {
    void operator()(::archive *reader) const { ::archive_read_free(reader); }
};
using Reader = std::unique_ptr<::archive, CloseArchive>;

class Descriptor
{
public:
    explicit Descriptor(int number) : m_number(number) {}
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    ~Descriptor()
    {
        if (m_number >= 0)
            ::close(m_number);
    }
    int number() const { return m_number; }

private:
    const int m_number;
};

Error unsafe(const QString &name, const char *what)
{
    return updateError(UpdateFault::ArchiveUnsafe,
                       QStringLiteral("%1: %2").arg(harmless(name), QString::fromLatin1(what)));
}

Error notUnderstood(::archive *reader)
{
    const char *words = ::archive_error_string(reader);
    return updateError(UpdateFault::ArchiveNotUnderstood,
                       words ? harmless(QString::fromLocal8Bit(words)) : QStringLiteral("it is damaged"));
}

/// The parts of an entry's name. "./" in front, as tar writes it, and "/" at a folder's end don't count.
QStringList partsOf(const QString &name)
{
    QStringList parts = name.split(QLatin1Char('/'));
    if (parts.size() > 1 && parts.last().isEmpty())
        parts.removeLast();
    if (parts.first() == QLatin1String("."))
        parts.removeFirst();
    return parts;
}

/// Far longer than any name of ours, and short enough that folders in folders come to an end.
constexpr qsizetype longestName = 512;

bool isPlain(const QString &part)
{
    if (part.isEmpty() || part == QLatin1String(".") || part == QLatin1String(".."))
        return false;
    return std::ranges::all_of(part, [](QChar c) { return c.unicode() > 0x20 && c.unicode() < 0x7f && c != u'\\'; });
}

/// Unpacks one archive.
class Unpacking
{
public:
    Unpacking(QString directory, const ArchiveLimits &limits) : m_directory(std::move(directory)), m_limits(limits) {}

    Result<> take(::archive *reader, ::archive_entry *entry);
    /// Names are on the disk only when their folders are.
    Result<> syncFolders() const;

private:
    Result<> count(const QString &name);
    Result<QString> safeName(::archive_entry *entry) const;
    Result<> makeFolders(const QString &name);
    Result<> makeFile(const QString &name, bool executable, ::archive *reader);
    Result<> copyData(::archive *reader, int file, const QString &path);
    QString pathOf(const QString &name) const { return QDir::cleanPath(m_directory + QLatin1Char('/') + name); }

    const QString m_directory;
    const ArchiveLimits m_limits;
    QSet<QString> m_folders{QString()};
    qint64 m_bytes = 0;
    int m_entries = 0;
};

Result<QString> Unpacking::safeName(::archive_entry *entry) const
{
    const char *raw = ::archive_entry_pathname(entry);
    const QString name = raw ? QString::fromUtf8(raw) : QString();
    if (::archive_entry_hardlink(entry) || ::archive_entry_symlink(entry))
        return std::unexpected(unsafe(name, "a link"));
    const auto type = ::archive_entry_filetype(entry);
    if (type != AE_IFREG && type != AE_IFDIR)
        return std::unexpected(unsafe(name, "neither a file nor a folder"));
    if ((::archive_entry_perm(entry) & (S_ISUID | S_ISGID | S_ISVTX)) != 0)
        return std::unexpected(unsafe(name, "set-id bits"));
    if (name.size() > longestName)
        return std::unexpected(unsafe(name, "its name is too long"));
    const QStringList parts = partsOf(name);
    const bool isRoot = parts.isEmpty() && type == AE_IFDIR;
    if (!isRoot && (parts.isEmpty() || !std::ranges::all_of(parts, isPlain)))
        return std::unexpected(unsafe(name, "its name leads elsewhere or is no plain one"));
    return parts.join(QLatin1Char('/'));
}

Result<> Unpacking::take(::archive *reader, ::archive_entry *entry)
{
    const auto name = safeName(entry);
    if (!name)
        return std::unexpected(name.error());
    if (const auto counted = count(*name); !counted)
        return counted;
    if (::archive_entry_filetype(entry) == AE_IFDIR)
        return makeFolders(*name);
    if (const auto made = makeFolders(name->section(QLatin1Char('/'), 0, -2)); !made)
        return made;
    return makeFile(*name, (::archive_entry_perm(entry) & S_IXUSR) != 0, reader);
}

Result<> Unpacking::count(const QString &name)
{
    if (++m_entries > m_limits.entries)
        return std::unexpected(unsafe(name, "too many files"));
    return {};
}

Result<> Unpacking::makeFolders(const QString &name)
{
    if (m_folders.contains(name))
        return {};
    if (const auto made = makeFolders(name.section(QLatin1Char('/'), 0, -2)); !made)
        return made;
    // Also those that no entry names.
    if (const auto counted = count(name); !counted)
        return counted;
    const QByteArray path = QFile::encodeName(pathOf(name));
    // The umask may take bits away, and the program must be able to read what it gets.
    if (::mkdir(path.constData(), 0755) != 0 || ::chmod(path.constData(), 0755) != 0)
        return std::unexpected(errno == EEXIST ? unsafe(name, "its name stands twice")
                                               : fileError(errno, pathOf(name)));
    m_folders.insert(name);
    return {};
}

Result<> Unpacking::makeFile(const QString &name, bool executable, ::archive *reader)
{
    const QString path = pathOf(name);
    const Descriptor file(
        ::open(QFile::encodeName(path).constData(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (file.number() < 0)
        return std::unexpected(errno == EEXIST ? unsafe(name, "its name stands twice") : fileError(errno, path));
    if (const auto copied = copyData(reader, file.number(), path); !copied)
        return copied;
    if (::fchmod(file.number(), executable ? 0755 : 0644) != 0 || ::fsync(file.number()) != 0)
        return std::unexpected(fileError(errno, path));
    return {};
}

Result<> Unpacking::copyData(::archive *reader, int file, const QString &path)
{
    std::array<char, 65'536> piece{};
    while (true) {
        const auto length = ::archive_read_data(reader, piece.data(), piece.size());
        if (length < 0)
            return std::unexpected(notUnderstood(reader));
        if (length == 0)
            return {};
        m_bytes += length;
        if (m_bytes > m_limits.bytes)
            return std::unexpected(unsafe(path, "too much in all"));
        errno = 0;
        // A write that stops half-way tells no reason: there was no more room.
        if (::write(file, piece.data(), size_t(length)) != length)
            return std::unexpected(fileError(errno != 0 ? errno : ENOSPC, path));
    }
}

Result<> Unpacking::syncFolders() const
{
    for (const QString &name : m_folders) {
        const QString path = pathOf(name);
        const Descriptor folder(::open(QFile::encodeName(path).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        if (folder.number() < 0 || ::fsync(folder.number()) != 0)
            return std::unexpected(fileError(errno, path));
    }
    return {};
}

} // namespace

Result<> unpackArchive(const QString &archive, const QString &directory, const ArchiveLimits &limits)
{
    const Reader reader(::archive_read_new());
    // As little of the library as will do.
    ::archive_read_support_format_tar(reader.get());
    ::archive_read_support_filter_gzip(reader.get());
    ::archive_read_support_filter_xz(reader.get());
    constexpr size_t blockSize = 65'536;
    if (::archive_read_open_filename(reader.get(), QFile::encodeName(archive).constData(), blockSize) != ARCHIVE_OK)
        return std::unexpected(notUnderstood(reader.get()));
    Unpacking unpacking(directory, limits);
    while (true) {
        ::archive_entry *entry = nullptr;
        const int outcome = ::archive_read_next_header(reader.get(), &entry);
        if (outcome == ARCHIVE_EOF)
            return unpacking.syncFolders();
        // A warning is about a name or a time that the library has guessed at.
        if (outcome != ARCHIVE_OK)
            return std::unexpected(notUnderstood(reader.get()));
        if (auto taken = unpacking.take(reader.get(), entry); !taken)
            return taken;
    }
}

} // namespace ostrel
