#pragma once

#include <QByteArray>
#include <QRect>

#include <memory>

namespace ostrel {

class X11Connection;

/// A window of this process, which its own pictures leave out. It is on the screen while this exists.
class OwnWindow
{
public:
    OwnWindow(const QByteArray &display, const QRect &place);
    ~OwnWindow();

private:
    std::unique_ptr<X11Connection> m_connection;
};

} // namespace ostrel
