#include "platform/x11/facts/X11ScreenFacts.h"

#include "app/doctor/TryDisplays.h"
#include "platform/x11/base/X11Connection.h"
#include "platform/x11/capture/X11DisplaySource.h"
#include "platform/x11/facts/X11Extensions.h"
#include "platform/x11/facts/X11WindowManager.h"

namespace ostrel {

Result<ScreenFacts> readX11ScreenFacts(const QByteArray &display)
{
    auto opened = X11Connection::open(display);
    if (!opened)
        return std::unexpected(opened.error());
    const std::shared_ptr<X11Connection> connection = *std::move(opened);
    X11DisplaySource source(display);
    auto displays = tryDisplays(source);
    if (!displays)
        return std::unexpected(displays.error());
    return ScreenFacts{.displays = *std::move(displays),
                       .sharedMemory = trySharedMemory(connection),
                       .changeTracking = tryDamage(*connection),
                       .pointer = tryCursor(*connection),
                       .monitors = tryMonitors(*connection),
                       .windowManager = readWindowManager(*connection)};
}

} // namespace ostrel
