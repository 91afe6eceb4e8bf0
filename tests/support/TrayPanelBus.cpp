#include "support/TrayPanelBus.h"

#include "platform/sessionbus/BusCall.h"
#include "platform/sessionbus/SessionBusAddress.h"
#include "support/TestProcess.h"

namespace ostrel {

namespace {

using namespace std::chrono_literals;

constexpr std::chrono::milliseconds patience{10'000};

/// Where the answer to one of several questions goes.
struct Awaited {
    GlibHandle<GVariant> answer;
    int *missing = nullptr;
};

void takeAnswer(GObject *connection, GAsyncResult *result, gpointer data)
{
    auto &awaited = *static_cast<Awaited *>(data);
    awaited.answer.reset(g_dbus_connection_call_finish(G_DBUS_CONNECTION(connection), result, nullptr));
    --*awaited.missing;
}

} // namespace

TrayPanelBus::TrayPanelBus()
{
    const MainContextScope scope(m_context.get());
    GlibHandle<GError> error;
    m_connection = connectToBus(findAddress(), nullptr, error);
    if (!m_connection)
        failTest(QStringLiteral("the accessibility bus can't be reached: %1").arg(QString::fromUtf8(error->message)));
}

TrayPanelBus::~TrayPanelBus()
{
    const MainContextScope scope(m_context.get());
    closeBus(m_connection.get(), m_context.get());
}

QByteArray TrayPanelBus::findAddress()
{
    GlibHandle<GError> error;
    const auto session = connectToBus(sessionBusAddress().toLocal8Bit(), nullptr, error);
    if (!session)
        failTest(QStringLiteral("the session bus can't be reached: %1").arg(QString::fromUtf8(error->message)));
    const BusLine line{.connection = session.get(), .patience = patience, .cancellable = nullptr};
    const auto answer =
        callBus(line, {"org.a11y.Bus", "/org/a11y/bus", "org.a11y.Bus", "GetAddress"}, nullptr, "(s)", error);
    if (!answer)
        failTest(QStringLiteral("there is no accessibility bus: %1").arg(QString::fromUtf8(error->message)));
    const QByteArray address = g_variant_get_string(valueIn(answer.get()).get(), nullptr);
    closeBus(session.get(), m_context.get());
    return address;
}

std::vector<GlibHandle<GVariant>> TrayPanelBus::ask(const std::vector<Question> &questions)
{
    const MainContextScope scope(m_context.get());
    int missing = int(questions.size());
    std::vector<Awaited> awaited(questions.size());
    for (size_t i = 0; i < questions.size(); ++i) {
        const Question &question = questions.at(i);
        awaited.at(i).missing = &missing;
        g_dbus_connection_call(m_connection.get(), question.object.program.constData(),
                               question.object.path.constData(), question.interface, question.method,
                               question.arguments, G_VARIANT_TYPE(question.answerType), G_DBUS_CALL_FLAGS_NONE,
                               int(patience.count()), nullptr, takeAnswer, &awaited.at(i));
    }
    while (missing > 0)
        g_main_context_iteration(m_context.get(), TRUE);
    std::vector<GlibHandle<GVariant>> answers;
    for (Awaited &one : awaited)
        answers.push_back(std::move(one.answer));
    return answers;
}

QByteArray TrayPanelBus::programOf(qint64 processIdentifier)
{
    const Object registry{.program = "org.a11y.atspi.Registry", .path = "/org/a11y/atspi/accessible/root"};
    const auto listed = ask({.object = registry,
                             .interface = "org.a11y.atspi.Accessible",
                             .method = "GetChildren",
                             .answerType = "(a(so))"});
    const QList<Object> programs = listed ? objectsIn(listed.get()) : QList<Object>();
    std::vector<Question> questions;
    questions.reserve(size_t(programs.size()));
    for (const Object &program : programs)
        questions.push_back({.object = {.program = "org.freedesktop.DBus", .path = "/org/freedesktop/DBus"},
                             .interface = "org.freedesktop.DBus",
                             .method = "GetConnectionUnixProcessID",
                             .answerType = "(u)",
                             .arguments = g_variant_new("(s)", program.program.constData())});
    const auto processes = ask(questions);
    for (size_t i = 0; i < processes.size(); ++i) {
        if (processes.at(i) && g_variant_get_uint32(valueIn(processes.at(i).get()).get()) == processIdentifier)
            return programs.at(qsizetype(i)).program;
    }
    return {};
}

QList<TrayPanelBus::Object> TrayPanelBus::objectsIn(GVariant *answer)
{
    const auto list = valueIn(answer);
    QList<Object> objects;
    for (gsize i = 0; i < g_variant_n_children(list.get()); ++i) {
        const char *program = nullptr;
        const char *path = nullptr;
        g_variant_get_child(list.get(), i, "(&s&o)", &program, &path);
        objects.append({.program = program, .path = path});
    }
    return objects;
}

GlibHandle<GVariant> TrayPanelBus::valueIn(GVariant *answer)
{
    GlibHandle<GVariant> value(g_variant_get_child_value(answer, 0));
    if (g_variant_is_of_type(value.get(), G_VARIANT_TYPE_VARIANT) == FALSE)
        return value;
    return GlibHandle<GVariant>(g_variant_get_variant(value.get()));
}

} // namespace ostrel
