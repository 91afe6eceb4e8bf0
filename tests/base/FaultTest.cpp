#include "base/Fault.h"

#include "support/Printers.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <set>

using namespace ostrel;

namespace {

TEST(Fault, everyFault_hasASentenceOfItsOwn)
{
    std::set<QString> sentences;
    for (int fault = 0; fault <= int(Fault::ProgramFailedToStart); ++fault) {
        const QString text = faultError(Fault(fault), QStringLiteral("x")).localizedDescription;
        EXPECT_FALSE(text.isEmpty()) << fault;
        EXPECT_TRUE(sentences.insert(text).second) << text.toStdString();
    }
}

TEST(Fault, portTaken_namesThePort)
{
    EXPECT_EQ(faultError(Fault::PortTaken, QStringLiteral("8799")).localizedDescription,
              QStringLiteral("Port 8799 is in use by another program"));
}

TEST(Fault, timedOut_namesWhoWasAskedOrElseTheServer)
{
    EXPECT_EQ(faultError(Fault::TimedOut).localizedDescription, QStringLiteral("The server took too long to answer."));
    EXPECT_EQ(faultError(Fault::TimedOut, QStringLiteral("display server")).localizedDescription,
              QStringLiteral("The display server took too long to answer."));
}

TEST(Fault, isFault_otherDomainWithSameCode_isNot)
{
    const Error foreign{
        .domain = QStringLiteral("elsewhere"), .code = int(Fault::TimedOut), .localizedDescription = {}};
    EXPECT_FALSE(isFault(foreign, Fault::TimedOut));
    EXPECT_TRUE(isFault(faultError(Fault::TimedOut), Fault::TimedOut));
    EXPECT_FALSE(isFault(faultError(Fault::TimedOut), Fault::BadUrl));
}

TEST(Fault, fileError_systemErrors_getOurWords)
{
    const QString path = QStringLiteral("/a/b");
    EXPECT_TRUE(isFault(fileError(ENOENT, path), Fault::NoSuchFile));
    EXPECT_TRUE(isFault(fileError(EACCES, path), Fault::PermissionDenied));
    EXPECT_TRUE(isFault(fileError(ENOSPC, path), Fault::DiskFull));
    EXPECT_TRUE(isFault(fileError(EDQUOT, path), Fault::DiskFull));
    EXPECT_TRUE(isFault(fileError(EROFS, path), Fault::ReadOnlyFileSystem));
    EXPECT_TRUE(isFault(fileError(EISDIR, path), Fault::IsDirectory));
    EXPECT_TRUE(isFault(fileError(EIO, path), Fault::FileFailed));
    EXPECT_TRUE(fileError(EIO, path).localizedDescription.contains(path));
}

} // namespace
