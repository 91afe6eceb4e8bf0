#pragma once

#include "base/Error.h"
#include "capture/DisplaySource.h"

#include <QRect>

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace ostrel {

class X11ChangeTracker;
class X11Grabber;

/// What came of comparing a picture with the screen.
struct X11Audit {
    enum class Verdict {
        Agrees,  ///< the same, or different only where a change has been told meanwhile
        Unclear, ///< different, and the tracker can't say whether something has changed meanwhile
        Differs, ///< different where nothing has been told: a change was missed
    };
    Verdict verdict = Verdict::Agrees;
    /// What has changed meanwhile, on the X screen. The tracker will not tell it again: these parts must be fetched.
    std::vector<QRect> meanwhile;
};

/// Finds out whether a tracker has told all changes: compares the picture, which is up to date as far as it told, with
/// the screen. Others may draw all the while. Takes a round trip for each `longestLook` rows.
/// @param grabber holds the picture, without a cursor
/// @param area    of the picture, pixels on the X screen
/// @return the grabber's error
Result<X11Audit> auditPicture(X11Grabber &grabber, X11ChangeTracker &tracker, const QRect &area);

/// Rows of a picture and the same rows of the screen; of each pixel the unused byte doesn't count.
struct X11RowPair {
    const std::uint8_t *held = nullptr;
    const std::uint8_t *seen = nullptr;
    std::ptrdiff_t stride = 0;
    QRect place; ///< which pixels of the X screen they are
};

bool showsTheSame(const X11RowPair &rows);
/// Whether every pixel that differs lies in one of the rectangles.
bool isExplainedBy(std::span<const QRect> changes, const X11RowPair &rows);

} // namespace ostrel
