#pragma once

#include "FakePlatform.h"
#include "app/CommandLine.h"

#include <QByteArray>
#include <QStringList>

#include <gtest/gtest.h>

#include <sys/mman.h>
#include <unistd.h>

namespace ostrel {

/// Standard input that holds some bytes, until the end of the scope.
class ScopedInput
{
public:
    explicit ScopedInput(const QByteArray &bytes) : m_before(::dup(STDIN_FILENO))
    {
        const int file = ::memfd_create("input", MFD_CLOEXEC);
        const bool written = ::write(file, bytes.constData(), size_t(bytes.size())) == bytes.size();
        EXPECT_TRUE(written && ::lseek(file, 0, SEEK_SET) == 0 && ::dup2(file, STDIN_FILENO) >= 0);
        ::close(file);
    }
    ScopedInput(const ScopedInput &) = delete;
    ScopedInput &operator=(const ScopedInput &) = delete;
    ~ScopedInput()
    {
        ::dup2(m_before, STDIN_FILENO);
        ::close(m_before);
    }

private:
    int m_before;
};

/// The command line in this process, on a desktop of fakes.
class CommandFixture : public testing::Test, protected FakePlatform
{
protected:
    CommandResult run(const QStringList &words)
    {
        return runCommandLine(QStringList(QStringLiteral("ostrel")) + words, m_platform);
    }
    CommandResult run(const QStringList &words, const QByteArray &input)
    {
        const ScopedInput standardInput(input);
        return run(words);
    }
};

} // namespace ostrel
