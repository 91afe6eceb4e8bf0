#include "app/doctor/TryDisplays.h"

#include "capture/DisplayList.h"
#include "capture/DisplaySource.h"

namespace ostrel {

namespace {

std::optional<Error> tryPicture(DisplaySource &source, const CapturableDisplay &display)
{
    const auto screenshotter = source.makeScreenshotter({.displayId = display.displayId, .mode = {}},
                                                        {.width = display.width, .height = display.height});
    if (!screenshotter)
        return screenshotter.error();
    const auto picture = (*screenshotter)->capture();
    return picture ? std::nullopt : std::optional(picture.error());
}

} // namespace

Result<QList<DisplayFacts>> tryDisplays(DisplaySource &source)
{
    const auto content = source.shareableContent();
    if (!content)
        return std::unexpected(content.error());
    QList<DisplayFacts> displays;
    for (const CapturableDisplay &each : orderedDisplays(content->displays, content->mainDisplayId))
        displays.append({.width = each.width, .height = each.height, .pictureFault = tryPicture(source, each)});
    return displays;
}

} // namespace ostrel
