#include "platform/session/WaylandForegroundSource.h"
#include "support/FakeForegroundSource.h"
#include "support/Printers.h"

#include <gtest/gtest.h>

namespace ostrel {
namespace {

ForegroundApplication application(const char *name)
{
    return {.localizedName = QString::fromUtf8(name), .bundleIdentifier = {}};
}

class WaylandForeground : public testing::Test
{
protected:
    WaylandForeground()
    {
        auto x11 = std::make_unique<FakeForegroundSource>();
        auto programs = std::make_unique<FakeForegroundSource>();
        m_x11 = x11.get();
        m_programs = programs.get();
        m_source = std::make_unique<WaylandForegroundSource>(std::move(x11), std::move(programs));
    }

    void putX11InFront()
    {
        m_x11->onFrontmostApplication = [] { return application("Terminal"); };
        m_x11->onFocusedWindow = [] {
            return FocusedWindow{.title = QStringLiteral("a shell"), .frame = QRectF(1, 2, 3, 4)};
        };
    }
    void putWaylandInFront()
    {
        m_x11->onFrontmostApplication = [] { return std::nullopt; };
        m_programs->onFrontmostApplication = [] { return application("Editor"); };
        m_programs->onFocusedWindow = [] {
            return FocusedWindow{.title = QStringLiteral("Notes"), .frame = std::nullopt};
        };
    }
    QString nameInFront() { return m_source->frontmostApplication().value_or(application("")).localizedName.value(); }

    FakeForegroundSource *m_x11 = nullptr;
    FakeForegroundSource *m_programs = nullptr;
    std::unique_ptr<WaylandForegroundSource> m_source;
};

TEST_F(WaylandForeground, activeWindowOfAnX11Program_isToldWithoutAskingTheOthers)
{
    putX11InFront();
    EXPECT_EQ(nameInFront(), QStringLiteral("Terminal"));
    EXPECT_EQ(m_source->focusedWindow()->title, QStringLiteral("a shell"));
}

TEST_F(WaylandForeground, placeOfAnX11Window_isNotToldBecauseTheCompositorMayScaleIt)
{
    putX11InFront();
    m_source->frontmostApplication();
    EXPECT_EQ(m_source->focusedWindow()->frame, std::nullopt);
}

TEST_F(WaylandForeground, noActiveWindowOfAnX11Program_isToldByThePrograms)
{
    putWaylandInFront();
    EXPECT_EQ(nameInFront(), QStringLiteral("Editor"));
    EXPECT_EQ(m_source->focusedWindow()->title, QStringLiteral("Notes"));
}

TEST_F(WaylandForeground, windowThatTookOver_hasItsOwnTitle)
{
    putX11InFront();
    m_source->frontmostApplication();
    putWaylandInFront();
    EXPECT_EQ(nameInFront(), QStringLiteral("Editor"));
    EXPECT_EQ(m_source->focusedWindow()->title, QStringLiteral("Notes"));
    putX11InFront();
    EXPECT_EQ(nameInFront(), QStringLiteral("Terminal"));
    EXPECT_EQ(m_source->focusedWindow()->title, QStringLiteral("a shell"));
}

TEST_F(WaylandForeground, x11WindowThatClosesBetweenTheQuestions_hasNoTitleAndNotAnothers)
{
    putX11InFront();
    m_source->frontmostApplication();
    m_x11->onFocusedWindow = [] { return std::nullopt; };
    EXPECT_FALSE(m_source->focusedWindow().has_value());
}

TEST_F(WaylandForeground, sessionWithoutXServer_isToldByThePrograms)
{
    auto programs = std::make_unique<FakeForegroundSource>();
    programs->onFrontmostApplication = [] { return application("Editor"); };
    WaylandForegroundSource source(nullptr, std::move(programs));
    EXPECT_EQ(source.frontmostApplication()->localizedName, QStringLiteral("Editor"));
}

TEST_F(WaylandForeground, pointerAndWhatIsMissing_areToldByThePrograms)
{
    m_programs->onMouseLocation = [] { return std::nullopt; };
    m_programs->onUnavailableFacts = [] {
        return QList<UnavailableFact>{{.fact = QStringLiteral("pointer position"), .reason = QStringLiteral("why")}};
    };
    EXPECT_EQ(m_source->mouseLocation(), std::nullopt);
    ASSERT_EQ(m_source->unavailableFacts().size(), 1);
    EXPECT_EQ(m_source->unavailableFacts().first().reason, QStringLiteral("why"));
}

} // namespace
} // namespace ostrel
