#include "platform/session/BrowserDebugging.h"

#include "observer/PortOwner.h"

#include <unistd.h>

namespace ostrel {

DebuggingPorts makeDebuggingPorts()
{
    return DebuggingPorts({.sockets = [](quint16 port) { return ownSockets(port, ::geteuid()); },
                           .folders = UserFolders::ofThisUser(),
                           .user = ::geteuid()});
}

} // namespace ostrel
