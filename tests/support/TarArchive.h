#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

#include <archive.h>
#include <archive_entry.h>

#include <sys/stat.h>

namespace ostrel {

/// An entry of an archive, however malicious.
struct TarEntry {
    QByteArray name;
    QByteArray content = {};
    mode_t mode = 0644;
    unsigned type = AE_IFREG;
    QByteArray symbolicLink = {};
    QByteArray hardLink = {};
};

/// The bytes of an archive, compressed by gzip. Targets that use it link libarchive.
inline QByteArray tarArchive(const QList<TarEntry> &entries)
{
    QByteArray bytes(4 * 1024 * 1024, '\0');
    size_t used = 0;
    ::archive *writer = ::archive_write_new();
    ::archive_write_set_format_pax_restricted(writer);
    ::archive_write_add_filter_gzip(writer);
    ::archive_write_open_memory(writer, bytes.data(), size_t(bytes.size()), &used);
    for (const TarEntry &entry : entries) {
        ::archive_entry *header = ::archive_entry_new();
        ::archive_entry_set_pathname(header, entry.name.constData());
        ::archive_entry_set_filetype(header, entry.type);
        ::archive_entry_set_perm(header, entry.mode);
        ::archive_entry_set_size(header, entry.content.size());
        if (!entry.symbolicLink.isEmpty())
            ::archive_entry_set_symlink(header, entry.symbolicLink.constData());
        if (!entry.hardLink.isEmpty())
            ::archive_entry_set_hardlink(header, entry.hardLink.constData());
        ::archive_write_header(writer, header);
        ::archive_write_data(writer, entry.content.constData(), size_t(entry.content.size()));
        ::archive_entry_free(header);
    }
    ::archive_write_free(writer);
    bytes.truncate(qsizetype(used));
    return bytes;
}

/// What `Info.json` says in a bundle of that version.
inline QByteArray bundleInfoJson(const QString &version)
{
    return "{\"CFBundleShortVersionString\": \"" + version.toUtf8() + "\"}";
}

/// A program that prints its version, packed as versions are.
inline QByteArray programArchive(const QString &version)
{
    return tarArchive({{.name = "./", .mode = 0755, .type = AE_IFDIR},
                       {.name = "./bin/", .mode = 0755, .type = AE_IFDIR},
                       {.name = "./bin/ostrel", .content = "#!/bin/sh\necho " + version.toUtf8() + '\n', .mode = 0755},
                       {.name = "./share/ostrel/Info.json", .content = bundleInfoJson(version)}});
}

} // namespace ostrel
