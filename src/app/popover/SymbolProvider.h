#pragma once

#include <QQuickImageProvider>

namespace ostrel {

/// Draws the interface's symbols in the colour and the size that are asked for: "image://symbol/gearshape/#1f6f6b".
/// The drawings are SVG files whose colour is "currentColor". Any thread.
class SymbolProvider : public QQuickImageProvider
{
public:
    SymbolProvider();

    /// @param id the symbol's name and the colour, with a slash between
    /// @param requestedSize device pixels
    /// @return nothing where there is no such drawing or colour
    QImage requestImage(const QString &id, QSize *size, const QSize &requestedSize) override;
};

} // namespace ostrel
