#include "app/tray/DesktopLoss.h"
#include "base/Log.h"

#include <QStringList>

#include <gtest/gtest.h>

#include <thread>

using namespace ostrel;

namespace {

/// Takes all messages, in place of the standard error.
class Messages
{
public:
    Messages()
    {
        s_texts.clear();
        m_former = qInstallMessageHandler(
            [](QtMsgType, const QMessageLogContext &, const QString &message) { s_texts.append(message); });
    }
    Messages(const Messages &) = delete;
    Messages &operator=(const Messages &) = delete;
    ~Messages() { qInstallMessageHandler(m_former); }

    static const QStringList &texts() { return s_texts; }

private:
    inline static QStringList s_texts;
    QtMessageHandler m_former = nullptr;
};

class DesktopLossTest : public testing::Test
{
protected:
    Messages m_messages;
    bool m_isLost = false;
    int m_ends = 0;
    DesktopLoss m_loss{[this] { return m_isLost; }, [this] { ++m_ends; }};
};

TEST_F(DesktopLossTest, warningWhileTheDesktopIsThere_isPassedOnAndNothingElse)
{
    qWarning("something of the toolkit's");
    EXPECT_EQ(Messages::texts(), QStringList(QStringLiteral("something of the toolkit's")));
    EXPECT_EQ(m_ends, 0);
}

TEST_F(DesktopLossTest, warningAfterItHasGone_isPassedOnAndTheEndComesOnce)
{
    m_isLost = true;
    qWarning("the connection broke");
    EXPECT_EQ(m_ends, 1);
    qWarning("it broke, I said");
    EXPECT_EQ(m_ends, 1);
    EXPECT_EQ(Messages::texts().size(), 2);
}

TEST_F(DesktopLossTest, messagesOfOurOwn_areNotTakenForTheToolkits)
{
    m_isLost = true;
    qCWarning(logPlatform, "said in the middle of something");
    qInfo("said by nobody in particular");
    EXPECT_EQ(m_ends, 0);
}

TEST_F(DesktopLossTest, warningOnAnotherThread_isLeftToTheMainThreads)
{
    m_isLost = true;
    std::thread([] { qWarning("said elsewhere"); }).join();
    EXPECT_EQ(m_ends, 0);
    qWarning("said here");
    EXPECT_EQ(m_ends, 1);
}

TEST(DesktopLossThatEnded, warning_isPassedOnAsBefore)
{
    const Messages messages;
    int ends = 0;
    {
        const DesktopLoss loss([] { return true; }, [&ends] { ++ends; });
    }
    qWarning("the connection broke");
    EXPECT_EQ(Messages::texts(), QStringList(QStringLiteral("the connection broke")));
    EXPECT_EQ(ends, 0);
}

} // namespace
