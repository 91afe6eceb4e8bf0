#include "observer/RepoLocator.h"

#include "base/Files.h"
#include "support/Printers.h"

#include <QCoreApplication>
#include <QDir>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace ostrel;

namespace {

class RepoLocation : public testing::Test
{
protected:
    QString path(const char *relative) const { return m_tree.filePath(QString::fromLatin1(relative)); }
    QString folder(const char *relative) const
    {
        EXPECT_TRUE(QDir().mkpath(path(relative)));
        return path(relative);
    }
    void touch(const char *relative) const { ASSERT_TRUE(writeFileAtomically(path(relative), "x").has_value()); }

    QTemporaryDir m_tree;
};

TEST_F(RepoLocation, bundleFile_makesARoot)
{
    touch("root/dist/observer.mjs");
    EXPECT_TRUE(RepoLocator::isObserverRoot(path("root")));
    EXPECT_FALSE(RepoLocator::isObserverRoot(path("root/dist")));
}

TEST_F(RepoLocation, sources_makeARootOnlyTogether)
{
    touch("one/package.json");
    touch("two/apps/mac-observer/src/index.ts");
    touch("both/package.json");
    touch("both/apps/mac-observer/src/index.ts");
    EXPECT_FALSE(RepoLocator::isObserverRoot(path("one")));
    EXPECT_FALSE(RepoLocator::isObserverRoot(path("two")));
    EXPECT_TRUE(RepoLocator::isObserverRoot(path("both")));
}

TEST_F(RepoLocation, environmentOverride_isTakenUncheckedBeforeAllElse)
{
    touch("bundled/Observer/dist/observer.mjs");
    RepoLocator locator;
    locator.environmentOverride = path("nothing/here/");
    locator.resourcesDirectory = path("bundled");
    locator.currentDirectory = path("bundled/Observer");
    EXPECT_EQ(locator.resolveRepoRoot(), path("nothing/here"));
}

TEST_F(RepoLocation, relativeOverride_isMeantFromTheCurrentFolder)
{
    RepoLocator locator;
    locator.environmentOverride = QStringLiteral("../repo");
    locator.currentDirectory = path("work");
    EXPECT_EQ(locator.resolveRepoRoot(), path("repo"));
}

TEST_F(RepoLocation, bundledObserver_comesBeforeTheSearch)
{
    touch("share/ostrel/Observer/dist/observer.mjs");
    touch("checkout/dist/observer.mjs");
    RepoLocator locator;
    locator.resourcesDirectory = path("share/ostrel");
    locator.currentDirectory = path("checkout");
    EXPECT_EQ(locator.resolveRepoRoot(), path("share/ostrel/Observer"));
}

TEST_F(RepoLocation, resourcesWithoutObserver_searchGoesOn)
{
    touch("checkout/dist/observer.mjs");
    RepoLocator locator;
    locator.resourcesDirectory = folder("share/ostrel");
    locator.currentDirectory = folder("checkout/a/b");
    EXPECT_EQ(locator.resolveRepoRoot(), path("checkout"));
}

TEST_F(RepoLocation, startingPoints_areTriedInTheirOrder)
{
    touch("current/dist/observer.mjs");
    touch("bundle/dist/observer.mjs");
    touch("program/dist/observer.mjs");
    touch("program/bin/ostrel");
    RepoLocator locator;
    locator.currentDirectory = path("current");
    locator.bundleLocation = path("bundle");
    locator.programPath = path("program/bin/ostrel");
    EXPECT_EQ(locator.resolveRepoRoot(), path("current"));
    locator.currentDirectory = folder("elsewhere");
    EXPECT_EQ(locator.resolveRepoRoot(), path("bundle"));
    locator.bundleLocation = folder("elsewhere");
    EXPECT_EQ(locator.resolveRepoRoot(), path("program"));
}

TEST_F(RepoLocation, relativeProgramPath_isMeantFromTheCurrentFolder)
{
    touch("build/dist/observer.mjs");
    touch("build/bin/ostrel");
    RepoLocator locator;
    locator.currentDirectory = folder("work");
    locator.programPath = QStringLiteral("../build/bin/ostrel");
    EXPECT_EQ(locator.resolveRepoRoot(), path("build"));
}

TEST_F(RepoLocation, packageJsonAlone_searchGoesOnUpwards)
{
    touch("outer/dist/observer.mjs");
    touch("outer/inner/package.json");
    RepoLocator locator;
    locator.currentDirectory = path("outer/inner");
    EXPECT_EQ(locator.resolveRepoRoot(), path("outer"));
}

TEST_F(RepoLocation, startThatDoesNotExist_beginsAtItsParent)
{
    touch("root/dist/observer.mjs");
    RepoLocator locator;
    locator.currentDirectory = path("root/gone");
    EXPECT_EQ(locator.resolveRepoRoot(), path("root"));
}

TEST_F(RepoLocation, nothingUpToTheRoot_isNone)
{
    RepoLocator locator;
    locator.currentDirectory = folder("a/b");
    locator.bundleLocation = QStringLiteral("/");
    EXPECT_EQ(locator.resolveRepoRoot(), std::nullopt);
}

TEST_F(RepoLocation, thisProgram_hasThePlacesOfItsPrefix)
{
    qputenv("MORAVEL_REPO_ROOT", "/somewhere");
    const RepoLocator locator = RepoLocator::forThisProgram();
    qunsetenv("MORAVEL_REPO_ROOT");
    const QString prefix = QFileInfo(QCoreApplication::applicationDirPath()).path();
    EXPECT_EQ(locator.environmentOverride, QStringLiteral("/somewhere"));
    EXPECT_EQ(locator.bundleLocation, prefix);
    EXPECT_EQ(locator.currentDirectory, QDir::currentPath());
    EXPECT_EQ(locator.programPath, QCoreApplication::arguments().constFirst());
    const QString resources = prefix + QStringLiteral("/share/ostrel");
    EXPECT_EQ(locator.resourcesDirectory, QDir(resources).exists() ? resources : QString());
}

} // namespace
