#pragma once

#include "base/Error.h"

#include <QString>

#include <sys/types.h>

namespace ostrel {

/// Who would answer a connection to a port of 127.0.0.1.
enum class PortOwner { Nobody, OurUser, AnotherUser };

/// Looks the listening socket up in the kernel's tables. One bound to 127.0.0.1 decides; else those bound to every
/// address do. Listening sockets stand first in the tables, so finding one takes less than a millisecond; finding none
/// may take tens of them. Any thread; not the main one.
/// @param ourUser who "we" are
/// @param procNet the folder of the tables, `tcp` and `tcp6`
/// @return the file's error when `tcp` can't be read; a missing `tcp6` means a system without IPv6
Result<PortOwner> portOwner(quint16 port, uid_t ourUser, const QString &procNet = QStringLiteral("/proc/net"));

} // namespace ostrel
