#include "platform/x11/facts/X11ScreenFacts.h"

#include "capture/DisplayList.h"
#include "platform/x11/base/X11Connection.h"
#include "platform/x11/capture/X11DisplaySource.h"
#include "platform/x11/facts/X11Extensions.h"
#include "platform/x11/facts/X11WindowManager.h"

namespace ostrel {

namespace {

/// Takes a picture as a recording would, and throws it away.
std::optional<Error> tryPicture(DisplaySource &source, const CapturableDisplay &display)
{
    const auto screenshotter = source.makeScreenshotter({.displayId = display.displayId, .mode = {}},
                                                        {.width = display.width, .height = display.height});
    if (!screenshotter)
        return screenshotter.error();
    const auto picture = (*screenshotter)->capture();
    return picture ? std::nullopt : std::optional(picture.error());
}

Result<QList<DisplayFacts>> readDisplays(const QByteArray &display)
{
    X11DisplaySource source(display);
    const auto content = source.shareableContent();
    if (!content)
        return std::unexpected(content.error());
    QList<DisplayFacts> displays;
    for (const CapturableDisplay &each : orderedDisplays(content->displays, content->mainDisplayId))
        displays.append({.width = each.width, .height = each.height, .pictureFault = tryPicture(source, each)});
    return displays;
}

} // namespace

Result<ScreenFacts> readX11ScreenFacts(const QByteArray &display)
{
    auto opened = X11Connection::open(display);
    if (!opened)
        return std::unexpected(opened.error());
    const std::shared_ptr<X11Connection> connection = *std::move(opened);
    auto displays = readDisplays(display);
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
