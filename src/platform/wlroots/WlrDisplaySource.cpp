#include "platform/wlroots/WlrDisplaySource.h"

#include "base/DisplayRules.h"
#include "base/Fault.h"
#include "platform/wlroots/PrivateCover.h"
#include "platform/wlroots/WaylandOutputs.h"
#include "platform/wlroots/WlrScreenshotter.h"

#include <unistd.h>
#include <utility>

namespace ostrel {

namespace {

QList<quint32> identifiersOf(const std::vector<const WaylandOutput *> &outputs)
{
    QStringList names;
    for (const WaylandOutput *output : outputs)
        names.append(output->look().name);
    return displayIdentifiers(names);
}

ShareableContent contentOf(const WaylandOutputs &outputs)
{
    const auto all = outputs.all();
    const QList<quint32> identifiers = identifiersOf(all);
    QList<QPoint> corners;
    for (const WaylandOutput *output : all)
        corners.append(output->look().logical().topLeft());
    ShareableContent content;
    const auto main = mainDisplayIndex(corners);
    if (!main)
        return content;
    content.mainDisplayId = identifiers[*main];
    for (std::size_t i = 0; i < all.size(); ++i) {
        const WaylandOutputLook &look = all[i]->look();
        content.displays.append(CapturableDisplay{.displayId = identifiers[qsizetype(i)],
                                                  .width = look.pixelSize().width(),
                                                  .height = look.pixelSize().height(),
                                                  .bounds = QRectF(look.logical().translated(-corners[*main]))});
    }
    return content;
}

} // namespace

WlrDisplaySource::WlrDisplaySource(QByteArray display, WlrCaptureSeams seams, PrivateAreas privateAreas)
    : m_display(std::move(display)), m_seams(std::move(seams)),
      m_cover(std::make_shared<PrivateCover>(std::move(privateAreas), m_seams))
{}

WlrDisplaySource::~WlrDisplaySource() = default;

Result<ShareableContent> WlrDisplaySource::shareableContent()
{
    const auto found = outputs();
    if (!found)
        return std::unexpected(found.error());
    m_told = contentOf(**found);
    return m_told;
}

bool WlrDisplaySource::haveDisplaysChanged()
{
    if (!m_outputs)
        return false;
    m_outputs->connection().dispatchEvents();
    if (m_outputs->connection().isBroken())
        return false;
    const ShareableContent now = contentOf(*m_outputs);
    return now.displays != m_told.displays || now.mainDisplayId != m_told.mainDisplayId;
}

bool WlrDisplaySource::leavesOutPrivateWindows() const
{
    return m_cover->isTold();
}

Result<std::unique_ptr<DisplayScreenshotter>>
WlrDisplaySource::makeScreenshotter(const DisplayContentFilter &filter,
                                    const DisplayCaptureConfiguration &configuration)
{
    const auto found = outputs();
    if (!found)
        return std::unexpected(found.error());
    const auto all = (*found)->all();
    const qsizetype index = identifiersOf(all).indexOf(filter.displayId);
    if (index < 0)
        return std::unexpected(faultError(Fault::DisplayGone, QString::number(filter.displayId)));
    m_cover->leaveOut(filter.mode.excludedProcessIDs + QList<qint32>{::getpid()});
    return std::make_unique<WlrScreenshotter>(*found, *all[std::size_t(index)], configuration.showsCursor, m_cover,
                                              m_seams);
}

Result<std::shared_ptr<WaylandOutputs>> WlrDisplaySource::outputs()
{
    // Reading what came unasked is also what finds out that the compositor has gone.
    if (m_outputs)
        m_outputs->connection().dispatchEvents();
    if (m_outputs && m_outputs->connection().isBroken())
        m_outputs.reset();
    if (m_outputs) {
        const auto known = m_outputs->refresh();
        if (!known && isFault(known.error(), Fault::TimedOut))
            return std::unexpected(known.error());
        // One that has come and gone since the last reading can't be described, and costs the connection.
        if (!known)
            m_outputs.reset();
    }
    if (!m_outputs) {
        auto connection = WaylandConnection::open(m_display, m_seams.patience);
        if (!connection)
            return std::unexpected(connection.error());
        auto opened = WaylandOutputs::open(std::move(*connection));
        if (!opened)
            return std::unexpected(opened.error());
        m_outputs = std::move(*opened);
    }
    if (!m_outputs->offersScreencopy())
        return std::unexpected(faultError(Fault::NoScreencopy));
    return m_outputs;
}

} // namespace ostrel
