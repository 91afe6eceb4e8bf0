#include "platform/appearance/PortalSettings.h"

#include "platform/sessionbus/BusNames.h"

#include <array>
#include <string_view>

namespace ostrel {

namespace {

constexpr const char *service = "org.freedesktop.portal.Desktop";
constexpr const char *path = "/org/freedesktop/portal/desktop";
constexpr const char *settings = "org.freedesktop.portal.Settings";

constexpr const char *appearance = "org.freedesktop.appearance";
constexpr const char *gnome = "org.gnome.desktop.interface";

// Of org.freedesktop.appearance's color-scheme; any other number is no preference.
constexpr guint32 prefersDark = 1;
constexpr guint32 prefersLight = 2;
/// Of its reduced-motion; any other number is no preference.
constexpr guint32 prefersReducedMotion = 1;

/// What lies in a value, which some portals put into a box of its own.
GlibHandle<GVariant> unboxed(GVariant *value)
{
    GlibHandle<GVariant> inner(g_variant_ref(value));
    while (g_variant_is_of_type(inner.get(), G_VARIANT_TYPE_VARIANT))
        inner.reset(g_variant_get_variant(inner.get()));
    return inner;
}

std::optional<bool> darkIn(GVariant *value)
{
    if (!g_variant_is_of_type(value, G_VARIANT_TYPE_UINT32))
        return std::nullopt;
    const guint32 scheme = g_variant_get_uint32(value);
    return scheme == prefersDark || scheme == prefersLight ? std::optional(scheme == prefersDark) : std::nullopt;
}

/// No preference is none: then a desktop that turns its animations off says it in its own way.
std::optional<bool> reducedMotionIn(GVariant *value)
{
    const bool isWished = g_variant_is_of_type(value, G_VARIANT_TYPE_UINT32) != FALSE &&
                          g_variant_get_uint32(value) == prefersReducedMotion;
    return isWished ? std::optional(true) : std::nullopt;
}

std::optional<double> numberIn(GVariant *value)
{
    return g_variant_is_of_type(value, G_VARIANT_TYPE_DOUBLE) ? std::optional(g_variant_get_double(value))
                                                              : std::nullopt;
}

/// A portal is started by those who ask for it; a call of ours starts none. Nothing but the wishes is lost without.
void startPortal(const BusLine &line)
{
    constexpr guint32 noFlags = 0;
    GlibHandle<GError> ignored;
    callBus(line, {BusNames::daemon, BusNames::daemonPath, BusNames::daemon, "StartServiceByName"},
            g_variant_new("(su)", service, noFlags), "(u)", ignored);
}

} // namespace

PortalSettings::PortalSettings(std::function<void(const AppearanceWishes &)> tell) : m_tell(std::move(tell)) {}

void PortalSettings::visit(const BusLine &line, BusLoop & /*loop*/)
{
    m_line = line;
    m_signals = std::make_unique<BusSignals>(line.connection);
    m_signals->listen(
        {.sender = service, .path = path, .interface = settings, .name = "SettingChanged", .type = "(ssv)"},
        [this](GVariant *arguments) {
            const char *name = nullptr;
            const char *key = nullptr;
            GVariant *value = nullptr;
            g_variant_get(arguments, "(&s&sv)", &name, &key, &value);
            const GlibHandle<GVariant> owned(value);
            const AppearanceWishes before = wishes();
            take(name, key, value);
            if (wishes() != before)
                m_tell(wishes());
        });
    m_signals->listenToOwner(service, [this](bool isThere) {
        if (isThere)
            readAll();
    });
    if (hasOwner(line, service).value_or(false))
        readAll();
    else
        startPortal(line); // its coming is told above
}

void PortalSettings::leave()
{
    m_signals.reset();
}

void PortalSettings::readAll()
{
    constexpr std::array<const char *, 3> namespaces{appearance, gnome, nullptr};
    GlibHandle<GError> error;
    const auto answer = callBus(m_line, {service, path, settings, "ReadAll"}, g_variant_new("(^as)", namespaces.data()),
                                "(a{sa{sv}})", error);
    if (!answer)
        return;
    m_wishes = {};
    m_wantsReducedMotion.reset();
    m_animates.reset();
    const GlibHandle<GVariant> all(g_variant_get_child_value(answer.get(), 0));
    for (gsize i = 0; i < g_variant_n_children(all.get()); ++i) {
        const GlibHandle<GVariant> entry(g_variant_get_child_value(all.get(), i));
        const char *name = nullptr;
        GVariantIter *keys = nullptr;
        g_variant_get(entry.get(), "{&sa{sv}}", &name, &keys);
        const char *key = nullptr;
        GVariant *value = nullptr;
        while (g_variant_iter_loop(keys, "{&sv}", &key, &value) != FALSE)
            take(name, key, value);
        g_variant_iter_free(keys);
    }
    m_tell(wishes());
}

/// Animations may be off for a slow machine's sake as well, so what is said of motion itself goes before.
AppearanceWishes PortalSettings::wishes() const
{
    AppearanceWishes wishes = m_wishes;
    if (m_wantsReducedMotion)
        wishes.reducedMotion = m_wantsReducedMotion;
    else if (m_animates)
        wishes.reducedMotion = !*m_animates;
    return wishes;
}

/// A value of another type than is agreed counts as no wish.
void PortalSettings::take(const char *name, const char *key, GVariant *value)
{
    const std::string_view where(name);
    const std::string_view what(key);
    const GlibHandle<GVariant> inner = unboxed(value);
    if (where == appearance && what == "color-scheme") {
        m_wishes.dark = darkIn(inner.get());
    } else if (where == appearance && what == "reduced-motion") {
        m_wantsReducedMotion = reducedMotionIn(inner.get());
    } else if (where == gnome && what == "text-scaling-factor") {
        m_wishes.textScale = numberIn(inner.get());
    } else if (where == gnome && what == "enable-animations") {
        m_animates = flagIn(inner.get());
    }
}

} // namespace ostrel
