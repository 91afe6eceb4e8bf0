#include "platform/sway/SwayForegroundSource.h"

#include "support/WaylandDesktop.h"

#include <QElapsedTimer>
#include <QTemporaryDir>

#include <cstring>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

using namespace ostrel;

namespace {

ForegroundApplication lookUp(const QString &windowClass)
{
    return {.localizedName = QStringLiteral("The %1").arg(windowClass), .bundleIdentifier = windowClass};
}

/// Answers the first question with bytes of the test's own, then stays silent until it is destroyed.
class ScriptedSway
{
public:
    explicit ScriptedSway(QByteArray answer) : m_answer(std::move(answer))
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        const QByteArray name = path();
        std::memcpy(address.sun_path, name.constData(), std::size_t(name.size()));
        m_listener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (::bind(m_listener, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0 ||
            ::listen(m_listener, 1) != 0)
            failTest(QStringLiteral("no socket for a false sway"));
        m_thread = std::jthread([this] { serve(); });
    }
    ScriptedSway(const ScriptedSway &) = delete;
    ScriptedSway &operator=(const ScriptedSway &) = delete;
    ~ScriptedSway()
    {
        ::shutdown(m_listener, SHUT_RDWR);
        m_thread.join();
        ::close(m_listener);
    }

    QByteArray path() const { return m_folder.filePath(QStringLiteral("sock")).toLocal8Bit(); }

private:
    void serve() const
    {
        const int client = ::accept(m_listener, nullptr, nullptr);
        if (client < 0)
            return;
        ::send(client, m_answer.constData(), std::size_t(m_answer.size()), MSG_NOSIGNAL);
        char rest[256];
        while (::recv(client, rest, sizeof(rest), 0) > 0) {
        } // until the other side has had enough
        ::close(client);
    }

    QTemporaryDir m_folder;
    QByteArray m_answer;
    int m_listener = -1;
    std::jthread m_thread;
};

QByteArray message(quint32 length, quint32 type, const QByteArray &payload)
{
    QByteArray bytes("i3-ipc");
    bytes.append(reinterpret_cast<const char *>(&length), sizeof(length));
    bytes.append(reinterpret_cast<const char *>(&type), sizeof(type));
    return bytes + payload;
}

QByteArray answer(const QByteArray &payload)
{
    return message(quint32(payload.size()), 4, payload);
}

std::optional<ForegroundApplication> applicationBy(const QByteArray &bytes)
{
    const ScriptedSway sway(bytes);
    return SwayForegroundSource(sway.path(), lookUp).frontmostApplication();
}

class SwayForeground : public testing::Test
{
protected:
    SwayForeground()
        : m_desktop({{.pixels = {400, 300}, .corner = {500, 200}}, {.pixels = {400, 300}, .corner = {100, 200}}})
    {}

