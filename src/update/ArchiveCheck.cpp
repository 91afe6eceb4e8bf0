#include "update/ArchiveCheck.h"

#include "base/Fault.h"
#include "update/UpdateFault.h"

#include <QCryptographicHash>
#include <QFile>

#include <cerrno>

namespace ostrel {

Result<> checkArchive(const QString &path, const Release &release, const UpdateKey &key)
{
    const QByteArray message =
        signedArchiveMessage(release.version.text(), release.platform, release.size, release.sha256);
    if (!key.hasSigned(message, release.signature))
        return std::unexpected(updateError(UpdateFault::ArchiveSignatureWrong));
    QFile file(path);
    errno = 0;
    if (!file.open(QIODevice::ReadOnly))
        return std::unexpected(fileError(errno != 0 ? errno : EIO, path));
    if (file.size() != release.size)
        return std::unexpected(updateError(UpdateFault::ArchiveSizeWrong));
    QCryptographicHash hash(QCryptographicHash::Sha256);
    if (!hash.addData(&file))
        return std::unexpected(fileError(EIO, path));
    if (hash.result().toHex() != release.sha256)
        return std::unexpected(updateError(UpdateFault::ArchiveHashWrong));
    return {};
}

} // namespace ostrel
