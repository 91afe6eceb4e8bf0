#include "base/Paths.h"

#include "support/Printers.h"
#include "support/ScopedVariable.h"

#include <QDir>
#include <QFileInfo>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <sys/stat.h>

using namespace ostrel;

namespace {

TEST(Paths, expandedPath_loneTilde_isHome)
{
    EXPECT_EQ(expandedPath(QStringLiteral("~")), homeDirectory());
    EXPECT_EQ(homeDirectory(), qEnvironmentVariable("HOME"));
}

TEST(Paths, expandedPath_tildeSlash_liesInHome)
{
    EXPECT_EQ(expandedPath(QStringLiteral("~/ostrel/journal")), homeDirectory() + QStringLiteral("/ostrel/journal"));
}

TEST(Paths, expandedPath_tildeWithName_orAbsolute_isUnchanged)
{
    for (const char *path : {"~someone", "~someone/x", "/absolute/~", "relative/~/x", ""})
        EXPECT_EQ(expandedPath(QString::fromLatin1(path)), QString::fromLatin1(path));
}

TEST(Paths, abbreviatedPath_inHome_beginsWithATilde)
{
    EXPECT_EQ(abbreviatedPath(homeDirectory()), QStringLiteral("~"));
    EXPECT_EQ(abbreviatedPath(homeDirectory() + QStringLiteral("/ostrel/x")), QStringLiteral("~/ostrel/x"));
    EXPECT_EQ(expandedPath(abbreviatedPath(homeDirectory() + QStringLiteral("/x"))),
              homeDirectory() + QStringLiteral("/x"));
}

TEST(Paths, abbreviatedPath_outsideHome_isUnchanged)
{
    // The second one only begins like the home folder.
    for (const QString &path : {QStringLiteral("/srv/x"), homeDirectory() + QStringLiteral("-of-another/x"),
                                QStringLiteral("/srv") + homeDirectory() + QStringLiteral("/x")})
        EXPECT_EQ(abbreviatedPath(path), path);
}

TEST(Paths, abbreviatedPath_homeThatIsTheRoot_isUnchanged)
{
    const ScopedVariable home("HOME", "/");
    EXPECT_EQ(abbreviatedPath(QStringLiteral("/srv/x")), QStringLiteral("/srv/x"));
    EXPECT_EQ(abbreviatedPath(QStringLiteral("/")), QStringLiteral("/"));
}

TEST(Paths, makePrivateDirectory_missingParents_areMadeForTheUserAlone)
{
    const QTemporaryDir temporary;
    const QString path = temporary.filePath(QStringLiteral("a/b/c/"));
    const mode_t before = ::umask(0);
    const bool made = makePrivateDirectory(path);
    ::umask(before);
    ASSERT_TRUE(made);
    for (const char *folder : {"a", "a/b", "a/b/c"}) {
        struct stat info = {};
        ASSERT_EQ(::stat(qPrintable(temporary.filePath(QString::fromLatin1(folder))), &info), 0);
        EXPECT_EQ(info.st_mode & 0777, 0700U) << folder;
    }
    EXPECT_TRUE(makePrivateDirectory(path)) << "one that exists is fine";
}

TEST(Paths, makePrivateDirectory_fileInTheWay_fails)
{
    const QTemporaryDir temporary;
    QFile file(temporary.filePath(QStringLiteral("a")));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    EXPECT_FALSE(makePrivateDirectory(temporary.filePath(QStringLiteral("a/b"))));
    EXPECT_FALSE(makePrivateDirectory(temporary.filePath(QStringLiteral("a"))));
}

} // namespace
