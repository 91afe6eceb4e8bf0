#include "platform/autostart/AutostartEntry.h"

#include <QFile>

#include <glib.h>

namespace ostrel {

namespace {

constexpr const char *group = G_KEY_FILE_DESKTOP_GROUP;
/// How GNOME's tools of an earlier time switch an entry off.
constexpr const char *gnomeSwitch = "X-GNOME-Autostart-enabled";

struct KeyFileDelete {
    void operator()(GKeyFile *file) const { g_key_file_unref(file); }
};

} // namespace

class AutostartEntry::Keys
{
public:
    bool load(const QByteArray &text)
    {
        // GLib's flags are enumerations. NOLINTNEXTLINE(clang-analyzer-optin.core.EnumCastOutOfRange)
        constexpr auto flags = GKeyFileFlags(int(G_KEY_FILE_KEEP_COMMENTS) | int(G_KEY_FILE_KEEP_TRANSLATIONS));
        return g_key_file_load_from_data(m_file.get(), text.constData(), gsize(text.size()), flags, nullptr) != FALSE &&
               g_key_file_has_group(m_file.get(), group) != FALSE;
    }
    bool has(const char *key) const { return g_key_file_has_key(m_file.get(), group, key, nullptr) != FALSE; }
    bool flag(const char *key, bool otherwise) const
    {
        return has(key) ? g_key_file_get_boolean(m_file.get(), group, key, nullptr) != FALSE : otherwise;
    }
    /// Takes the value as it is written in the file.
    void set(const char *key, const char *value) { g_key_file_set_value(m_file.get(), group, key, value); }
    /// The same for a text that is to be escaped.
    void setText(const char *key, const QByteArray &text)
    {
        g_key_file_set_string(m_file.get(), group, key, text.constData());
    }
    void remove(const char *key) { g_key_file_remove_key(m_file.get(), group, key, nullptr); }
    QByteArray text() const
    {
        const std::unique_ptr<gchar, decltype(&g_free)> data(g_key_file_to_data(m_file.get(), nullptr, nullptr),
                                                             &g_free);
        return {data.get()};
    }

private:
    const std::unique_ptr<GKeyFile, KeyFileDelete> m_file{g_key_file_new()};
};

AutostartEntry::AutostartEntry(std::unique_ptr<Keys> keys) : m_keys(std::move(keys)) {}
AutostartEntry::AutostartEntry(AutostartEntry &&) noexcept = default;
AutostartEntry &AutostartEntry::operator=(AutostartEntry &&) noexcept = default;
AutostartEntry::~AutostartEntry() = default;

AutostartEntry AutostartEntry::forProgram(const QString &program)
{
    auto keys = std::make_unique<Keys>();
    keys->set("Type", "Application");
    keys->set("Name", "Tamsk Ostrel");
    keys->set("Comment", "Keeps a private, automatic journal of your work");
    keys->setText("Exec", execValue(program));
    // Where the program was removed, nothing is started and nobody is told of an error at each login.
    keys->setText("TryExec", QFile::encodeName(program));
    keys->set("Icon", "com.tamsk.ostrel");
    keys->set("Terminal", "false");
    keys->set("StartupNotify", "false");
    return AutostartEntry(std::move(keys));
}

std::optional<AutostartEntry> AutostartEntry::parse(const QByteArray &text)
{
    auto keys = std::make_unique<Keys>();
    if (!keys->load(text))
        return std::nullopt;
    return AutostartEntry(std::move(keys));
}

bool AutostartEntry::isOn() const
{
    return m_keys->has("Exec") && !m_keys->flag("Hidden", false) && m_keys->flag(gnomeSwitch, true);
}

void AutostartEntry::turn(bool on)
{
    if (!on)
        return m_keys->set("Hidden", "true");
    m_keys->remove("Hidden");
    m_keys->remove(gnomeSwitch);
}

bool AutostartEntry::isUnchanged() const
{
    const auto withoutProgram = [](const QByteArray &text) {
        auto entry = parse(text);
        for (const char *key : {"Exec", "TryExec"})
            entry->m_keys->remove(key);
        return entry->text();
    };
    return withoutProgram(text()) == withoutProgram(forProgram(QStringLiteral("/")).text());
}

QByteArray AutostartEntry::text() const
{
    return m_keys->text();
}

QByteArray execValue(const QString &program)
{
    QByteArray quoted;
    for (const char c : QFile::encodeName(program)) {
        if (QByteArrayView("\"`$\\").contains(c))
            quoted += '\\';
        if (c == '%') // begins a field such as the file that is to be opened
            quoted += '%';
        quoted += c;
    }
    return '"' + quoted + '"';
}

} // namespace ostrel
