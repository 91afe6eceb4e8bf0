#include "platform/wlroots/PrivateCover.h"

#include "base/Fault.h"
#include "base/Log.h"

#include <algorithm>
#include <thread>
#include <utility>

namespace ostrel {

namespace {

QRect boundsOf(const QList<QRect> &places)
{
    QRect bounds;
    for (const QRect &place : places)
        bounds |= place;
    return bounds;
}

} // namespace

PrivateCover::PrivateCover(PrivateAreas areas, const WlrCaptureSeams &seams) : m_areas(std::move(areas)), m_seams(seams)
{}

void PrivateCover::leaveOut(const QList<qint32> &processes)
{
    for (const qint32 process : processes) {
        if (!m_processes.contains(process))
            m_processes.append(process);
    }
}

Result<QList<QRect>> PrivateCover::before()
{
    auto places = read();
    if (!places)
        return places;
    if (*places != m_places || !m_restless.isEmpty()) {
        if (const auto settled = settle(*std::move(places)); !settled)
            return std::unexpected(settled.error());
    }
    logCount();
    return m_restless.isEmpty() ? m_places : QList<QRect>{m_restless};
}

Result<QList<QRect>> PrivateCover::after()
{
    auto places = read();
    if (!places)
        return places;
    if (*places != m_places) {
        m_restless |= boundsOf(m_places) | boundsOf(*places);
        m_places = *std::move(places);
    }
    logCount();
    return m_restless.isEmpty() ? m_places : QList<QRect>{m_restless};
}

void PrivateCover::logCount()
{
    if (m_places.size() == m_loggedCount)
        return;
    m_loggedCount = m_places.size();
    qCInfo(logScreenCapture, "private windows kept out of the pictures by covering their places: %lld",
           qint64(m_loggedCount));
}

Result<> PrivateCover::settle(QList<QRect> places)
{
    constexpr std::chrono::milliseconds step{25};
    const auto begin = m_seams.monotonicTime();
    auto now = begin;
    auto calmSince = begin;
    m_restless |= boundsOf(m_places) | boundsOf(places);
    m_places = std::move(places);
    while (now - calmSince < m_seams.privateCalmAfter) {
        if (now - begin >= m_seams.privateCalmAtMost)
            return {};
        std::this_thread::sleep_for(step);
        auto next = read();
        if (!next)
            return std::unexpected(next.error());
        now = m_seams.monotonicTime();
        if (*next != m_places) {
            m_restless |= boundsOf(*next);
            m_places = *std::move(next);
            calmSince = now;
        }
    }
    m_restless = QRect();
    return {};
}

Result<QList<QRect>> PrivateCover::read()
{
    if (!m_areas)
        return QList<QRect>();
    auto places = m_areas(m_processes);
    if (!places)
        return std::unexpected(
            faultError(Fault::PictureRefused, QStringLiteral("the compositor did not say which windows are private")));
    return *std::move(places);
}

} // namespace ostrel
