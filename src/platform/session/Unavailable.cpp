#include "platform/session/Unavailable.h"

namespace ostrel {

Error UnavailableDisplaySource::unavailable() const
{
    return {.domain = QStringLiteral("TamskOstrel.Session"), .code = 1, .localizedDescription = m_reason};
}

Result<ShareableContent> UnavailableDisplaySource::shareableContent()
{
    return std::unexpected(unavailable());
}

Result<std::unique_ptr<DisplayScreenshotter>>
UnavailableDisplaySource::makeScreenshotter(const DisplayContentFilter & /*filter*/,
                                            const DisplayCaptureConfiguration & /*configuration*/)
{
    return std::unexpected(unavailable());
}

QList<UnavailableFact> UnavailableForeground::unavailableFacts()
{
    return {{.fact = QStringLiteral("foreground application"), .reason = m_reason},
            {.fact = QStringLiteral("window title"), .reason = m_reason},
            {.fact = QStringLiteral("window position"), .reason = m_reason},
            {.fact = QStringLiteral("pointer position"), .reason = m_reason}};
}

} // namespace ostrel
