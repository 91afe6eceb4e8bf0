#include "app/doctor/GatherFacts.h"

#include "app/doctor/LeftBehind.h"
#include "support/Printers.h"
#include "support/ScopedVariable.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <memory>
#include <sys/wait.h>

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

/// An observer's folder with a node of its own, which is a shell script.
class NodeOfAFolder : public testing::Test
{
protected:
    void makeNode(const QByteArray &script)
    {
        QDir(m_root.path()).mkdir(QStringLiteral("bin"));
        QFile file(m_root.filePath(QStringLiteral("bin/node")));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write("#!/bin/sh\n" + script + '\n');
        file.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }
    NodeFacts facts(std::chrono::milliseconds patience = 20s) const { return readNodeFacts(m_root.path(), patience); }

    QTemporaryDir m_root;
};

TEST_F(NodeOfAFolder, version_isReadFromTheProgramItself)
{
    makeNode("[ \"$*\" = --version ] && echo v18.19.1");
    EXPECT_EQ(facts().path, m_root.filePath(QStringLiteral("bin/node")));
    EXPECT_EQ(facts().version, QStringLiteral("18.19.1"));
}

TEST_F(NodeOfAFolder, otherAnswers_areNoVersion)
{
    for (const char *script : {"echo hello", "exit 1", "echo 18.19.1", "echo v", "kill -SEGV $$"}) {
        makeNode(script);
        EXPECT_EQ(facts().version, QString()) << script;
        EXPECT_FALSE(facts().path.isEmpty()) << script;
    }
}

TEST_F(NodeOfAFolder, nodeThatHangs_isEndedAndHasNoVersion)
{
    makeNode("exec sleep 600");
    EXPECT_EQ(facts(50ms).version, QString());
    EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1) << "a child stays";
}

TEST_F(NodeOfAFolder, noNodeAnywhere_isAnEmptyPath)
{
    const ScopedVariable emptyPath("PATH", m_root.path().toLocal8Bit());
    ASSERT_FALSE(QFile::exists(QStringLiteral("/usr/local/bin/node"))) << "where the observer always looks";
    EXPECT_EQ(facts().path, QString());
}

TEST(LeftBehind, answerInTime_isGiven)
{
    LeftBehind<int> question([] { return 7; });
    EXPECT_EQ(question.answerBy(std::chrono::steady_clock::now() + 20s), 7);
}

TEST(LeftBehind, questionThatHangs_isLeftBehindAtTheDeadline)
{
    const auto release = std::make_shared<std::promise<void>>();
    const auto done = std::make_shared<std::promise<void>>();
    LeftBehind<int> question([release, done] {
        release->get_future().wait();
        done->set_value();
        return 7;
    });
    EXPECT_FALSE(question.answerBy(std::chrono::steady_clock::now() + 10ms).has_value());
    release->set_value();
    EXPECT_EQ(done->get_future().wait_for(20s), std::future_status::ready);
}

} // namespace
