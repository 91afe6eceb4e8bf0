#include "platform/x11/foreground/X11WindowFacts.h"

#include "platform/x11/base/X11Connection.h"
#include "platform/x11/base/X11Monitors.h"
#include "platform/x11/foreground/CompoundText.h"

#include <QMargins>
#include <QStringDecoder>

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>
#include <unistd.h>

namespace ostrel {

namespace {

constexpr char activeWindowName[] = "_NET_ACTIVE_WINDOW";
constexpr char pidName[] = "_NET_WM_PID";
constexpr char titleName[] = "_NET_WM_NAME";
constexpr char frameExtentsName[] = "_NET_FRAME_EXTENTS";
constexpr char shadowExtentsName[] = "_GTK_FRAME_EXTENTS";
constexpr char utf8Name[] = "UTF8_STRING";
constexpr char compoundTextName[] = "COMPOUND_TEXT";

QByteArray hostName()
{
    std::array<char, 256> name = {};
    return ::gethostname(name.data(), name.size() - 1) == 0 ? QByteArray(name.data()) : QByteArray();
}

/// Texts in properties end with a zero that some programs count in and others don't.
QByteArray untilZero(const QByteArray &bytes)
{
    return bytes.mid(0, bytes.indexOf('\0'));
}

/// Properties of type STRING are Latin-1 by the book, but many programs write the locale's bytes, and that is UTF-8.
QString decodeString(const QByteArray &bytes)
{
    QStringDecoder decode(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    const QString text = decode(bytes);
    return decode.hasError() ? QString::fromLatin1(bytes) : text;
}

std::optional<QString> decodeTitle(X11Connection &connection, const std::optional<X11PropertyRequest::Value> &value)
{
    if (!value || value->format != 8 || value->bytes.isEmpty())
        return std::nullopt;
    const QByteArray bytes = untilZero(value->bytes);
    if (value->type == connection.atom(utf8Name))
        return QString::fromUtf8(bytes);
    if (value->type == connection.atom(compoundTextName))
        return decodeCompoundText(bytes);
    return decodeString(bytes);
}

/// Left, right, top, bottom, as both kinds of extents are written.
QMargins extents(const std::optional<X11PropertyRequest::Value> &value)
{
    if (!value || !value->cardinal(3))
        return {};
    // A window can claim anything; nonsense must not overflow the arithmetic.
    const auto side = [&value](qsizetype index) { return int(std::min(*value->cardinal(index), 0x7fffu)); };
    return {side(0), side(2), side(1), side(3)};
}

/// Who a window belongs to: asked for at construction, collected once.
class OwnerRequest
{
public:
    OwnerRequest(X11Connection &connection, xcb_window_t window)
        : m_class(connection, window, XCB_ATOM_WM_CLASS), m_machine(connection, window, XCB_ATOM_WM_CLIENT_MACHINE),
          m_pid(connection, window, connection.atom(pidName))
    {}

    X11WindowOwner collect()
    {
        X11WindowOwner owner;
        if (const auto value = m_class.collect(); value && value->format == 8) {
            // Two texts, each with its final zero: the instance and the class.
            const QList<QByteArray> names = value->bytes.split('\0');
            const QByteArray &name = names.value(1).isEmpty() ? names.first() : names[1];
            owner.windowClass = decodeString(name);
            owner.instanceAndClass = (decodeString(names.first()) + u' ' + decodeString(names.value(1))).trimmed();
        }
        const auto machine = m_machine.collect();
        const auto pid = m_pid.collect();
        // A program on another machine tells its pid there, which is some other program's here.
        const bool isLocal = machine && untilZero(machine->bytes) == hostName();
        const quint32 number = isLocal && pid ? pid->cardinal(0).value_or(0) : 0;
        owner.pid = number <= quint32(std::numeric_limits<qint32>::max()) ? qint32(number) : 0;
        return owner;
    }

private:
    X11PropertyRequest m_class;
    X11PropertyRequest m_machine;
    X11PropertyRequest m_pid;
};

/// What a window is called: asked for at construction, collected once.
class TitleRequest
{
public:
    TitleRequest(X11Connection &connection, xcb_window_t window)
        : m_connection(connection), m_new(connection, window, connection.atom(titleName)),
          m_old(connection, window, XCB_ATOM_WM_NAME)
    {}

    std::optional<QString> collect()
    {
        const auto newValue = m_new.collect();
        const auto oldValue = m_old.collect();
        const auto title = decodeTitle(m_connection, newValue);
        return title ? title : decodeTitle(m_connection, oldValue);
    }

private:
    X11Connection &m_connection;
    X11PropertyRequest m_new;
    X11PropertyRequest m_old;
};

/// Where a window lies: asked for at construction, collected once.
class FrameRequest
{
public:
    FrameRequest(X11Connection &connection, xcb_window_t window)
        : m_connection(connection), m_geometry(xcb_get_geometry(connection.get(), window)),
          m_corner(xcb_translate_coordinates(connection.get(), window, connection.root(), 0, 0)),
          m_decoration(connection, window, connection.atom(frameExtentsName)),
          m_shadow(connection, window, connection.atom(shadowExtentsName)), m_origin(connection)
    {}

    std::optional<QRect> collect()
    {
        const auto geometry = m_connection.reply<xcb_get_geometry_reply>(m_geometry);
        const auto corner = m_connection.reply<xcb_translate_coordinates_reply>(m_corner);
        const QMargins decoration = extents(m_decoration.collect());
        const QMargins shadow = extents(m_shadow.collect());
        const QPoint origin = m_origin.collect();
        if (!geometry || !corner)
            return std::nullopt;
        const QRect content(corner->dst_x, corner->dst_y, geometry->width, geometry->height);
        return content.marginsAdded(decoration).marginsRemoved(shadow).translated(-origin);
    }

private:
    X11Connection &m_connection;
    xcb_get_geometry_cookie_t m_geometry;
    xcb_translate_coordinates_cookie_t m_corner;
    X11PropertyRequest m_decoration;
    X11PropertyRequest m_shadow;
    X11OriginRequest m_origin;
};

/// What a window shows and where: asked for at construction, collected once.
class LookRequest
{
public:
    LookRequest(X11Connection &connection, xcb_window_t window)
        : m_title(connection, window), m_frame(connection, window)
    {}

    X11WindowLook collect() { return {.title = m_title.collect(), .frame = m_frame.collect()}; }

private:
    TitleRequest m_title;
    FrameRequest m_frame;
};

} // namespace

X11PropertyRequest::X11PropertyRequest(X11Connection &connection, xcb_window_t window, xcb_atom_t property)
    : m_connection(connection)
{
    constexpr uint32_t maximumWords = 64 * 1024 / 4;
    m_cookie = xcb_get_property(connection.get(), 0, window, property, XCB_GET_PROPERTY_TYPE_ANY, 0, maximumWords);
}

std::optional<X11PropertyRequest::Value> X11PropertyRequest::collect()
{
    const auto answer = m_connection.reply<xcb_get_property_reply>(m_cookie);
    if (!answer || answer->type == XCB_ATOM_NONE)
        return std::nullopt;
    return Value{.type = answer->type,
                 .format = answer->format,
                 .bytes = QByteArray(static_cast<const char *>(xcb_get_property_value(answer.get())),
                                     xcb_get_property_value_length(answer.get()))};
}

std::optional<quint32> X11PropertyRequest::Value::cardinal(qsizetype index) const
{
    quint32 item = 0;
    if (format != 32 || bytes.size() < (index + 1) * qsizetype(sizeof item))
        return std::nullopt;
    std::memcpy(&item, bytes.constData() + index * qsizetype(sizeof item), sizeof item);
    return item;
}

X11WindowOwner readWindowOwner(X11Connection &connection, xcb_window_t window)
{
    return OwnerRequest(connection, window).collect();
}

std::optional<QString> readWindowTitle(X11Connection &connection, xcb_window_t window)
{
    return TitleRequest(connection, window).collect();
}

X11WindowLook readWindowLook(X11Connection &connection, xcb_window_t window)
{
    return LookRequest(connection, window).collect();
}

std::optional<X11ActiveWindow> readActiveWindow(X11Connection &connection, std::optional<X11LikelyWindow> likely)
{
    X11PropertyRequest request(connection, connection.root(), connection.atom(activeWindowName));
    std::optional<OwnerRequest> owner;
    std::optional<LookRequest> look;
    if (likely)
        owner.emplace(connection, likely->window);
    if (likely && likely->asksLook)
        look.emplace(connection, likely->window);
    const auto value = request.collect();
    // Answers that are never collected would be kept until the connection ends.
    X11ActiveWindow active{.window = likely ? likely->window : XCB_WINDOW_NONE,
                           .owner = owner ? owner->collect() : X11WindowOwner(),
                           .look = look ? std::optional(look->collect()) : std::nullopt};
    const auto window = value ? value->cardinal(0) : std::nullopt;
    if (!window || *window == XCB_WINDOW_NONE)
        return std::nullopt;
    if (window == active.window)
        return active;
    return X11ActiveWindow{.window = *window, .owner = readWindowOwner(connection, *window), .look = {}};
}

void internWindowAtoms(X11Connection &connection)
{
    connection.internAtoms(
        {activeWindowName, pidName, titleName, frameExtentsName, shadowExtentsName, utf8Name, compoundTextName});
}

} // namespace ostrel
