#pragma once

#include "capture/DisplaySource.h"
#include "support/TestProcess.h"

#include <QFile>
#include <QSize>
#include <QString>

#include <cstring>
#include <random>
#include <vector>

namespace ostrel {

/// Colours as red * 65536 + green * 256 + blue.
struct WaylandPicture {
    QSize size;
    std::vector<quint32> pixels;

    bool operator==(const WaylandPicture &) const = default;

    static WaylandPicture plain(QSize size, quint32 colour)
    {
        return {size, std::vector<quint32>(std::size_t(size.width() * size.height()), colour)};
    }

    static WaylandPicture noise(QSize size, unsigned seed)
    {
        std::mt19937 random(seed);
        WaylandPicture picture = plain(size, 0);
        for (quint32 &pixel : picture.pixels)
            pixel = quint32(random()) & 0xffffff;
        return picture;
    }

    static WaylandPicture of(const FrameView &view)
    {
        WaylandPicture picture = plain(QSize(view.width, view.height), 0);
        picture.copyRows(view, {.begin = 0, .end = view.height});
        return picture;
    }

    void copyRows(const FrameView &view, RowRange rows)
    {
        for (int y = rows.begin; y < rows.end; ++y) {
            for (int x = 0; x < view.width; ++x) {
                quint32 pixel = 0;
                std::memcpy(&pixel, view.pixels + y * view.stride + x * 4, sizeof(pixel));
                pixels[std::size_t(y * view.width + x)] = pixel & 0xffffff;
            }
        }
    }

    /// As a file that the desktop's background program reads.
    void save(const QString &path) const
    {
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly))
            failTest(QStringLiteral("\"%1\" could not be written").arg(path));
        file.write(QStringLiteral("P6\n%1 %2\n255\n").arg(size.width()).arg(size.height()).toLatin1());
        QByteArray bytes;
        for (const quint32 pixel : pixels)
            bytes.append(char(pixel >> 16)).append(char(pixel >> 8)).append(char(pixel));
        file.write(bytes);
    }
};

} // namespace ostrel
