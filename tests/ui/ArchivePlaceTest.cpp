#include "ArchiveTargets.h"
#include "PopoverFixture.h"

#include <QJsonDocument>
#include <QJsonObject>

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

const QString getArchive = QStringLiteral("GET /api/archive/status");

/// The line of the settings screen that says where the archive lies, and the card behind it.
class ArchivePlace : public PopoverFixture
{
protected:
    void openSettings(const ArchiveTarget &target, const QString &vault = {})
    {
        m_settings.archiveVaultId = vault;
        m_observer.always(
            getArchive, FakeHttpTransport::answer(ArchiveStatus{.archiveVaultId = vault, .recoveryKey = {}}.toJson()));
        m_observer.always(getTarget, FakeHttpTransport::answer(target.toJson()));
        open();
        press("Settings");
    }
    void openCard()
    {
        openSettings({});
        press("Choose place…");
    }
    void choose(const char *kind) { click(kind); }
    /// Types into the field of that name, in place of what stands there.
    void type(const char *field, const char *text)
    {
        screen().item(QString::fromUtf8(field), QAccessible::EditableText)->forceActiveFocus();
        QTest::keyClick(m_view.get(), Qt::Key_A, Qt::ControlModifier);
        QTest::keyClick(m_view.get(), Qt::Key_Delete);
        for (const char *c = text; *c != '\0'; ++c)
            QTest::keyClick(m_view.get(), *c);
        settle();
    }
    QString textOf(const char *field) const
    {
        return screen().item(QString::fromUtf8(field), QAccessible::EditableText)->property("text").toString();
    }
    QJsonObject sent() const
    {
        const auto index = m_observer.endpoints().lastIndexOf(putTarget);
        return index < 0 ? QJsonObject()
                         : QJsonDocument::fromJson(m_observer.requests()[index].body.value_or("")).object();
    }
    /// Has the keyboard; Qt hides the name of such a field.
    QQuickItem *secretField()
    {
        screen().item(QStringLiteral("Access key ID"), QAccessible::EditableText)->forceActiveFocus();
        key(Qt::Key_Tab);
        return m_view->activeFocusItem();
    }
    void typeBucket()
    {
        choose("S3 bucket");
        type("Endpoint", "https://s3.example.org");
        type("Bucket", "footage");
        type("Access key ID", "AKID");
        QQuickItem *field = secretField();
        ASSERT_NE(field, nullptr);
        for (const char c : {'s', 'e', 'c', 'r', 'e', 't'})
            QTest::keyClick(m_view.get(), c);
        settle();
    }
};

TEST_F(ArchivePlace, line_saysWhereItLies)
{
    openSettings(folderTarget(QStringLiteral("/mnt/nas/footage")));
    EXPECT_TRUE(shows("Lies in /mnt/nas/footage"));
    EXPECT_TRUE(showsButton("Change place…"));
    EXPECT_EQ(screen().nameless(), QStringList());
}

TEST_F(ArchivePlace, lineWithoutAPlace_saysSo)
{
    openSettings({});
    EXPECT_TRUE(shows("No place is chosen yet."));
    EXPECT_TRUE(showsButton("Choose place…"));
}

TEST_F(ArchivePlace, observerThatKnowsNoPlaces_hasNoLine)
{
    m_observer.always(getArchive,
                      FakeHttpTransport::answer(ArchiveStatus{.archiveVaultId = {}, .recoveryKey = {}}.toJson()));
    open();
    press("Settings");
    EXPECT_TRUE(shows("Cloud Archive"));
    EXPECT_FALSE(shows("No place is chosen yet."));
    EXPECT_FALSE(showsButton("Choose place…"));
}

TEST_F(ArchivePlace, card_takesAFolderThatIsTyped)
{
    openCard();
    EXPECT_TRUE(m_popover->popoverOverlayActive());
    EXPECT_EQ(screen().focused(), QStringLiteral("Folder")) << "the kinds come first";
    EXPECT_EQ(screen().nameless(), QStringList());
    screen().item(QStringLiteral("Folder"), QAccessible::EditableText)->forceActiveFocus();
    for (const char c : {'/', 'n', 'a', 's'})
        QTest::keyClick(m_view.get(), c);
    m_observer.expect(putTarget, FakeHttpTransport::answer(folderTarget(QStringLiteral("/nas")).toJson()));
    key(Qt::Key_Return);
    EXPECT_EQ(sent()[QStringLiteral("path")].toString(), QStringLiteral("/nas"));
    EXPECT_FALSE(m_popover->popoverOverlayActive());
    EXPECT_TRUE(shows("Lies in /nas"));
    EXPECT_TRUE(shows("The archive's place is /nas."));
}

TEST_F(ArchivePlace, card_takesAFolderFromTheChooser)
{
    openCard();
    m_dialogs.expectDialog();
    press("Choose folder…");
    m_dialogs.choose(QStringLiteral("/mnt/nas"));
    settle();
    EXPECT_EQ(textOf("Folder"), QStringLiteral("/mnt/nas"));
}