    WaylandDesktop m_desktop;
    SwayForegroundSource m_source{{}, lookUp};
};

TEST_F(SwayForeground, focusedTerminal_isNamedWithItsWindowInTheMainDisplaysCoordinates)
{
    m_desktop.command(QStringLiteral("focus output HEADLESS-1"));
    const TestProcess &terminal =
        m_desktop.startTerminal(QStringLiteral("org.example.Terminal"), QStringLiteral("Left to do"), "102030");
    const auto application = m_source.frontmostApplication();
    ASSERT_TRUE(application);
    EXPECT_EQ(application->localizedName, QStringLiteral("The org.example.Terminal"));
    EXPECT_EQ(application->bundleIdentifier, QStringLiteral("org.example.Terminal"));
    EXPECT_EQ(application->processIdentifier, terminal.pid());
    EXPECT_EQ(application->windowClass, QStringLiteral("org.example.Terminal"));
    const auto window = m_source.focusedWindow();
    ASSERT_TRUE(window);
    EXPECT_EQ(window->title, QStringLiteral("Left to do"));
    EXPECT_EQ(window->frame, QRectF(400, 0, 400, 300));
}

TEST_F(SwayForeground, titleBar_belongsToTheFrame)
{
    m_desktop.command(QStringLiteral("default_border normal"));
    m_desktop.command(QStringLiteral("focus output HEADLESS-2"));
    m_desktop.startTerminal(QStringLiteral("one"), QStringLiteral("One"), "102030");
    ASSERT_TRUE(m_source.frontmostApplication());
    EXPECT_EQ(m_source.focusedWindow()->frame, QRectF(0, 0, 400, 300));
}

TEST_F(SwayForeground, focusThatMoves_isFollowed)
{
    m_desktop.startTerminal(QStringLiteral("one"), QStringLiteral("One"), "102030");
    m_desktop.startTerminal(QStringLiteral("two"), QStringLiteral("Two"), "302010");
    m_desktop.command(QStringLiteral("[app_id=one] focus"));
    EXPECT_EQ(m_source.frontmostApplication()->windowClass, QStringLiteral("one"));
    m_desktop.command(QStringLiteral("[app_id=two] focus"));
    EXPECT_EQ(m_source.focusedWindow()->title, QStringLiteral("One")) << "the window of the application told last";
    EXPECT_EQ(m_source.frontmostApplication()->windowClass, QStringLiteral("two"));
    EXPECT_EQ(m_source.focusedWindow()->title, QStringLiteral("Two"));
}

TEST_F(SwayForeground, emptyWorkspace_hasNoApplication)
{
    EXPECT_FALSE(m_source.frontmostApplication());
    EXPECT_FALSE(m_source.focusedWindow());
}

TEST_F(SwayForeground, pointer_isAbsentAndSaidToBe)
{
    EXPECT_FALSE(m_source.mouseLocation());
    ASSERT_EQ(m_source.unavailableFacts().size(), 1);
    EXPECT_EQ(m_source.unavailableFacts().first().fact, QStringLiteral("pointer position"));
}

TEST_F(SwayForeground, swayThatGoes_leavesNothing)
{
    m_desktop.startTerminal(QStringLiteral("one"), QStringLiteral("One"), "102030");
    ASSERT_TRUE(m_source.frontmostApplication());
    m_desktop.compositor().kill();
    EXPECT_FALSE(m_source.frontmostApplication());
    EXPECT_FALSE(m_source.focusedWindow());
}

TEST_F(SwayForeground, swayThatHangs_doesNotKeepUs)
{
    m_desktop.startTerminal(QStringLiteral("one"), QStringLiteral("One"), "102030");
    m_desktop.compositor().freeze();
    QElapsedTimer elapsed;
    elapsed.start();
    EXPECT_FALSE(m_source.frontmostApplication());
    EXPECT_GE(elapsed.elapsed(), 250);
    EXPECT_LT(elapsed.elapsed(), 5'000);
    m_desktop.compositor().thaw();
    EXPECT_TRUE(m_source.frontmostApplication());
}

TEST(SwayAnswers, wellFormedTree_isUnderstood)
{
    const auto application = applicationBy(answer(R"({"nodes":[{"focused":true,"app_id":"a","pid":5}]})"));
    ASSERT_TRUE(application);
    EXPECT_EQ(application->processIdentifier, 5);
}

TEST(SwayAnswers, foreignProtocol_isAbsent)
{
    EXPECT_FALSE(applicationBy("HTTP/1.1 400 Bad Request\r\n\r\n"));
}

TEST(SwayAnswers, answerToAnotherQuestion_isAbsent)
{
    EXPECT_FALSE(applicationBy(message(2, 3, "{}")));
}

TEST(SwayAnswers, malformedJson_isAbsent)
{
    EXPECT_FALSE(applicationBy(answer("{\"nodes\":[{\"focused\":tru")));
}

TEST(SwayAnswers, answerThatStopsHalfway_isAbsent)
{
    EXPECT_FALSE(applicationBy(message(100, 4, "{\"nodes\":[]")));
}

TEST(SwayAnswers, enormousAnswer_isNotReadAtAll)
{
    QElapsedTimer elapsed;
    elapsed.start();
    EXPECT_FALSE(applicationBy(message(16'000'001, 4, "{")));
    EXPECT_LT(elapsed.elapsed(), 200) << "without waiting for the rest";
}

TEST(SwayAnswers, noSocket_isAbsent)
{
    EXPECT_FALSE(SwayForegroundSource("/nonexistent/sock", lookUp).frontmostApplication());
    EXPECT_FALSE(SwayForegroundSource(QByteArray(300, 'x'), lookUp).frontmostApplication());
}

} // namespace
