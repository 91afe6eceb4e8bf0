#include "PopoverFixture.h"

using namespace ostrel;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/// What somebody meets who can't see the screens, and who has no pointer.
class Accessibility : public PopoverFixture
{
protected:
    /// Where the Tab key leads, from where the keyboard is until it is there again: top to bottom.
    QStringList tabOrder()
    {
        constexpr int more = 40; // than there are on any screen
        constexpr qreal sameLine = 12;
        QStringList names;
        QPointF before(-1, -1);
        int timesUp = 0;
        key(Qt::Key_Tab); // from wherever a screen begins
        const QQuickItem *const first = m_view->activeFocusItem();
        for (int i = 0; i < more; ++i) {
            const QQuickItem *const item = m_view->activeFocusItem();
            if (item == nullptr)
                break;
            names.append(screen().focused());
            const QPointF place = item->mapToScene({0, 0});
            const bool isAbove = place.y() < before.y() - sameLine;
            const bool isBackInLine = std::abs(place.y() - before.y()) <= sameLine && place.x() < before.x();
            timesUp += isAbove || isBackInLine ? 1 : 0;
            before = place;
            key(Qt::Key_Tab);
            if (m_view->activeFocusItem() == first)
                break;
        }
        EXPECT_LE(timesUp, 1) << "it goes back to the top once: " << names.join(QStringLiteral(" > ")).toStdString();
        return names;
    }
    std::vector<std::string> tabStops()
    {
        std::vector<std::string> stops;
        for (const QString &name : tabOrder())
            stops.push_back(name.toStdString());
        std::ranges::sort(stops);
        EXPECT_THAT(screen().nameless(), IsEmpty());
        return stops;
    }
};

TEST_F(Accessibility, recorder_hasFourControls)
{
    open();
    EXPECT_THAT(tabStops(), ElementsAre("Journal", "Quit Tamsk Ostrel", "Settings", "Start recording"));
}

TEST_F(Accessibility, permissions_eachMissingOneHasItsButton)
{
    m_accessibilityGranted = false;
    open();
    EXPECT_THAT(tabStops(), ElementsAre("Allow", "Continue", "Journal", "Quit Tamsk Ostrel", "Settings"));
    EXPECT_TRUE(shows("Accessibility, not granted"));
    EXPECT_TRUE(shows("Screen Recording, granted"));
}

TEST_F(Accessibility, journal_isOneStopAndTheArrowsGoOnFromThere)
{
    writeDay(QStringLiteral("2023-11-14"), entries(3));
    open();
    press("Journal");
    EXPECT_THAT(tabStops(), ElementsAre("Back", "Open in Finder", "Tuesday 14 November"));
    key(Qt::Key_Tab);
    key(Qt::Key_Tab);
    key(Qt::Key_Down);
    key(Qt::Key_Down);
    key(Qt::Key_Down);
    EXPECT_TRUE(screen().focused().endsWith(QStringLiteral("Editor, Worked on page 0")))
        << screen().focused().toStdString();
}

TEST_F(Accessibility, settings_everyFieldIsComeToAndBroughtIntoView)
{
    m_observer.always(QStringLiteral("GET /api/archive/status"), FakeHttpTransport::answer(ArchiveStatus().toJson()));
    open();
    press("Settings");
    EXPECT_THAT(tabStops(), ElementsAre("Add key", "Back", "Choose…", "Custom instructions", "Enable",
                                        "Open Tamsk Ostrel when you log in", "Output directory", "Use key"));
    for (int i = 0; i < 8; ++i) {
        key(Qt::Key_Tab);
        const QQuickItem *const item = m_view->activeFocusItem();
        const QRectF place = item->mapRectToScene({0, 0, item->width(), std::min(item->height(), 32.0)});
        EXPECT_TRUE(QRectF(0, 0, 320, 560).contains(place)) << screen().focused().toStdString();
    }
}

TEST_F(Accessibility, wizard_isLeftByNothingButItsOwnControls)
{
    m_observer.always(QStringLiteral("GET /api/archive/status"), FakeHttpTransport::answer(ArchiveStatus().toJson()));
    open();
    press("Settings");
    press("Enable");
    EXPECT_THAT(tabStops(), ElementsAre("Cancel", "Continue"));
    const ArchiveStatus prepared{.archiveVaultId = QStringLiteral("vault"),
                                 .hasRecoveryKey = true,
                                 .recoveryKey = QStringLiteral("ostrel-vault_1qy352euf40x77qfrg4ncn27da")};
    m_observer.expect(QStringLiteral("POST /api/archive/prepare"), FakeHttpTransport::answer(prepared.toJson()));
    press("Continue");
    EXPECT_THAT(tabStops(), ElementsAre("Copy", "Download .txt", "Next", "Recovery key"));
    press("Next");
    EXPECT_THAT(tabStops(), ElementsAre("Back", "I saved my recovery key somewhere safe"));
    key(Qt::Key_Escape);
}

TEST_F(Accessibility, recoveryKey_isReadOut)
{
    m_observer.always(QStringLiteral("GET /api/archive/status"), FakeHttpTransport::answer(ArchiveStatus().toJson()));
    open();
    press("Settings");
    press("Enable");
    const QString recoveryKey = QStringLiteral("ostrel-vault_1qy352euf40x77qfrg4ncn27da");
    const ArchiveStatus prepared{
        .archiveVaultId = QStringLiteral("vault"), .hasRecoveryKey = true, .recoveryKey = recoveryKey};
    m_observer.expect(QStringLiteral("POST /api/archive/prepare"), FakeHttpTransport::answer(prepared.toJson()));
    press("Continue");
    QAccessibleInterface *const part =
        QAccessible::queryAccessibleInterface(screen().item(QStringLiteral("Recovery key")));
    ASSERT_NE(part->textInterface(), nullptr);
    EXPECT_EQ(part->textInterface()->text(0, int(recoveryKey.size())), recoveryKey);
    EXPECT_TRUE(part->state().readOnly);
    key(Qt::Key_Escape);
}

TEST_F(Accessibility, exportCard_namesTheDaysByWhatTheyAreFor)
{
    m_settings.archiveVaultId = QStringLiteral("vault");
    const ArchiveStatus enabled{.archiveEnabled = true, .archiveVaultId = QStringLiteral("vault"), .recoveryKey = {}};
    m_observer.always(QStringLiteral("GET /api/archive/status"), FakeHttpTransport::answer(enabled.toJson()));
    const ArchiveExportStatus idle{.state = QStringLiteral("idle"), .currentDay = {}, .error = {}};
    m_observer.always(QStringLiteral("GET /api/archive/export/status"), FakeHttpTransport::answer(idle.toJson()));
    m_observer.always(QStringLiteral("POST /api/archive/export/estimate"),
                      FakeHttpTransport::answer(ArchiveExportEstimate{.clips = 600, .bytes = 734'003'200}.toJson()));
    open();
    press("Settings");
    press("Export footage");
    const auto stops = tabStops();
    EXPECT_THAT(stops, testing::IsSupersetOf({"Cancel", "Choose…", "Export"}));
    EXPECT_THAT(stops, testing::Contains(testing::StartsWith("From, ")));
    EXPECT_THAT(stops, testing::Contains(testing::StartsWith("To, ")));
    EXPECT_EQ(stops.size(), 5U);
    key(Qt::Key_Escape);
}

} // namespace
