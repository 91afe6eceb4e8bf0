#include "platform/x11/base/X11Connection.h"

#include "base/Fault.h"

#include <cstring>
#include <utility>
#include <vector>

namespace ostrel {

namespace {

const xcb_screen_t *screenByNumber(xcb_connection_t *connection, int number)
{
    auto screens = xcb_setup_roots_iterator(xcb_get_setup(connection));
    while (number > 0 && screens.rem > 1) {
        xcb_screen_next(&screens);
        --number;
    }
    return screens.rem > 0 ? screens.data : nullptr;
}

Error noDisplay(const QByteArray &display)
{
    const QByteArray tried = display.isEmpty() ? qgetenv("DISPLAY") : display;
    const QString detail = tried.isEmpty() ? QStringLiteral("DISPLAY is not set")
                                           : QStringLiteral("DISPLAY is \"%1\"").arg(QString::fromLocal8Bit(tried));
    return faultError(Fault::NoXDisplay, detail);
}

} // namespace

Result<std::unique_ptr<X11Connection>> X11Connection::open(const QByteArray &display)
{
    int number = 0;
    Handle connection(xcb_connect(display.isEmpty() ? nullptr : display.constData(), &number));
    if (xcb_connection_has_error(connection.get()))
        return std::unexpected(noDisplay(display));
    const xcb_screen_t *screen = screenByNumber(connection.get(), number);
    if (!screen)
        return std::unexpected(noDisplay(display));
    return std::unique_ptr<X11Connection>(new X11Connection(std::move(connection), screen));
}

X11Connection::X11Connection(Handle connection, const xcb_screen_t *screen)
    : m_connection(std::move(connection)), m_screen(screen)
{}

void X11Connection::internAtoms(std::initializer_list<const char *> names)
{
    std::vector<std::pair<QByteArray, xcb_intern_atom_cookie_t>> requests;
    for (const char *name : names) {
        const QByteArray bytes(name);
        if (!m_atoms.contains(bytes))
            requests.emplace_back(bytes, xcb_intern_atom(get(), 0, uint16_t(bytes.size()), bytes.constData()));
    }
    for (const auto &[name, cookie] : requests) {
        if (const auto answer = reply<xcb_intern_atom_reply>(cookie))
            m_atoms.insert(name, answer->atom);
    }
}

xcb_atom_t X11Connection::atom(const char *name)
{
    if (const auto known = m_atoms.constFind(QByteArray::fromRawData(name, qsizetype(std::strlen(name))));
        known != m_atoms.cend())
        return *known;
    internAtoms({name});
    return m_atoms.value(QByteArray(name), XCB_ATOM_NONE);
}

void X11Connection::discardEvents() const
{
    while (X11Reply<xcb_generic_event_t> event{xcb_poll_for_event(get())}) {
    }
}

} // namespace ostrel
