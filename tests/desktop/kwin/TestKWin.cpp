#include "TestKWin.h"

#include "base/Files.h"
#include "platform/kwin/KWinScript.h"

#include <QFile>

#include <sys/stat.h>

namespace ostrel {

TestKWin::TestKWin(const QByteArray &busAddress, Ways ways)
    : m_ways(ways), m_service(busAddress, "org.kde.KWin", [this](GDBusMessage *call) { return handle(call); })
{}

bool TestKWin::handle(GDBusMessage *call)
{
    const std::scoped_lock lock(m_mutex);
    const QByteArray member = g_dbus_message_get_member(call);
    if (member == "run")
        return run(call);
    if (member == "Get" && g_strcmp0(g_dbus_message_get_path(call), "/Effects") == 0) {
        tellEffects(call);
        return true;
    }
    if (g_strcmp0(g_dbus_message_get_path(call), "/Scripting") != 0)
        return false;
    GVariant *body = g_dbus_message_get_body(call);
    const char *first = "";
    const char *second = "";
    if (member == "loadScript") {
        g_variant_get(body, "(&s&s)", &first, &second);
        load(call, first, second);
        return true;
    }
    if (member == "unloadScript") {
        g_variant_get(body, "(&s)", &first);
        unload(call, first);
        return true;
    }
    if (member == "isScriptLoaded") {
        g_variant_get(body, "(&s)", &first);
        tellWhetherLoaded(call, first);
        return true;
    }
    return false;
}

void TestKWin::tellWhetherLoaded(GDBusMessage *call, const char *name)
{
    ++m_questions;
    if (m_ways.saysWhatIsLoaded)
        m_service.reply(call, g_variant_new("(b)", gboolean(m_ways.keepsScripts && m_loaded.contains(name))));
}

void TestKWin::tellEffects(GDBusMessage *call)
{
    GVariantBuilder names;
    g_variant_builder_init(&names, G_VARIANT_TYPE_STRING_ARRAY);
    for (const QByteArray &effect : m_effects)
        g_variant_builder_add(&names, "s", effect.constData());
    m_service.reply(call, g_variant_new("(v)", g_variant_builder_end(&names)));
}

void TestKWin::showEffects(const QByteArrayList &effects)
{
    const std::scoped_lock lock(m_mutex);
    m_effects = effects;
}

int TestKWin::questions()
{
    const std::scoped_lock lock(m_mutex);
    return m_questions;
}

void TestKWin::answerQuestions(bool isAnswering)
{
    const std::scoped_lock lock(m_mutex);
    m_ways.saysWhatIsLoaded = isAnswering;
}

void TestKWin::unloadAll()
{
    const std::scoped_lock lock(m_mutex);
    m_loaded.fill(QByteArray());
    m_running.clear();
}

void TestKWin::load(GDBusMessage *call, const char *file, const char *name)
{
    ++m_asked;
    m_file = file;
    m_script = readFile(QFile::decodeName(file)).value_or(QByteArray());
    struct stat status = {};
    m_scriptMode = ::stat(file, &status) == 0 ? int(status.st_mode & 0777U) : 0;
    const bool isTaken = m_ways.takesScripts && !m_loaded.contains(name);
    if (isTaken)
        m_loaded.push_back(name);
    m_service.reply(call, g_variant_new("(i)", isTaken ? int(m_loaded.size()) - 1 : -1));
}

void TestKWin::unload(GDBusMessage *call, const char *name)
{
    const qsizetype number = m_loaded.indexOf(name);
    if (number >= 0)
        m_loaded[number].clear();
    m_running.removeAll(name);
    m_service.reply(call, g_variant_new("(b)", gboolean(number >= 0)));
}

bool TestKWin::run(GDBusMessage *call)
{
    for (qsizetype number = 0; number < m_loaded.size(); ++number) {
        if (m_ways.scriptPath + QByteArray::number(number) != g_dbus_message_get_path(call))
            continue;
        m_running.push_back(m_loaded[number]);
        if (m_ways.saysThatTheyRun)
            m_service.reply(call, nullptr);
        return true;
    }
    return false;
}

int TestKWin::running()
{
    const std::scoped_lock lock(m_mutex);
    return int(m_running.size());
}

int TestKWin::asked()
{
    const std::scoped_lock lock(m_mutex);
    return m_asked;
}

QByteArray TestKWin::script()
{
    const std::scoped_lock lock(m_mutex);
    return m_script;
}

int TestKWin::scriptMode()
{
    const std::scoped_lock lock(m_mutex);
    return m_scriptMode;
}

bool TestKWin::isScriptThere()
{
    const std::scoped_lock lock(m_mutex);
    return QFile::exists(QFile::decodeName(m_file));
}

void TestKWin::takeScripts()
{
    const std::scoped_lock lock(m_mutex);
    m_ways.takesScripts = true;
}

PlayedService::Method TestKWin::listenerIn(const QByteArray &script)
{
    const QByteArray before = "const listener = \"";
    const qsizetype begin = script.indexOf(before) + before.size();
    return {.destination = script.mid(begin, script.indexOf('"', begin) - begin),
            .path = KWinListener::path,
            .interface = KWinListener::interface,
            .name = KWinListener::method};
}

QByteArray TestKWin::tell(const QByteArray &json)
{
    return m_service.call(listenerIn(script()), g_variant_new("(s)", json.constData()));
}

} // namespace ostrel
