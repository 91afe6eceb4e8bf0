#include "platform/x11/panel/X11ClickMonitor.h"

#include <utility>
#include <xcb/xinput.h>

namespace ostrel {

namespace {

// Others are the wheel's, among them.
constexpr std::uint32_t leftButton = 1;
constexpr std::uint32_t rightButton = 3;

/// From this version on the presses are told also while another program has grabbed the pointer, as menus do.
constexpr std::uint16_t majorVersion = 2;
constexpr std::uint16_t minorVersion = 2;

bool isPress(const xcb_generic_event_t &event, std::uint8_t extension)
{
    if (typeOf(event) != XCB_GE_GENERIC)
        return false;
    const auto &generic = reinterpret_cast<const xcb_ge_generic_event_t &>(event);
    if (generic.extension != extension || generic.event_type != XCB_INPUT_RAW_BUTTON_PRESS)
        return false;
    const auto button = reinterpret_cast<const xcb_input_raw_button_press_event_t &>(event).detail;
    return button == leftButton || button == rightButton;
}

} // namespace

std::unique_ptr<X11ClickMonitor> X11ClickMonitor::start(std::shared_ptr<X11Connection> connection,
                                                        std::function<void()> noted)
{
    const auto extension = connection->majorOpcodeOf(xcb_input_id);
    if (!extension)
        return nullptr;
    const auto version = connection->reply<xcb_input_xi_query_version_reply>(
        xcb_input_xi_query_version(connection->get(), majorVersion, minorVersion));
    if (!version || std::pair(version->major_version, version->minor_version) < std::pair(majorVersion, minorVersion))
        return nullptr;
    return std::unique_ptr<X11ClickMonitor>(new X11ClickMonitor(std::move(connection), *extension, std::move(noted)));
}

X11ClickMonitor::X11ClickMonitor(std::shared_ptr<X11Connection> connection, std::uint8_t extension,
                                 std::function<void()> noted)
    : m_connection(std::move(connection)),
      m_events(m_connection, [extension, noted = std::move(noted)](const xcb_generic_event_t &event) {
          if (isPress(event, extension))
              noted();
      })
{
    select(XCB_INPUT_XI_EVENT_MASK_RAW_BUTTON_PRESS);
}

X11ClickMonitor::~X11ClickMonitor()
{
    select(0);
}

void X11ClickMonitor::select(std::uint32_t events) const
{
    const struct {
        xcb_input_event_mask_t head;
        std::uint32_t events;
    } mask{.head = {.deviceid = XCB_INPUT_DEVICE_ALL_MASTER, .mask_len = 1}, .events = events};
    xcb_input_xi_select_events(m_connection->get(), m_connection->root(), 1, &mask.head);
    xcb_flush(m_connection->get());
}

} // namespace ostrel
