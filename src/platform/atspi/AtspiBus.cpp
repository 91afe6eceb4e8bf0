#include "platform/atspi/AtspiBus.h"

#include "platform/sessionbus/SessionBusAddress.h"

#include <QElapsedTimer>

#include <algorithm>
#include <iterator>
#include <utility>

namespace ostrel {

namespace {

constexpr qint64 longestWaitMs = 250;
/// What took longer may take long again: it is asked when it is needed, or given up by whoever asks.
constexpr qint64 soonMs = 50;
/// A browser's sample has about a dozen questions. Of walks over a tree the beginning has to do: the program must have
/// answered everything within the wait.
constexpr std::size_t mostAhead = 32;

AtspiBus::Outcome outcomeOf(const GError *error)
{
    using Outcome = AtspiBus::Outcome;
    if (g_error_matches(error, G_IO_ERROR, G_IO_ERROR_TIMED_OUT) != FALSE)
        return Outcome::Silent;
    if (error->domain != G_DBUS_ERROR)
        return Outcome::Refused;
    switch (error->code) {
    case G_DBUS_ERROR_TIMEOUT:
    case G_DBUS_ERROR_TIMED_OUT:
        return Outcome::Silent;
    case G_DBUS_ERROR_SERVICE_UNKNOWN:
    case G_DBUS_ERROR_NAME_HAS_NO_OWNER:
    case G_DBUS_ERROR_NO_REPLY: // it has ended before it answered
        return Outcome::Gone;
    case G_DBUS_ERROR_UNKNOWN_METHOD:
    case G_DBUS_ERROR_UNKNOWN_INTERFACE:
        return Outcome::Unknown;
    default:
        return Outcome::Refused;
    }
}

bool isSame(const AtspiBus::Call &one, const AtspiBus::Call &other)
{
    const bool sameArguments = one.arguments && other.arguments
                                   ? g_variant_equal(one.arguments.get(), other.arguments.get()) != FALSE
                                   : !one.arguments && !other.arguments;
    return one.path == other.path && qstrcmp(one.method, other.method) == 0 &&
           qstrcmp(one.interface, other.interface) == 0 && one.name == other.name && sameArguments;
}

AtspiBus::Reply copyOf(const AtspiBus::Reply &reply)
{
    return {.outcome = reply.outcome,
            .value = GlibHandle<GVariant>(reply.value ? g_variant_ref(reply.value.get()) : nullptr),
            .elapsedMs = reply.elapsedMs};
}

} // namespace

/// Answers that have not all come yet.
struct AtspiBus::Waiting {
    std::size_t open = 0;
    QElapsedTimer elapsed;
};

struct AtspiBus::Question {
    Call call = {};
    Reply reply = {};
    bool isAnswered = false; ///< in whichever way
    Waiting *waiting = nullptr;
};

AtspiBus::AtspiBus() : m_context(g_main_context_new()) {}

AtspiBus::~AtspiBus()
{
    m_connection.reset();
    // A connection that was lost waits in there to be reported, and would keep itself and the context alive.
    while (g_main_context_iteration(m_context.get(), FALSE) != FALSE) {
    }
}

void AtspiBus::beginSample(QDeadlineTimer deadline)
{
    m_deadline = deadline;
    m_silent.clear();
    m_ahead.clear();
    m_askedBefore = std::exchange(m_asked, {});
    const MainContextScope scope(m_context.get());
    while (g_main_context_iteration(m_context.get(), FALSE) != FALSE) {
    }
    if (!m_connection || g_dbus_connection_is_closed(m_connection.get()) != FALSE)
        connect();
}

int AtspiBus::patienceMs() const
{
    const qint64 left = m_deadline.isForever() ? longestWaitMs : m_deadline.remainingTime();
    return int(std::min(left, longestWaitMs));
}

void AtspiBus::connect()
{
    m_connection.reset();
    ++m_generation;
    const QByteArray address = findAddress();
    if (!address.isEmpty())
        m_connection = open(address);
}

QByteArray AtspiBus::findAddress()
{
    const QByteArray sessionAddress = sessionBusAddress().toUtf8();
    if (sessionAddress.isEmpty())
        return {};
    m_connection = open(sessionAddress);
    const Reply reply = ask({.name = "org.a11y.Bus",
                             .path = "/org/a11y/bus",
                             .interface = "org.a11y.Bus",
                             .method = "GetAddress",
                             .arguments = {},
                             .replyType = "(s)"});
    m_connection.reset();
    if (!reply.value)
        return {};
    const GlibHandle<GVariant> address(g_variant_get_child_value(reply.value.get(), 0));
    const QByteArray text = g_variant_get_string(address.get(), nullptr);
    return g_dbus_is_supported_address(text.constData(), nullptr) != FALSE ? text : QByteArray();
}

GlibHandle<GDBusConnection> AtspiBus::open(const QByteArray &address) const
{
    const int patience = patienceMs();
    return patience > 0 ? connectToBusInTime(address, m_context.get(), patience) : nullptr;
}

GlibHandle<GVariant> AtspiBus::arguments(GVariant *floating)
{
    return GlibHandle<GVariant>(g_variant_ref_sink(floating));
}

AtspiBus::Reply AtspiBus::ask(Call call)
{
    std::vector<Call> calls;
    calls.push_back(std::move(call));
    return std::move(ask(std::move(calls)).front());
}

std::vector<AtspiBus::Reply> AtspiBus::ask(std::vector<Call> calls)
{
    std::vector<Question> questions(calls.size());
    for (std::size_t i = 0; i < calls.size(); ++i) {
        questions[i].call = std::move(calls[i]);
        if (const Question *const ahead = answeredAhead(questions[i].call)) {
            questions[i].reply = copyOf(ahead->reply);
            questions[i].isAnswered = true;
        }
    }
    exchange(questions);
    std::vector<Reply> replies;
    replies.reserve(questions.size());
    std::ranges::transform(questions, std::back_inserter(replies),
                           [](const Question &question) { return copyOf(question.reply); });
    remember(std::move(questions));
    return replies;
}

void AtspiBus::askAhead(const QByteArray &name)
{
    const auto own = std::ranges::partition(m_askedBefore, [&](const Call &call) { return call.name != name; });
    std::vector<Question> questions(own.size());
    std::ranges::transform(own, questions.begin(), [](Call &call) { return Question{.call = std::move(call)}; });
    m_askedBefore.erase(own.begin(), own.end());
    exchange(questions);
    std::ranges::move(questions, std::back_inserter(m_ahead));
}

void AtspiBus::exchange(std::vector<Question> &questions)
{
    const MainContextScope scope(m_context.get());
    Waiting waiting;
    waiting.elapsed.start();
    for (Question &question : questions) {
        if (!m_connection || question.isAnswered)
            continue;
        if (patienceMs() <= 0 || m_silent.contains(question.call.name)) {
            question.reply.outcome = Outcome::Silent;
            continue;
        }
        ++waiting.open;
        question.waiting = &waiting;
        send(m_connection.get(), &question);
    }
    while (waiting.open > 0) // each call has a time-out of its own
        g_main_context_iteration(m_context.get(), TRUE);
    for (const Question &question : questions) {
        if (question.reply.outcome == Outcome::Silent)
            forget(question.call.name);
    }
}

void AtspiBus::send(GDBusConnection *connection, Question *question) const
{
    const Call &call = question->call;
    g_dbus_connection_call(connection, call.name.constData(), call.path.constData(), call.interface, call.method,
                           call.arguments.get(), G_VARIANT_TYPE(call.replyType), G_DBUS_CALL_FLAGS_NO_AUTO_START,
                           patienceMs(), nullptr, &AtspiBus::takeReply, question);
}

void AtspiBus::takeReply(GObject *source, GAsyncResult *result, gpointer question)
{
    auto *const answered = static_cast<Question *>(question);
    GlibHandle<GError> error;
    // GObjects are known by their first member. NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast)
    auto *const connection = reinterpret_cast<GDBusConnection *>(source);
    Reply &reply = answered->reply;
    reply.value.reset(g_dbus_connection_call_finish(connection, result, ErrorOut(error)));
    reply.outcome = reply.value ? Outcome::Answered : outcomeOf(error.get());
    reply.elapsedMs = answered->waiting->elapsed.elapsed();
    answered->isAnswered = true;
    --answered->waiting->open;
}

const AtspiBus::Question *AtspiBus::answeredAhead(const Call &call) const
{
    const auto found = std::ranges::find_if(
        m_ahead, [&](const Question &question) { return question.isAnswered && isSame(question.call, call); });
    return found == m_ahead.end() ? nullptr : &*found;
}

void AtspiBus::remember(std::vector<Question> questions)
{
    for (Question &question : questions) {
        const bool isWorthIt = question.isAnswered && question.reply.outcome != Outcome::Silent &&
                               question.reply.elapsedMs < soonMs && m_asked.size() < mostAhead;
        const auto isThisOne = [&](const Call &asked) { return isSame(asked, question.call); };
        if (isWorthIt && std::ranges::none_of(m_asked, isThisOne))
            m_asked.push_back(std::move(question.call));
    }
}

/// A program that hangs is left in peace for the rest of the sample, and asked one thing only in the next.
void AtspiBus::forget(const QByteArray &name)
{
    m_silent.insert(name);
    std::erase_if(m_asked, [&](const Call &call) { return call.name == name; });
}

} // namespace ostrel
