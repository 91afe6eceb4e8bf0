#include "update/ResumableDownload.h"
#include "FileServer.h"
#include "PromptClock.h"
#include "base/Fault.h"
#include "base/Files.h"
#include "base/SerialQueue.h"
#include "support/Printers.h"
#include "support/RunTask.h"
#include "support/UpdateFeed.h"
#include "update/UpdateFault.h"

#include <QDir>
#include <QTemporaryDir>

#include <gmock/gmock.h>

using namespace ostrel;
using testing::ElementsAre;

namespace {

const QString archivePath = QStringLiteral("/archive");

/// Bytes of which no part is like another.
QByteArray unlikeBytes(int count)
{
    QByteArray bytes;
    for (int i = 0; bytes.size() < count; ++i)
        bytes += QByteArray::number(i) + ',';
    return bytes.first(count);
}

class ResumableDownloadTest : public testing::Test
{
protected:
    ResumableDownloadTest() { serve(m_content); }

    void serve(const QByteArray &content, const QByteArray &tag = "\"1\"")
    {
        m_server.files[archivePath] = {.content = content, .entityTag = tag};
    }
    Release release() const
    {
        return {.version = Version::parse(QStringLiteral("0.2.0")).value(),
                .platform = {},
                .url = m_server.url(archivePath),
                .size = m_content.size(),
                .sha256 = sha256Of(m_content),
                .signature = {},
                .notes = {}};
    }
    Result<PartFile> fetch()
    {
        ResumableDownload download(m_http, m_clock, m_worker);
        const auto outcome = runTask<Result<PartFile>>([&](std::stop_token stop) {
            return download.fetch(
                release(), m_folder.path(),
                [this](qint64 received) {
                    m_received.append(received);
                    m_onProgress(received);
                },
                stop);
        });
        return outcome.value();
    }
    void expectWhole(const Result<PartFile> &outcome)
    {
        ASSERT_TRUE(outcome.has_value()) << outcome.error().localizedDescription.toStdString();
        EXPECT_TRUE(readFile(outcome->path()).value() == m_content);
    }
    void expectFault(const Result<PartFile> &outcome, UpdateFault fault)
    {
        ASSERT_FALSE(outcome.has_value());
        EXPECT_TRUE(isUpdateFault(outcome.error(), fault)) << outcome.error().localizedDescription.toStdString();
    }
    /// What is there after an attempt that broke off.
    void leavePart(qsizetype size, const QByteArray &tag)
    {
        const PartFile file(m_folder.filePath(QString::fromLatin1(release().sha256)));
        ASSERT_TRUE(file.reset(tag).has_value() && file.append(m_content.first(size)).has_value());
    }
    QByteArray header(const char *name) const { return m_server.requests().last().header(name).value(0); }
    QStringList left() const { return QDir(m_folder.path()).entryList(QDir::Files | QDir::Hidden, QDir::Name); }

