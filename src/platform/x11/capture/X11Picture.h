#pragma once

#include "capture/DisplaySource.h"
#include "platform/x11/capture/X11Audit.h"
#include "platform/x11/capture/X11ChangeTracker.h"
#include "platform/x11/capture/X11Cursor.h"
#include "platform/x11/capture/X11CursorLayer.h"
#include "platform/x11/capture/X11Grabber.h"

#include <QRect>
#include <QString>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <vector>

namespace ostrel {

/// The picture of a rectangle of the X screen, kept up to date: only rows that have changed are fetched, and nothing at
/// all where nothing has. The cursor is drawn over it. One thread at a time.
///
/// The order is what makes it right: first the changes so far are taken, then the rows are fetched. What is drawn in
/// between may be in the picture already; it is told again next time.
///
/// Not every driver tells all changes. So every 30 s the picture is compared with the screen, and where a change was
/// missed the whole picture is fetched from then on.
class X11Picture
{
public:
    static constexpr std::chrono::milliseconds auditInterval{30'000};

    struct Means {
        std::unique_ptr<X11Grabber> grabber;
        std::unique_ptr<X11ChangeTracker> tracker; ///< null: all rows are fetched each time
        std::unique_ptr<X11Cursor> cursor;         ///< null: the picture shows no cursor
        std::function<std::chrono::milliseconds()> monotonicTime;
    };

    /// @param name of the monitor, for the log
    /// @param area pixels on the X screen
    X11Picture(Means means, QString name, const QRect &area);

    /// Goes on with another place of the same size; all rows are fetched next time.
    void moveTo(QPoint corner);

    /// Fetches what has changed. Where nothing has, and the pointer rests, the server is not asked anything.
    /// @return the picture, until the next call; the errors of X11Grabber::collect, after which all rows are fetched
    ///         next time
    Result<FrameView> take();

    /// What is shown instead of the screen as it is.
    struct Substitute {
        xcb_drawable_t source = XCB_NONE; ///< of the root window's depth
        QPoint corner;                    ///< of the picture in the source
        std::vector<QRect> covered;       ///< parts that are painted black, pixels on the X screen
    };
    /// Fetches all of it; nothing is said about changes. The next `take` fetches all rows of the screen.
    /// @return as `take`
    Result<FrameView> takeFrom(const Substitute &substitute);

    /// Says that nobody has seen the last view, so that the next one doesn't tell what has changed since then.
    void discardView() { m_isViewLost = true; }

private:
    using Cursor = std::optional<X11CursorImage>;

    Result<FrameView> fetchAll(Cursor cursor);
    Result<FrameView> update(const std::vector<QRect> &changes, Cursor cursor);
    Result<> fetch(std::span<const RowRange> rows);
    bool isAuditDue() const;
    Result<X11Audit::Verdict> audit(std::vector<RowRange> &changedRows);
    void distrustTracker();
    void cover(const QRect &part);
    void drawCursor(Cursor cursor);
    FrameView view() const;

    Means m_means;
    const QString m_name;
    QRect m_area;
    X11CursorLayer m_cursorLayer;
    bool m_isWhole = false; ///< all rows have been fetched, and no change after that was lost
    bool m_isViewLost = false;
    std::optional<std::vector<RowRange>> m_changedRows; ///< between the last two views
    std::chrono::milliseconds m_lastComparison{};       ///< with the screen, or fetching all of it
};

} // namespace ostrel
