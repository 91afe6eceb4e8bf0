#include "platform/portal/PictureJudgement.h"

#include <algorithm>

namespace ostrel {

namespace {

/// On a machine that is not busy the news are here by then; on others each further look comes after twice the time.
constexpr std::chrono::milliseconds firstPause{10};
/// Later than that, it isn't told any more where windows were when the picture came.
constexpr std::chrono::milliseconds longestJudgement{900};

void addEachOnce(QList<QRect> &places, const QList<QRect> &others)
{
    for (const QRect &place : others) {
        if (!places.contains(place))
            places.append(place);
    }
}

} // namespace

void PictureJudgement::begin(Time now, QSize picture, const std::optional<PictureCover::Places> &places,
                             bool isReplacing)
{
    if (!isReplacing || m_verdict != Verdict::Pending)
        m_unjudgedSince = now;
    m_picture = picture;
    m_takenAt = now;
    m_pause = firstPause;
    m_nextLook = now + m_pause;
    m_black.clear();
    m_verdict = m_cover ? Verdict::Pending : Verdict::Known;
    if (m_cover)
        hear(places, now);
}

void PictureJudgement::hear(const std::optional<PictureCover::Places> &places, Time askedAt)
{
    if (!places) {
        m_verdict = Verdict::Unknown;
        return;
    }
    addEachOnce(m_black, places->black);
    if (places->mayBeAnywhere)
        m_verdict = Verdict::Unfit;
    else if (places->age <= askedAt - m_takenAt)
        m_verdict = Verdict::Known;
}

bool PictureJudgement::isReached(Time now)
{
    if (m_verdict != Verdict::Pending)
        return true;
    const bool isTooLate = now - m_unjudgedSince >= longestJudgement;
    if (now < m_nextLook && !isTooLate)
        return false;
    m_pause *= 2;
    m_nextLook = std::min(now + m_pause, m_takenAt + longestJudgement);
    hear(m_cover->places(m_picture), now);
    if (m_verdict == Verdict::Pending && isTooLate)
        m_verdict = Verdict::Unknown;
    return m_verdict != Verdict::Pending;
}

std::optional<QList<QRect>> PictureJudgement::placesToCover() const
{
    if (!m_cover)
        return QList<QRect>();
    if (m_verdict == Verdict::Unfit)
        return std::nullopt;
    const auto places = m_cover->places(m_picture);
    if (m_cover->isReliedOn() && (!places || m_verdict != Verdict::Known))
        return std::nullopt;
    // A picture that had to wait shows windows where they were when it came.
    QList<QRect> black = m_black;
    if (places)
        addEachOnce(black, places->black);
    return black;
}

} // namespace ostrel
