#pragma once

#include "base/Error.h"
#include "platform/wlroots/PrivateAreas.h"
#include "platform/wlroots/WlrCaptureSeams.h"

#include <QList>
#include <QRect>

namespace ostrel {

/// What has to be covered in a picture, found out before and after it was taken. Shared by all who take pictures of one
/// compositor. One thread at a time.
///
/// A compositor tells where windows are going to be. It shows them there when the programs have drawn, or when it has
/// waited for them long enough: until places have been the same for `privateCalmAfter`, windows may be anywhere between
/// the places that were told, and all of that is covered.
class PrivateCover
{
public:
    /// @param areas may be empty: then nothing is known, and nothing is covered
    PrivateCover(PrivateAreas areas, const WlrCaptureSeams &seams);

    /// Whether anybody tells where private windows are.
    bool isTold() const { return bool(m_areas); }
    /// The windows of these processes are private, too.
    void leaveOut(const QList<qint32> &processes);

    /// To be asked before a picture is requested. While places stay as they are it costs one question; otherwise it
    /// blocks until they are calm, for `privateCalmAtMost` at the most.
    /// @return logical pixels on the compositor's desktop; Fault::PictureRefused when it can't be found out
    Result<QList<QRect>> before();
    /// To be asked when the picture is there. @return the same, and all that `before` returned
    Result<QList<QRect>> after();

private:
    Result<QList<QRect>> read();
    void logCount();
    /// Waits until the places are those on the screen.
    Result<> settle(QList<QRect> places);

    const PrivateAreas m_areas;
    const WlrCaptureSeams m_seams;
    QList<qint32> m_processes;
    QList<QRect> m_places; ///< as they were told last
    qsizetype m_loggedCount = 0;
    QRect m_restless; ///< all that was told since they were calm; empty while they are
};

} // namespace ostrel
