#include "platform/wlroots/WlrScreenshotter.h"

#include "base/Fault.h"
#include "platform/pixels/CoveredAreas.h"
#include "platform/wlroots/PrivateCover.h"
#include "platform/wlroots/WlrFrame.h"

#include <limits>
#include <utility>

namespace ostrel {

namespace {

constexpr int bytesPerPixel = 4;

/// Whether red comes before blue; absent for pixels that are anything but three bytes of colour and one more.
std::optional<bool> isRedFirst(std::uint32_t format)
{
    switch (format) {
    case WL_SHM_FORMAT_XRGB8888:
    case WL_SHM_FORMAT_ARGB8888:
        return false;
    case WL_SHM_FORMAT_XBGR8888:
    case WL_SHM_FORMAT_ABGR8888:
        return true;
    default:
        return std::nullopt;
    }
}

/// Whether the sizes can be those of a picture, and can be computed with.
bool isPossible(const WaylandPixelLayout &layout)
{
    const auto isSide = [](int side) { return side > 0 && side <= WaylandOutputLook::longestSide; };
    return isSide(layout.size.width()) && isSide(layout.size.height()) &&
           layout.stride >= std::ptrdiff_t(layout.size.width()) * bytesPerPixel &&
           layout.stride <= std::numeric_limits<std::int32_t>::max() / layout.size.height();
}

} // namespace

WlrScreenshotter::WlrScreenshotter(std::shared_ptr<WaylandOutputs> outputs, const WaylandOutput &output,
                                   bool showsCursor, std::shared_ptr<PrivateCover> cover, WlrCaptureSeams seams)
    : m_outputs(std::move(outputs)), m_global(output.global()), m_name(output.look().name),
      m_size(output.look().pixelSize()), m_showsCursor(showsCursor), m_cover(std::move(cover)),
      m_seams(std::move(seams)), m_manager(m_outputs->bindScreencopy())
{}

Result<std::optional<FrameView>> WlrScreenshotter::capture()
{
    const auto before = m_cover->before();
    if (!before)
        return std::unexpected(before.error());
    WaylandConnection &connection = m_outputs->connection();
    connection.dispatchEvents();
    if (connection.isBroken())
        return std::unexpected(connection.brokenError());
    const WaylandOutput *output = m_outputs->find(m_global);
    if (!output)
        return std::unexpected(faultError(Fault::DisplayGone, m_name));

    WlrFrame frame(m_manager.get(), output->get(), m_showsCursor);
    const auto layout = describe(frame);
    if (!layout)
        return std::unexpected(layout.error());
    if (const auto turned = transformFor(layout->size); !turned)
        return std::unexpected(turned.error());
    const QList<QRect> covered = pixelsOf(*before);
    if (const auto prepared = prepare(*layout, covered); !prepared)
        return std::unexpected(prepared.error());
    auto picture = finish(frame, layout->size, covered);
    if (!picture)
        m_wholeAt.reset(); // nobody knows what is in the buffer now
    return picture;
}

Result<std::optional<FrameView>> WlrScreenshotter::finish(WlrFrame &frame, QSize size, QList<QRect> covered)
{
    const auto isNew = fetch(frame);
    if (!isNew)
        return std::unexpected(isNew.error());
    const auto after = m_cover->after();
    if (!after)
        return std::unexpected(after.error());
    for (const QRect &area : pixelsOf(*after)) {
        if (!covered.contains(area))
            covered.append(area);
    }
    if (!*isNew)
        return coveredView(covered, std::span<const RowRange>());
    // Asked again, for the output may have been turned during the wait.
    const auto transform = transformFor(size);
    if (!transform)
        return std::unexpected(transform.error());
    const bool isKnown = takeOver(frame, *transform);
    return coveredView(covered, isKnown ? std::optional(std::span<const RowRange>(&m_changed, 1)) : std::nullopt);
}

QList<QRect> WlrScreenshotter::pixelsOf(const QList<QRect> &areas) const
{
    const WaylandOutput *output = m_outputs->find(m_global);
    return output ? pixelsTouched(areas, output->look().logical(), output->look().pixelSize()) : QList<QRect>();
}

Result<int> WlrScreenshotter::transformFor(QSize size) const
{
    const WaylandOutput *output = m_outputs->find(m_global);
    if (!output)
        return std::unexpected(faultError(Fault::DisplayGone, m_name));
    const int transform = output->look().transform;
    if (PixelConversion{.transform = transform}.uprightSize(size) != m_size)
        return std::unexpected(faultError(Fault::DisplayResized, m_name));
    return transform;
}

Result<> WlrScreenshotter::wait(const std::function<bool()> &isMet)
{
    // Not every compositor says of the pictures under way that their output has gone.
    const auto isOver = [&] { return isMet() || !m_outputs->find(m_global); };
    WaylandConnection &connection = m_outputs->connection();
    if (connection.waitUntil(isOver, m_seams.patience))
        return {};
    if (!connection.isBroken())
        connection.giveUp();
    return std::unexpected(connection.brokenError());
}

Result<WaylandPixelLayout> WlrScreenshotter::describe(WlrFrame &frame)
{
    if (const auto told = wait([&frame] { return frame.isDescribed(); }); !told)
        return std::unexpected(told.error());
    const auto layout = frame.layout();
    if (!layout || frame.isEnded())
        return std::unexpected(refused());
    if (!isRedFirst(layout->format))
        return std::unexpected(
            faultError(Fault::ScreenFormatUnsupported, QStringLiteral("format %1").arg(layout->format, 8, 16)));
    if (!isPossible(*layout))
        return std::unexpected(faultError(Fault::ScreenFormatUnsupported, QStringLiteral("%1x%2, %3 bytes a row")
                                                                              .arg(layout->size.width())
                                                                              .arg(layout->size.height())
                                                                              .arg(layout->stride)));
    return *layout;
}

Result<> WlrScreenshotter::prepare(const WaylandPixelLayout &layout, const QList<QRect> &covered)
{
    const auto now = m_seams.monotonicTime();
    if (m_buffer && m_buffer->layout() == layout) {
        m_isWhole = !m_wholeAt || now - *m_wholeAt >= m_seams.wholeEvery || covered != m_covered;
        return {};
    }
    m_wholeAt.reset();
    m_isWhole = true;
    auto buffer = WaylandBuffer::make(m_outputs->sharedMemory(), layout);
    if (!buffer)
        return std::unexpected(buffer.error());
    m_buffer = std::move(*buffer);
    return {};
}

Result<bool> WlrScreenshotter::fetch(WlrFrame &frame)
{
    WaylandConnection &connection = m_outputs->connection();
    const auto isEnded = [&frame] { return frame.isEnded(); };
    if (m_isWhole) {
        frame.copy(*m_buffer);
        if (const auto ended = wait(isEnded); !ended)
            return std::unexpected(ended.error());
        return outcome(frame);
    }
    frame.copyWhenChanged(*m_buffer);
    if (connection.waitUntil(isEnded, m_seams.unchangedAfter))
        return outcome(frame);
    // A request left behind would keep the compositor from showing full-screen windows directly. And the round trip
    // tells silence because of nothing new from the silence of a compositor that hangs.
    if (!connection.isBroken())
        frame.withdraw();
    if (const auto answered = connection.roundTrip(); !answered)
        return std::unexpected(answered.error());
    return frame.isEnded() ? outcome(frame) : Result<bool>(false);
}

Result<bool> WlrScreenshotter::outcome(const WlrFrame &frame) const
{
    if (frame.isReady())
        return true;
    return std::unexpected(refused());
}

Error WlrScreenshotter::refused() const
{
    if (!m_outputs->find(m_global))
        return faultError(Fault::DisplayGone, m_name);
    return faultError(Fault::PictureRefused, QStringLiteral("%1 may be switched off").arg(m_name));
}

bool WlrScreenshotter::takeOver(const WlrFrame &frame, int transform)
{
    const PixelConversion conversion{.transform = transform,
                                     .bottomUp = frame.isBottomUp(),
                                     .redFirst = isRedFirst(m_buffer->layout().format).value_or(false)};
    // Without a word of what has changed, anything may have.
    const auto told = m_isWhole ? std::nullopt : conversion.uprightRows(frame.changes(), m_buffer->layout().size);
    const bool isKnown = told && conversion == m_conversion;
    m_changed = isKnown ? *told : RowRange{.begin = 0, .end = m_size.height()};
    m_conversion = conversion;
    if (m_isWhole)
        m_wholeAt = m_seams.monotonicTime();
    if (!conversion.isIdentity()) {
        m_upright.resize(std::size_t(m_size.width()) * std::size_t(m_size.height()) * bytesPerPixel);
        const PixelSource source{
            .pixels = m_buffer->pixels(), .size = m_buffer->layout().size, .stride = m_buffer->layout().stride};
        convertRows(conversion, source, m_changed, m_upright.data());
    }
    return isKnown;
}

FrameView WlrScreenshotter::coveredView(const QList<QRect> &covered,
                                        std::optional<std::span<const RowRange>> changedRows)
{
    // Also what was black already: the compositor may have written there.
    coverPixels(covered, pixels(), stride());
    if (covered != m_covered)
        changedRows.reset();
    m_covered = covered;
    return {.pixels = pixels(),
            .width = m_size.width(),
            .height = m_size.height(),
            .stride = stride(),
            .changedRows = changedRows};
}

std::ptrdiff_t WlrScreenshotter::stride() const
{
    return m_conversion.isIdentity() ? m_buffer->layout().stride : std::ptrdiff_t(m_size.width()) * bytesPerPixel;
}

} // namespace ostrel
