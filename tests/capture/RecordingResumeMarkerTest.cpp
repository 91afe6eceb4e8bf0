#include "capture/RecordingResumeMarker.h"
#include "support/TestHome.h"

#include <QFile>
#include <QFileInfo>

#include <gtest/gtest.h>

using namespace ostrel;

namespace {

class ResumeMarker : public testing::Test
{
protected:
    TestHome m_home;
    const QString m_file = m_home.path(QStringLiteral(".ostrel/resume-recording"));
};

TEST_F(ResumeMarker, absent_isNotConsumed)
{
    EXPECT_FALSE(RecordingResumeMarker::consume());
}

TEST_F(ResumeMarker, written_isAnEmptyFileAndConsumedOnce)
{
    RecordingResumeMarker::write();
    ASSERT_TRUE(QFileInfo(m_file).isFile());
    EXPECT_EQ(QFileInfo(m_file).size(), 0);
    EXPECT_TRUE(RecordingResumeMarker::consume());
    EXPECT_FALSE(QFileInfo::exists(m_file));
    EXPECT_FALSE(RecordingResumeMarker::consume());
}

TEST_F(ResumeMarker, writtenTwice_isConsumedOnce)
{
    RecordingResumeMarker::write();
    RecordingResumeMarker::write();
    EXPECT_TRUE(RecordingResumeMarker::consume());
    EXPECT_FALSE(RecordingResumeMarker::consume());
}

TEST_F(ResumeMarker, folderThatCannotBeMade_isLeftAlone)
{
    QFile inItsPlace(m_home.path(QStringLiteral(".ostrel")));
    ASSERT_TRUE(inItsPlace.open(QIODevice::WriteOnly));
    RecordingResumeMarker::write();
    EXPECT_FALSE(RecordingResumeMarker::consume());
}

} // namespace
