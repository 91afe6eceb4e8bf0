#pragma once

#include "base/Error.h"

#include <QString>

namespace ostrel {

/// What can go wrong with updates and has no words in `base/Fault.h`. Each sentence says what to do, where there is
/// anything to be done.
enum class UpdateFault {
    NoFeed,
    NoVersion,
    NoPublicKey,
    AddressRefused,  ///< names the address
    RedirectRefused, ///< names the address that it leads to
    TooManyRedirects,
    ServerRefused, ///< names the HTTP status
    FeedTooLong,
    FeedUnsigned,
    FeedSignatureWrong,
    FeedNotUnderstood, ///< names what is wrong
    FeedReplayed,
    FeedExpired,         ///< names the day
    DownloadInterrupted, ///< names the version
    ArchiveSizeWrong,
    ArchiveHashWrong,
    ArchiveSignatureWrong,
    ArchiveNotUnderstood, ///< names what is wrong
    ArchiveUnsafe,        ///< names the entry and what is wrong with it
    ArchiveIncomplete,    ///< names what is missing
    ArchiveDoesNotStart,  ///< names what it complained of; may be empty
    InstallationBusy,
    NotOurInstallation,
    NoPreviousVersion,
    NewerThere, ///< names the version
};

/// The domain of every error that `updateError` makes; its code is the `UpdateFault`.
QString updateFaultDomain();

Error updateError(UpdateFault fault, const QString &detail = {});

/// True when the error is of this table and of that kind.
bool isUpdateFault(const Error &error, UpdateFault fault);

} // namespace ostrel