TEST_F(ArchivePlace, card_takesABucketAndHidesItsSecret)
{
    openCard();
    typeBucket();
    EXPECT_EQ(textOf("Region"), QStringLiteral("us-east-1"));
    EXPECT_TRUE(shows("Secret key"));
    EXPECT_EQ(secretField()->property("displayText").toString().count(u's'), 0);
    ArchiveTarget told = *m_model->archiveTargetDraft();
    told.secretAccessKey = ArchiveTarget::redacted;
    m_observer.expect(putTarget, FakeHttpTransport::answer(told.toJson()));
    press("Use this place");
    EXPECT_EQ(sent()[QStringLiteral("secretAccessKey")].toString(), QStringLiteral("secret"));
    EXPECT_TRUE(shows("Lies in bucket footage at s3.example.org"));
    press("Change place…");
    EXPECT_EQ(secretField()->property("text").toString(), QString());
    EXPECT_EQ(textOf("Bucket"), QStringLiteral("footage"));
}

TEST_F(ArchivePlace, kinds_areChosenByKeyboard)
{
    openCard();
    key(Qt::Key_Tab);
    EXPECT_EQ(screen().focused(), QStringLiteral("S3 bucket"));
    key(Qt::Key_Space);
    EXPECT_EQ(m_model->archiveTargetDraft()->kind, ArchiveTarget::Kind::S3);
    key(Qt::Key_Tab);
    key(Qt::Key_Return);
    EXPECT_EQ(m_model->archiveTargetDraft()->kind, ArchiveTarget::Kind::Rclone);
    EXPECT_FALSE(screen().item(QStringLiteral("S3 bucket"))->property("checked").toBool());
    EXPECT_TRUE(screen().item(QStringLiteral("rclone"))->property("checked").toBool());
    EXPECT_TRUE(shows("Remote"));
}

TEST_F(ArchivePlace, mistake_isSaidOnTheCardWhichStays)
{
    openCard();
    press("Use this place");
    EXPECT_TRUE(shows("Choose a folder; its path begins with / or ~/."));
    EXPECT_TRUE(m_popover->popoverOverlayActive());
    key(Qt::Key_Escape);
    EXPECT_FALSE(m_popover->popoverOverlayActive());
    EXPECT_FALSE(shows("Choose a folder; its path begins with / or ~/."));
}

TEST_F(ArchivePlace, whileItIsTakenOver_nothingCanBeChanged)
{
    openCard();
    choose("rclone");
    type("Remote", "mycloud:footage");
    const auto held = m_observer.expectHeld(putTarget);
    press("Use this place");
    EXPECT_FALSE(screen().button(QStringLiteral("Use this place"))->isEnabled());
    EXPECT_FALSE(screen().item(QStringLiteral("Remote"), QAccessible::EditableText)->isEnabled());
    EXPECT_TRUE(screen().button(QStringLiteral("Cancel"))->isEnabled());
    held->release(FakeHttpTransport::answer(m_model->archiveTargetDraft()->toJson()));
    settle();
    EXPECT_TRUE(shows("Lies in rclone mycloud:footage"));
}

TEST_F(ArchivePlace, cardInLargeLetters_staysOnThePanelAndFollowsTheKeyboard)
{
    openCard();
    m_popover->appearance()->setTextScale(DesktopAppearance::largestTextScale);
    choose("S3 bucket");
    const QRectF panel(QPointF(), m_view->size());
    const auto onPanel = [&panel](const QQuickItem *item) {
        return panel.contains(item->mapRectToScene(QRectF(0, 0, item->width(), item->height())));
    };
    EXPECT_TRUE(onPanel(screen().item(QStringLiteral("Where the archive lies"), QAccessible::Dialog)));
    const QQuickItem *use = screen().button(QStringLiteral("Use this place"));
    EXPECT_FALSE(onPanel(use)) << "there is more than fits";
    EXPECT_TRUE(onPanel(secretField())) << "it is scrolled to";
    for (int i = 0; i < 8 && screen().focused() != QStringLiteral("Use this place"); ++i)
        key(Qt::Key_Tab);
    EXPECT_TRUE(onPanel(use));
}

TEST_F(ArchivePlace, anotherPlaceForAnArchiveInUse_asksFirst)
{
    openSettings(folderTarget(QStringLiteral("/mnt/nas")), QStringLiteral("vault-1"));
    press("Change place…");
    type("Folder", "/mnt/other");
    m_dialogs.expectDialog();
    press("Use this place");
    EXPECT_EQ(m_dialogs.alert().message, QStringLiteral("Move to another place?"));
    m_dialogs.answer(DialogResponse::secondButton);
    settle();
    EXPECT_EQ(sent(), QJsonObject());
    EXPECT_EQ(textOf("Folder"), QStringLiteral("/mnt/other"));
}

} // namespace
