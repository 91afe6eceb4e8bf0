#include "app/ObserverStatusText.h"

#include "support/Printers.h"

#include <gtest/gtest.h>

using namespace ostrel;

namespace {

class StatusText : public testing::Test
{
protected:
    /// A moment of the given day in whatever zone the machine is in.
    static QDateTime local(const char *text)
    {
        return QDateTime::fromString(QString::fromLatin1(text), QStringLiteral("yyyy-MM-dd HH:mm:ss"));
    }
    QStringList lines() const { return statusText(m_status, m_now).trimmed().split(u'\n'); }

    const QDateTime m_now = local("2026-11-21 15:00:00");
    ObserverStatus m_status;
};

TEST_F(StatusText, idleObserver_isThreeCalmLinesAndNoError)
{
    EXPECT_EQ(lines(), QStringList({QStringLiteral("state        idle"), QStringLiteral("last chunk   none yet"),
                                    QStringLiteral("backlog      nothing waits to be analysed"),
                                    QStringLiteral("last error   none")}));
}

TEST_F(StatusText, recording_isToldInLocalTime)
{
    m_status.running = true;
    m_status.sessionId = QStringLiteral("2026-11-21T09-30-05-7");
    m_status.chunkIndex = 12;
    m_status.lastChunkAt = local("2026-11-21 14:34:05").toUTC().toString(Qt::ISODate);
    m_status.lastAction = QStringLiteral("Wrote 2 journal lines.");
    m_status.lastError = QStringLiteral("The disk is full.");
    m_status.pendingAnalysisChunks = 3;
    EXPECT_EQ(lines(), QStringList({QStringLiteral("state        recording since 09:30:05"),
                                    QStringLiteral("last chunk   number 12, at 14:34:05"),
                                    QStringLiteral("backlog      3 chunks wait to be analysed"),
                                    QStringLiteral("last action  Wrote 2 journal lines."),
                                    QStringLiteral("last error   The disk is full.")}));
}

TEST_F(StatusText, recorderThatComplains_isQuotedBesideTheObserver)
{
    const auto text = statusText(m_status, m_now, QStringLiteral("Screen capture has stalled"));
    EXPECT_TRUE(text.contains(QStringLiteral("recorder     Screen capture has stalled\nlast error   none\n")))
        << qPrintable(text);
}

TEST_F(StatusText, timesOfAnotherDay_nameIt)
{
    m_status.sessionId = QStringLiteral("2026-11-20T23-59-59-1");
    m_status.lastChunkAt = QStringLiteral("whenever");
    EXPECT_EQ(lines()[0], QStringLiteral("state        idle; the last session began at 2026-11-20 23:59:59"));
    EXPECT_EQ(lines()[1], QStringLiteral("last chunk   number 0, at whenever")) << "what is no time stays as it is";
}

TEST_F(StatusText, sessionOfAnotherForm_isLeftOut)
{
    m_status.running = true;
    m_status.sessionId = QStringLiteral("session 9");
    EXPECT_EQ(lines()[0], QStringLiteral("state        recording"));
}

TEST_F(StatusText, blockedBacklog_saysWhy)
{
    m_status.pendingAnalysisChunks = 1;
    m_status.analysisBackfillBlocked = true;
    m_status.analysisBackfillLastError = QStringLiteral("The server refused the credential.");
    EXPECT_EQ(lines()[2],
              QStringLiteral("backlog      1 chunk waits to be analysed; blocked: The server refused the credential."));
}

TEST_F(StatusText, json_hasTenFieldsAndNullForTheAbsent)
{
    m_status.chunkIndex = 9007199254740993;
    const QJsonObject json = statusJson(m_status);
    EXPECT_EQ(json.size(), 10);
    EXPECT_EQ(json.value(QStringLiteral("running")), false);
    EXPECT_EQ(json.value(QStringLiteral("chunkIndex")).toInteger(), 9007199254740993);
    for (const char *absent : {"sessionId", "lastAction", "lastError", "lastChunkAt", "pendingAnalysisChunks",
                               "analysisBackfillActive", "analysisBackfillBlocked", "analysisBackfillLastError"})
        EXPECT_TRUE(json.value(QLatin1String(absent)).isNull()) << absent;
}

} // namespace
