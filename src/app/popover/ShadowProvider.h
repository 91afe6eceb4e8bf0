#pragma once

#include <QQuickImageProvider>

namespace ostrel {

/// Draws the soft shadow around a sheet with round corners, for a border image: "image://shadow/24/14" is a shadow of
/// 24 pixels around a sheet whose corners have a radius of 14. Edges of both together are the corners of the image;
/// what is between them is one pixel. Any thread.
class ShadowProvider : public QQuickImageProvider
{
public:
    ShadowProvider();

    /// @param id the width and the radius, with a slash between
    /// @return nothing where these are no sizes
    QImage requestImage(const QString &id, QSize *size, const QSize &requestedSize) override;
};

} // namespace ostrel
