#include "app/ListedDisplays.h"

namespace ostrel {

Result<ShareableContent> listedDisplays(DisplaySource &source)
{
    if (!source.wouldAskUser())
        return source.shareableContent();
    constexpr int notGranted = 1;
    return std::unexpected(
        Error{.domain = QStringLiteral("TamskOstrel.Commands"),
              .code = notGranted,
              .localizedDescription =
                  QStringLiteral("The desktop has not been asked whether its screens may be seen, or keeps no answer. "
                                 "`ostrel permissions allow screenRecording` has it ask; so does a recording.")});
}

} // namespace ostrel
