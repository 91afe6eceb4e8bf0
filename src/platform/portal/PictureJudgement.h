#pragma once

#include "platform/portal/PictureCover.h"

#include <QList>
#include <QRect>
#include <QSize>

#include <chrono>
#include <memory>
#include <optional>
#include <utility>

namespace ostrel {

/// What is private in the picture that was taken last. It may be here before the news of what it shows, so they are
/// asked for again until all is told that was drawn before it came, or until it is too late for that.
///
/// All times are of one monotonic clock, read before anybody is asked. One thread at a time.
class PictureJudgement
{
public:
    using Time = std::chrono::milliseconds;
    enum class Verdict {
        Pending, ///< news may be on their way
        Known,
        Unknown, ///< nobody could tell
        Unfit,   ///< something private may be anywhere in it
    };

    /// @param cover may be null: then nothing is private
    explicit PictureJudgement(std::shared_ptr<PictureCover> cover) : m_cover(std::move(cover)) {}

    /// Begins anew, with another picture.
    /// @param places      what was told when it came
    /// @param isReplacing the one before it was still to be delivered
    void begin(Time now, QSize picture, const std::optional<PictureCover::Places> &places, bool isReplacing);
    /// Asks again when it is time. @return whether there is a verdict
    bool isReached(Time now);
    /// When to ask again, while there is none.
    Time nextLook() const { return m_nextLook; }
    Verdict verdict() const { return m_verdict; }
    /// What is to be black. Absent when the picture may not be shown.
    std::optional<QList<QRect>> placesToCover() const;

private:
    void hear(const std::optional<PictureCover::Places> &places, Time askedAt);

    const std::shared_ptr<PictureCover> m_cover;
    QSize m_picture;
    Verdict m_verdict = Verdict::Known;
    QList<QRect> m_black; ///< what is private in it, as far as it is told
    Time m_takenAt{0};
    /// When the first of the pictures was taken of which each was followed by another before its verdict.
    Time m_unjudgedSince{0};
    Time m_nextLook{0};
    Time m_pause{0}; ///< before that
};

} // namespace ostrel
