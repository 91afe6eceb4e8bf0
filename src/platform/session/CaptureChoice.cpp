#include "platform/session/CaptureChoice.h"

#include "base/Log.h"

namespace ostrel {

WaylandCapture readWaylandCapture(const QProcessEnvironment &environment)
{
    const QString choice = environment.value(QStringLiteral("OSTREL_CAPTURE"));
    if (choice == QLatin1String("portal"))
        return WaylandCapture::Portal;
    if (!choice.isEmpty())
        qCWarning(logPlatform, "OSTREL_CAPTURE is \"%s\" and has no effect: it can only be \"portal\"",
                  qUtf8Printable(choice));
    return WaylandCapture::AsOffered;
}

} // namespace ostrel
