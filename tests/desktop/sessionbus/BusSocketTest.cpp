#include "platform/sessionbus/BusSocket.h"
#include "platform/sessionbus/BusNames.h"
#include "support/SessionBus.h"

#include <QTemporaryDir>

#include <algorithm>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

namespace ostrel {
namespace {

using namespace std::chrono_literals;

using Message = GlibHandle<GDBusMessage>;

Message callTo(const char *service, const char *path, const char *method, GVariant *arguments = nullptr)
{
    Message message(g_dbus_message_new_method_call(service, path, BusNames::daemon, method));
    if (arguments != nullptr)
        g_dbus_message_set_body(message.get(), arguments);
    return message;
}

Message callToBus(const char *method, GVariant *arguments = nullptr)
{
    return callTo(BusNames::daemon, BusNames::daemonPath, method, arguments);
}

quint32 post(BusSocket &socket, const Message &message)
{
    return socket.post(BusSocket::encoded(message.get()));
}

/// The answer to a call, whatever else comes meanwhile; null without one.
Message answerTo(BusSocket &socket, quint32 call)
{
    const QDeadlineTimer deadline(5s);
    while (auto message = socket.next(deadline)) {
        if (BusSocket::callAnsweredBy(message.get()) == call)
            return message;
    }
    return nullptr;
}

QByteArray textIn(const Message &message)
{
    GVariant *const body = message ? g_dbus_message_get_body(message.get()) : nullptr;
    const char *text = nullptr;
    if (body != nullptr && g_variant_is_of_type(body, G_VARIANT_TYPE("(s)")) != FALSE)
        g_variant_get(body, "(&s)", &text);
    return text;
}

std::unique_ptr<BusSocket> connectTo(const MessageBus &bus)
{
    return BusSocket::connect(bus.address(), QDeadlineTimer(5s));
}

TEST(BusSocket, questionsPostedTogether_areAllAnswered)
{
    const SessionBus bus;
    const auto socket = connectTo(bus);
    ASSERT_TRUE(socket);
    const quint32 id = post(*socket, callToBus("GetId"));
    const quint32 names = post(*socket, callToBus("ListNames"));
    EXPECT_NE(id, names);
    EXPECT_EQ(textIn(answerTo(*socket, id)).size(), 32);
    EXPECT_TRUE(answerTo(*socket, names));
    EXPECT_FALSE(socket->isLost());
}

TEST(BusSocket, sameMessagePostedTwice_isAnsweredTwice)
{
    const SessionBus bus;
    const auto socket = connectTo(bus);
    const QByteArray question = BusSocket::encoded(callToBus("GetId").get());
    const quint32 first = socket->post(question);
    const quint32 second = socket->post(question);
    EXPECT_TRUE(answerTo(*socket, first));
    EXPECT_TRUE(answerTo(*socket, second));
}

TEST(BusSocket, refusedCall_isAnsweredByTheError)
{
    const SessionBus bus;
    const auto socket = connectTo(bus);
    const auto answer = answerTo(*socket, post(*socket, callToBus("NoSuchMethod")));
    ASSERT_TRUE(answer);
    EXPECT_STREQ(g_dbus_message_get_error_name(answer.get()), "org.freedesktop.DBus.Error.UnknownMethod");
}

TEST(BusSocket, longAnswer_comesWhole)
{
    const SessionBus bus;
    const auto socket = connectTo(bus);
    const QByteArray text(300'000, 'x');
    const auto other = connectTo(bus);
    answerTo(*other, post(*other, callToBus("RequestName", g_variant_new("(su)", "com.example.Other", 0))));
    Message signal(g_dbus_message_new_signal("/x", "com.example.Other", "Told"));
    g_dbus_message_set_body(signal.get(), g_variant_new("(s)", text.constData()));
    answerTo(*socket, post(*socket, callToBus("AddMatch", g_variant_new("(s)", "sender='com.example.Other'"))));
    std::jthread sender([&] { // reads and writes, for neither side can hold all of it
        answerTo(*other, (post(*other, signal), post(*other, callToBus("GetId"))));
    });
    Message heard;
    const QDeadlineTimer deadline(5s);
    do {
        heard = socket->next(deadline);
    } while (heard && textIn(heard) != text);
    EXPECT_TRUE(heard);
}

TEST(BusSocket, signalWithTheNumberOfACall_isNoAnswer)
{
    const Message signal(g_dbus_message_new_signal("/x", "com.example.Other", "Told"));
    g_dbus_message_set_reply_serial(signal.get(), 7);
    EXPECT_EQ(BusSocket::callAnsweredBy(signal.get()), 0U);
}

TEST(BusSocket, callsOfOthers_areRefused)
{
    const SessionBus bus;
    const auto socket = connectTo(bus);
    const auto caller = connectTo(bus);
    answerTo(*socket, post(*socket, callToBus("RequestName", g_variant_new("(su)", "com.example.Deaf", 0))));
    const quint32 call = post(*caller, callTo("com.example.Deaf", "/", "Anything"));
    answerTo(*caller, post(*caller, callToBus("GetId"))); // so the call is on its way
    answerTo(*socket, post(*socket, callToBus("GetId"))); // reads it
    answerTo(*socket, post(*socket, callToBus("GetId"))); // and has sent the refusal
    const auto answer = answerTo(*caller, call);
    ASSERT_TRUE(answer);
    EXPECT_STREQ(g_dbus_message_get_error_name(answer.get()), "org.freedesktop.DBus.Error.UnknownMethod");
}

TEST(BusSocket, droppedSignals_areCountedAndDoNotHideTheNextAnswer)
{
    constexpr int many = 5'000;
    const SessionBus bus;
    const auto socket = connectTo(bus);
    const auto other = connectTo(bus);
    answerTo(*other, post(*other, callToBus("RequestName", g_variant_new("(su)", "com.example.Other", 0))));
    answerTo(*socket, post(*socket, callToBus("AddMatch", g_variant_new("(s)", "sender='com.example.Other'"))));
    const quint64 before = socket->signalCount();
    const Message signal(g_dbus_message_new_signal("/x", "com.example.Other", "Told"));
    for (int i = 0; i < many; ++i)
        post(*other, signal);
    answerTo(*other, post(*other, callToBus("GetId"))); // so all are on their way
    socket->drop(QDeadlineTimer(0));
    EXPECT_EQ(socket->signalCount(), before); // no time, nothing read
    const QDeadlineTimer deadline(5s);
    while (socket->signalCount() < before + many && !deadline.hasExpired())
        socket->drop(deadline);
    EXPECT_EQ(socket->signalCount(), before + many);
    const quint32 call = post(*socket, callToBus("GetId"));
    const auto answer = socket->nextAnswer(deadline);
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->call, call);
}

TEST(BusSocket, callsOfOthersAmongTheDropped_areRefused)
{
    const SessionBus bus;
    const auto socket = connectTo(bus);
    const auto caller = connectTo(bus);
    answerTo(*socket, post(*socket, callToBus("RequestName", g_variant_new("(su)", "com.example.Deaf", 0))));
    const quint32 call = post(*caller, callTo("com.example.Deaf", "/", "Anything"));
    Message answer;
    for (const QDeadlineTimer deadline(5s); !answer && !deadline.hasExpired();) {
        socket->drop(deadline);
        auto heard = caller->next(QDeadlineTimer(1));
        if (heard && BusSocket::callAnsweredBy(heard.get()) == call)
            answer = std::move(heard);
    }
    ASSERT_TRUE(answer);
    EXPECT_STREQ(g_dbus_message_get_error_name(answer.get()), "org.freedesktop.DBus.Error.UnknownMethod");
}

TEST(BusSocket, nothingThereAndNoTime_returnsAtOnce)
{
    const SessionBus bus;
    const auto socket = connectTo(bus);
    while (socket->next(QDeadlineTimer(0))) { // the bus tells our name
    }
    EXPECT_FALSE(socket->next(QDeadlineTimer(0)));
    EXPECT_FALSE(socket->isLost());
}

TEST(BusSocket, busThatEnds_isLost)
{
    SessionBus bus;
    const auto socket = connectTo(bus);
    bus.restart();
    while (socket->next(QDeadlineTimer(5s))) {
    }
    EXPECT_TRUE(socket->isLost());
}

TEST(BusSocket, busThatHangs_isGivenUpInTime)
{
    SessionBus bus;
    bus.process().freeze();
    EXPECT_FALSE(BusSocket::connect(bus.address(), QDeadlineTimer(50)));
    bus.process().thaw();
}

/// What connecting comes to where something else listens that says this to whoever comes.
std::unique_ptr<BusSocket> connectToNoBus(const QByteArray &words)
{
    const QTemporaryDir folder;
    sockaddr_un name{};
    name.sun_family = AF_UNIX;
    const QByteArray path = folder.filePath(QStringLiteral("socket")).toUtf8();
    std::ranges::copy(path, name.sun_path);
    const int listener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    EXPECT_EQ(::bind(listener, reinterpret_cast<const sockaddr *>(&name), sizeof(name)), 0);
    EXPECT_EQ(::listen(listener, 1), 0);
    std::jthread speaker([&] {
        const int visitor = ::accept(listener, nullptr, nullptr);
        EXPECT_EQ(::send(visitor, words.constData(), std::size_t(words.size()), MSG_NOSIGNAL), words.size());
        char byte = 0;
        while (::recv(visitor, &byte, 1, 0) > 0) { // until it has gone
        }
        ::close(visitor);
    });
    auto socket = BusSocket::connect("unix:path=" + path, QDeadlineTimer(300));
    speaker.join();
    ::close(listener);
    return socket;
}

TEST(BusSocket, somethingElseThatListens_isNoBus)
{
    EXPECT_FALSE(connectToNoBus(""));
    EXPECT_FALSE(connectToNoBus("REJECTED EXTERNAL\r\n"));
    EXPECT_FALSE(connectToNoBus(QByteArray(10'000, 'x')));
    EXPECT_FALSE(connectToNoBus("OK 0123\r\n" + QByteArray(64, '\xff')));
}

TEST(BusSocket, secondAddress_isTriedWhereTheFirstLeadsNowhere)
{
    const SessionBus bus;
    EXPECT_TRUE(BusSocket::connect("unix:path=/nowhere/at/all;" + bus.address(), QDeadlineTimer(5s)));
    EXPECT_FALSE(BusSocket::connect("tcp:host=127.0.0.1,port=1", QDeadlineTimer(5s)));
}

} // namespace
} // namespace ostrel