    const QByteArray m_content = unlikeBytes(100'000);
    QTemporaryDir m_folder;
    FileServer m_server;
    PromptClock m_clock;
    HttpClient m_http{m_clock};
    QList<qint64> m_received;
    std::function<void(qint64)> m_onProgress = [](qint64) {};
    SerialQueue m_worker{QStringLiteral("test.download")};
};

TEST_F(ResumableDownloadTest, wholeAnswer_isOneRequest)
{
    expectWhole(fetch());
    EXPECT_EQ(m_server.requests().size(), 1);
    EXPECT_EQ(header("range"), QByteArray());
    EXPECT_EQ(m_received.last(), m_content.size());
}

TEST_F(ResumableDownloadTest, connectionCutAtEveryTenth_resumesThereAndEndsRight)
{
    const qint64 tenth = m_content.size() / 10;
    m_server.files[archivePath].stallAfter = tenth;
    m_onProgress = [&](qint64 received) {
        if (received % tenth == 0)
            m_server.cut();
    };
    expectWhole(fetch());
    QList<QByteArray> ranges;
    for (const auto &request : m_server.requests())
        ranges.append(request.header("range").value(0));
    // The stack sends a request again where it took a connection that was being closed.
    ranges.erase(std::ranges::unique(ranges).begin(), ranges.end());
    EXPECT_THAT(ranges, ElementsAre("", "bytes=10000-", "bytes=20000-", "bytes=30000-", "bytes=40000-", "bytes=50000-",
                                    "bytes=60000-", "bytes=70000-", "bytes=80000-", "bytes=90000-"));
}

TEST_F(ResumableDownloadTest, connectionsResetAtAnyMoment_endRightAllTheSame)
{
    m_server.files[archivePath].cutAfter = 40'000;
    expectWhole(fetch());
}

TEST_F(ResumableDownloadTest, partOfAnEarlierStart_isContinued)
{
    leavePart(60'000, "\"1\"");
    expectWhole(fetch());
    EXPECT_EQ(m_server.requests().size(), 1);
    EXPECT_EQ(header("range"), QByteArray("bytes=60000-"));
    EXPECT_EQ(header("if-range"), QByteArray("\"1\""));
}

TEST_F(ResumableDownloadTest, wholeFileOfAnEarlierStart_isNotFetchedAgain)
{
    leavePart(m_content.size(), "\"1\"");
    expectWhole(fetch());
    EXPECT_EQ(m_server.requests().size(), 0);
}

TEST_F(ResumableDownloadTest, fileThatHasChangedOnTheServer_isFetchedFromItsBeginning)
{
    leavePart(60'000, "\"another\"");
    expectWhole(fetch());
    EXPECT_EQ(m_server.requests().size(), 1);
}

TEST_F(ResumableDownloadTest, serverWithoutRanges_isAskedForTheWhole)
{
    m_server.files[archivePath].takesRanges = false;
    leavePart(60'000, "\"1\"");
    expectWhole(fetch());
}

TEST_F(ResumableDownloadTest, weakTag_isNotReliedOn)
{
    serve(m_content, "W/\"1\"");
    m_server.files[archivePath].stallAfter = 50'000;
    m_onProgress = [&](qint64 received) {
        if (received == 50'000)
            m_server.cut();
    };
    expectWhole(fetch());
    EXPECT_EQ(header("range"), QByteArray("bytes=50000-"));
    EXPECT_EQ(header("if-range"), QByteArray());
}

TEST_F(ResumableDownloadTest, partThatIsLongerThanTheArchive_isThrownAway)
{
    const PartFile file(m_folder.filePath(QString::fromLatin1(release().sha256)));
    ASSERT_TRUE(file.reset("\"1\"").has_value() && file.append(m_content + "more").has_value());
    expectWhole(fetch());
}

TEST_F(ResumableDownloadTest, longerAnswerThanAnnounced_isRefusedByItsHead)
{
    serve(m_content + "more");
    expectFault(fetch(), UpdateFault::ArchiveSizeWrong);
    EXPECT_EQ(m_received, QList<qint64>());
}

TEST_F(ResumableDownloadTest, longerAnswerWithoutALength_isRefusedOnceItIsTooLong)
{
    serve(m_content + "more");
    m_server.files[archivePath].tellsLength = false;
    expectFault(fetch(), UpdateFault::ArchiveSizeWrong);
    EXPECT_EQ(left(), QStringList()) << "nothing of it stays";
}

TEST_F(ResumableDownloadTest, truncatedArchive_isRefused)
{
    serve(m_content.first(99'999));
    expectFault(fetch(), UpdateFault::ArchiveSizeWrong);
    m_server.files[archivePath].tellsLength = false;
    expectFault(fetch(), UpdateFault::ArchiveSizeWrong);
}

TEST_F(ResumableDownloadTest, serverThatNeverSendsAnything_isGivenUpAfterFiveAttempts)
{
    m_server.files[archivePath].cutAfter = 0;
    expectFault(fetch(), UpdateFault::DownloadInterrupted);
    EXPECT_EQ(m_clock.pauses(), 5);
}

TEST_F(ResumableDownloadTest, serverThatDrips_isGivenUp)
{
    m_server.files[archivePath].stallAfter = 10;
    // As if the ten bytes had taken a minute.
    m_onProgress = [this](qint64) { m_clock.setNowMs(m_clock.nowMs() + 60'000); };
    expectFault(fetch(), UpdateFault::DownloadInterrupted);
    EXPECT_EQ(m_server.requests().size(), 5);
    EXPECT_EQ(m_received.last(), 50);
}

TEST_F(ResumableDownloadTest, slowServer_isWaitedForAsLongAsEnoughComes)
{
    m_onProgress = [&, told = qint64(0)](qint64 received) mutable {
        if (received - std::exchange(told, received) > 0)
            m_clock.setNowMs(m_clock.nowMs() + 1000);
    };
    expectWhole(fetch());
    EXPECT_EQ(m_server.requests().size(), 1);
}

TEST_F(ResumableDownloadTest, missingFile_isNotAskedForAgain)
{
    m_server.files.clear();
    expectFault(fetch(), UpdateFault::ServerRefused);
    EXPECT_EQ(m_server.requests().size(), 1);
}

TEST_F(ResumableDownloadTest, otherDownloads_areRemoved)
{
    ASSERT_TRUE(writeFileAtomically(m_folder.filePath(QStringLiteral("0123")), "old").has_value());
    ASSERT_TRUE(writeFileAtomically(m_folder.filePath(QStringLiteral("0123.etag")), "old").has_value());
    const auto outcome = fetch();
    expectWhole(outcome);
    EXPECT_EQ(left(), QStringList({QFileInfo(outcome->path()).fileName(),
                                   QFileInfo(outcome->path()).fileName() + QStringLiteral(".etag")}));
}

TEST_F(ResumableDownloadTest, folderThatCantBeWritten_saysSo)
{
    const QString blocked = m_folder.filePath(QStringLiteral("file"));
    ASSERT_TRUE(writeFileAtomically(blocked, {}).has_value());
    ResumableDownload download(m_http, m_clock, m_worker);
    const auto outcome = runTask<Result<PartFile>>([&](std::stop_token stop) {
        return download.fetch(release(), blocked + QStringLiteral("/folder"), [](qint64) {}, stop);
    });
    ASSERT_TRUE(outcome.has_value());
    ASSERT_FALSE(outcome->has_value());
    EXPECT_EQ(outcome->error().domain, faultDomain()) << outcome->error().localizedDescription.toStdString();
}

} // namespace
