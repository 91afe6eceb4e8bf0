#include "platform/atspi/AtspiBus.h"

#include "platform/sessionbus/SessionBusAddress.h"

#include <QElapsedTimer>

#include <algorithm>
#include <chrono>
#include <iterator>
#include <thread>
#include <utility>

namespace ostrel {

namespace {

constexpr qint64 longestWaitMs = 250;
/// For reading what has come meanwhile, which is nothing as a rule.
constexpr qint64 flushMs = 50;
/// What took longer may take long again: it is asked when it is needed, or given up by whoever asks.
constexpr qint64 soonMs = 50;
/// A browser's sample has about a dozen questions. Of walks over a tree the beginning has to do: the program must have
/// answered everything within the wait.
constexpr std::size_t mostAhead = 32;
/// Longer answers are read anew each time, and not kept for it.
constexpr qsizetype longestKept = 16'384;
/// Answers come one after the other, and to be woken up for each costs more than to read it.
constexpr std::size_t worthGathering = 3;
/// The pauses in which the last of them come.
constexpr std::chrono::microseconds gatheringPause{250};
/// A program that takes longer is looked after all the same: it must not make every later sample as slow.
constexpr std::chrono::microseconds longestGathering{4'000};

AtspiBus::Outcome outcomeOf(const GError *error)
{
    using Outcome = AtspiBus::Outcome;
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
    case G_DBUS_ERROR_UNKNOWN_OBJECT:
        return Outcome::NotThere;
    default:
        return Outcome::Refused;
    }
}

bool isSame(const GlibHandle<GVariant> &one, const GlibHandle<GVariant> &other)
{
    return one == other || (one && other && g_variant_equal(one.get(), other.get()) != FALSE);
}

bool isSame(const AtspiBus::Call &one, const AtspiBus::Call &other)
{
    return one.path == other.path && qstrcmp(one.method, other.method) == 0 &&
           qstrcmp(one.interface, other.interface) == 0 && one.name == other.name &&
           isSame(one.arguments, other.arguments);
}

QByteArray encoded(const AtspiBus::Call &call, int flags = G_DBUS_MESSAGE_FLAGS_NO_AUTO_START)
{
    const GlibHandle<GDBusMessage> message(
        g_dbus_message_new_method_call(call.name.constData(), call.path.constData(), call.interface, call.method));
    g_dbus_message_set_flags(message.get(), GDBusMessageFlags(flags));
    if (call.arguments)
        g_dbus_message_set_body(message.get(), call.arguments.get());
    return BusSocket::encoded(message.get());
}

/// @param type what counts as an answer
AtspiBus::Reply replyIn(GDBusMessage *message, const char *type)
{
    GlibHandle<GError> error;
    if (g_dbus_message_to_gerror(message, ErrorOut(error)) != FALSE)
        return {.outcome = outcomeOf(error.get()), .value = {}};
    GVariant *const body = g_dbus_message_get_body(message);
    GlibHandle<GVariant> value(body != nullptr ? g_variant_ref(body)
                                               : AtspiBus::arguments(g_variant_new("()")).release());
    if (g_variant_is_of_type(value.get(), G_VARIANT_TYPE(type)) == FALSE)
        return {};
    return {.outcome = AtspiBus::Outcome::Answered, .value = std::move(value)};
}

AtspiBus::Reply copyOf(const AtspiBus::Reply &reply)
{
    return {.outcome = reply.outcome,
            .value = GlibHandle<GVariant>(reply.value ? g_variant_ref(reply.value.get()) : nullptr),
            .elapsedMs = reply.elapsedMs};
}

} // namespace

void AtspiBus::beginSample(QDeadlineTimer deadline)
{
    m_deadline = deadline;
    m_silent.clear();
    m_ahead.clear();
    m_askedBefore = std::exchange(m_asked, {});
    if (m_bus)
        m_bus->drop(deadline); // answers that came too late, and news that there was no need to wait for
    if (!m_bus || m_bus->isLost())
        connect();
}

int AtspiBus::patienceMs() const
{
    const qint64 left = m_deadline.isForever() ? longestWaitMs : m_deadline.remainingTime();
    return int(std::min(left, longestWaitMs));
}

void AtspiBus::connect()
{
    ++m_generation;
    const QByteArray address = findAddress();
    m_bus = address.isEmpty() ? nullptr : open(address);
}

QByteArray AtspiBus::findAddress()
{
    const QByteArray sessionAddress = sessionBusAddress().toUtf8();
    if (sessionAddress.isEmpty())
        return {};
    m_bus = open(sessionAddress);
    const Reply reply = ask({.name = "org.a11y.Bus",
                             .path = "/org/a11y/bus",
                             .interface = "org.a11y.Bus",
                             .method = "GetAddress",
                             .arguments = {},
                             .replyType = "(s)"});
    if (!reply.value)
        return {};
    const GlibHandle<GVariant> address(g_variant_get_child_value(reply.value.get(), 0));
    return g_variant_get_string(address.get(), nullptr);
}

std::unique_ptr<BusSocket> AtspiBus::open(const QByteArray &address) const
{
    return BusSocket::connect(address, QDeadlineTimer(patienceMs()));
}

GlibHandle<GVariant> AtspiBus::arguments(GVariant *floating)
{
    return GlibHandle<GVariant>(g_variant_ref_sink(floating));
}

GlibHandle<GVariant> AtspiBus::sharedArguments(const GlibHandle<GVariant> &arguments)
{
    return GlibHandle<GVariant>(g_variant_ref(arguments.get()));
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
            questions[i].call.encoded = ahead->call.encoded;
            questions[i].call.known = ahead->call.known;
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

void AtspiBus::tell(const Call &call)
{
    if (m_bus)
        m_bus->post(encoded(call, G_DBUS_MESSAGE_FLAGS_NO_AUTO_START | G_DBUS_MESSAGE_FLAGS_NO_REPLY_EXPECTED));
}

void AtspiBus::flush()
{
    if (m_bus)
        m_bus->drop(QDeadlineTimer(flushMs));
}

void AtspiBus::askAhead(const QByteArray &name)
{
    const auto own = std::ranges::partition(m_askedBefore, [&](const Call &call) { return call.name != name; });
    std::vector<Question> questions(own.size());
    std::ranges::transform(own, questions.begin(), [](Call &call) { return Question{.call = std::move(call)}; });
    m_askedBefore.erase(own.begin(), own.end());
    QElapsedTimer elapsed;
    elapsed.start();
    // A little less than the last time, so that it shrinks, too.
    exchange(questions, std::min<std::chrono::nanoseconds>(m_usualTime * 7 / 8, longestGathering));
    if (questions.size() >= worthGathering)
        m_usualTime = std::chrono::nanoseconds(elapsed.nsecsElapsed());
    std::ranges::move(questions, std::back_inserter(m_ahead));
}

/// @param gathering how long nobody looks for answers
void AtspiBus::exchange(std::vector<Question> &questions, std::chrono::nanoseconds gathering)
{
    QElapsedTimer elapsed;
    elapsed.start();
    QHash<quint32, Question *> open = post(questions);
    const QDeadlineTimer end(patienceMs());
    if (std::size_t(open.size()) >= worthGathering) {
        m_bus->send();
        std::this_thread::sleep_for(std::min<std::chrono::nanoseconds>(gathering, end.remainingTimeAsDuration()));
    }
    while (!open.isEmpty()) {
        auto answer = m_bus->nextAnswer(end);
        if (!answer)
            break;
        if (Question *const question = open.take(answer->call)) {
            take(*question, *std::move(answer));
            question->reply.elapsedMs = elapsed.elapsed();
        }
        if (std::size_t(open.size()) >= worthGathering && !m_bus->hasReceived())
            std::this_thread::sleep_for(gatheringPause);
    }
    for (Question *const question : std::as_const(open)) {
        question->reply = {.outcome = m_bus->isLost() ? Outcome::Refused : Outcome::Silent,
                           .value = {},
                           .elapsedMs = elapsed.elapsed()};
        question->isAnswered = true;
    }
    for (const Question &question : questions) {
        if (question.reply.outcome == Outcome::Silent)
            forget(question.call.name);
    }
}

void AtspiBus::take(Question &question, BusAnswerBytes answer)
{
    question.isAnswered = true;
    auto &known = question.call.known;
    if (known && known->content == answer.content) {
        question.reply = copyOf(known->reply);
        return;
    }
    const auto message = answer.message();
    question.reply = message ? replyIn(message.get(), question.call.replyType) : Reply();
    known = answer.content.size() > longestKept
                ? nullptr
                : std::make_shared<AtspiKnownAnswer>(
                      AtspiKnownAnswer{.content = std::move(answer.content), .reply = copyOf(question.reply)});
}

/// @return by what their answers refer to
QHash<quint32, AtspiBus::Question *> AtspiBus::post(std::vector<Question> &questions)
{
    QHash<quint32, Question *> open;
    const bool mayWait = patienceMs() > 0;
    for (Question &question : questions) {
        if (!m_bus || question.isAnswered)
            continue;
        if (!mayWait || m_silent.contains(question.call.name)) {
            question.reply.outcome = Outcome::Silent;
            continue;
        }
        if (question.call.encoded.isEmpty())
            question.call.encoded = encoded(question.call);
        open.insert(m_bus->post(question.call.encoded), &question);
    }
    return open;
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
        const bool isWorthIt = question.call.isAskedAhead && question.isAnswered &&
                               question.reply.outcome != Outcome::Silent && question.reply.elapsedMs < soonMs &&
                               m_asked.size() < mostAhead;
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
