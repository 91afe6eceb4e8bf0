#pragma once

#include "observer/PortOwner.h"

#include <QList>
#include <optional>

namespace ostrel {

/// Asks the kernel's socket diagnosis for the sockets that may answer connections to a port of 127.0.0.1: those bound
/// to that address and those bound to every address. It looks at listening sockets of this port alone, so it takes some
/// 50 microseconds however many connections there are. Any thread.
/// @return nothing where the kernel or a sandbox does not let us ask
std::optional<QList<ListeningSocket>> diagnosedSockets(quint16 port);

} // namespace ostrel
