#include "ArchiveTargets.h"
#include "SheetFixture.h"

#include <QTranslator>

#include <algorithm>

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

enum class Stress { LargeLetters, LongWords };

/// A language whose words are longer than ours by about what German's are.
class LongLanguage : public QTranslator
{
public:
    bool isEmpty() const override { return false; }
    QString translate(const char * /*context*/, const char *text, const char * /*note*/, int /*number*/) const override
    {
        return word(QString::fromUtf8(text));
    }
    static QString word(const QString &text)
    {
        static const QString more = QStringLiteral("ungsverfahrenseinstellungsmöglichkeiten");
        const auto last = std::find_if(text.crbegin(), text.crend(), [](QChar c) { return c.isLetter(); });
        if (last == text.crend())
            return text;
        const qsizetype extra = text.size() < 12 ? text.size() * 6 / 10 : text.size() * 35 / 100;
        return QString(text).insert(std::distance(last, text.crend()), more.left(std::min<qsizetype>(extra, 12)));
    }
};

bool isText(const QQuickItem &item)
{
    return item.inherits("QQuickText") || item.inherits("QQuickTextEdit") || item.inherits("QQuickTextInput");
}

bool isControl(const QQuickItem &item)
{
    return item.inherits("QQuickAbstractButton") || item.inherits("QQuickTextField") || item.inherits("QQuickTextArea");
}

const QQuickItem *flickableAround(const QQuickItem &item)
{
    const QQuickItem *around = item.parentItem();
    while (around != nullptr && !around->inherits("QQuickFlickable"))
        around = around->parentItem();
    return around;
}

/// Without what a field has scrolled away within itself.
QRectF outlineOf(const QQuickItem &item)
{
    return {0, 0, item.width(), item.height()};
}

QString nameOf(const QQuickItem &item)
{
    return QString::fromLatin1(item.metaObject()->className()) + QStringLiteral(" \"") +
           item.property("text").toString() + u'"';
}

/// Every screen and card with letters or words that need more room than ours.
class Room : public SheetFixture, public testing::WithParamInterface<Stress>
{
protected:
    Room()
    {
        if (GetParam() == Stress::LongWords)
            QCoreApplication::installTranslator(&m_language);
        m_settings.inferenceProvider = QStringLiteral("google_vertex_ai");
        m_settings.archiveVaultId = QStringLiteral("v");
        m_observer.always(getTarget,
                          FakeHttpTransport::answer(
                              folderTarget(QStringLiteral("/mnt/nas/a folder with a long name/footage")).toJson()));
    }
    ~Room() override { QCoreApplication::removeTranslator(&m_language); }

    void openStressed()
    {
        m_observer.always(QStringLiteral("GET /api/archive/status"),
                          FakeHttpTransport::answer(
                              ArchiveStatus{.archiveVaultId = m_settings.archiveVaultId, .recoveryKey = {}}.toJson()));
        open();
        if (GetParam() == Stress::LargeLetters)
            m_popover->appearance()->setTextScale(DesktopAppearance::largestTextScale);
        settle();
    }
    /// As the language of the test says it.
    static QString word(const char *text)
    {
        const QString ours = QString::fromUtf8(text);
        return GetParam() == Stress::LongWords ? LongLanguage::word(ours) : ours;
    }
    void pressWord(const char *text) { press(word(text)); }

    void expectRoom(const char *where)
    {
        SCOPED_TRACE(where);
        m_view->grabWindow();
        settle();
        m_view->grabWindow();
        QList<const QQuickItem *> parts;
        for (const QQuickItem *item : partsOf(*m_view->rootObject())) {
            if (item->isVisible() && item->isEnabled() && item->opacity() > 0 && (isText(*item) || isControl(*item)))
                parts.append(item);
        }
        EXPECT_GE(parts.size(), 3);
        for (const QQuickItem *part : parts) {
            expectWhole(*part);
            expectWithinReach(*part);
        }
        expectApart(parts);
    }

private:
    /// Paths, which are told from their ends, are cut in the middle, and examples in empty fields where those end.
    static void expectWhole(const QQuickItem &part)
    {
        const bool mayBeCut =
            part.property("elide").toInt() == Qt::ElideMiddle || part.parentItem()->inherits("QQuickTextField");
        EXPECT_TRUE(mayBeCut || !part.property("truncated").toBool()) << nameOf(part).toStdString() << " is cut off";
    }
    void expectWithinReach(const QQuickItem &part) const
    {
        const QRectF panel(QPointF(), m_view->size());
        const QQuickItem *flickable = flickableAround(part);
        const QRectF place = part.mapRectToScene(outlineOf(part));
        EXPECT_TRUE(place.left() >= -0.5 && place.right() <= panel.right() + 0.5)
            << nameOf(part).toStdString() << " leaves the panel at its side: " << place.left() << " to "
            << place.right();
        if (flickable == nullptr) {
            EXPECT_TRUE(place.top() >= -0.5 && place.bottom() <= panel.bottom() + 0.5)
                << nameOf(part).toStdString() << " leaves the panel: " << place.top() << " to " << place.bottom();
            return;
        }
        const QRectF onPage =
            part.mapRectToItem(flickable->property("contentItem").value<QQuickItem *>(), outlineOf(part));
        const qreal page = std::max(flickable->property("contentHeight").toReal(), flickable->height());
        EXPECT_TRUE(onPage.top() >= -0.5 && onPage.bottom() <= page + 0.5)
            << nameOf(part).toStdString() << " can't be scrolled to";
    }
    static void expectApart(const QList<const QQuickItem *> &parts)
    {
        for (qsizetype i = 0; i < parts.size(); ++i) {
            for (qsizetype j = i + 1; j < parts.size(); ++j) {
                if (parts[i]->isAncestorOf(parts[j]) || parts[j]->isAncestorOf(parts[i]))
                    continue;
                const QRectF common = seenOf(*parts[i]) & seenOf(*parts[j]);
                EXPECT_FALSE(common.width() > 1.5 && common.height() > 1.5)
                    << nameOf(*parts[i]).toStdString() << " lies over " << nameOf(*parts[j]).toStdString();
            }
        }
    }
    static QRectF seenOf(const QQuickItem &item)
    {
        QRectF area = item.mapRectToScene(outlineOf(item));
        for (const QQuickItem *around = item.parentItem(); around != nullptr; around = around->parentItem()) {
            if (around->clip())
                area &= around->mapRectToScene(around->boundingRect());
        }
        return area;
    }

    LongLanguage m_language;
};

TEST_P(Room, recorder)
{
    openStressed();
    expectRoom("at rest");
    ObserverStatus status;
    status.lastError = QStringLiteral("The journal could not be written: the disk is full. Make room, or choose "
                                      "another folder in the settings; the frames wait meanwhile.");
    m_observer.always(getStatus, FakeHttpTransport::answer(status.toJson()));
    advance(2s);
    m_view->grabWindow();
    expectRoom("in trouble");
}

TEST_P(Room, permissions)
{
    m_screenGranted = false;
    m_accessibilityGranted = false;
    openStressed();
    expectRoom("nothing granted");
}

TEST_P(Room, journal)
{
    writeDay(QStringLiteral("2023-11-14"), entries(30));
    openStressed();
    pressWord("Journal");
    expectRoom("journal");
}

TEST_P(Room, settings)
{
    openStressed();
    pressWord("Settings");
    m_popover->settings()->setInstructions(QStringLiteral("In one sentence each, please."));
    settle();
    expectRoom("paused, with an own key, edited");
}

TEST_P(Room, archiveWizard)
{
    m_settings.archiveVaultId.clear();
    openStressed();
    pressWord("Settings");
    pressWord("Enable");
    expectRoom("introduction");
    m_observer.expect(
        QStringLiteral("POST /api/archive/prepare"),
        FakeHttpTransport::answer(ArchiveStatus{
            .archiveVaultId = QStringLiteral("v"),
            .hasRecoveryKey = true,
            .recoveryKey = QStringLiteral("ostrel-vault_1qy352euf40x77qfrg4ncn27dauqjx3t83x4ummcpzt0pu5gq0a7xjsk2m9")}
                                      .toJson()));
    pressWord("Continue");
    expectRoom("key");
    pressWord("Next");
    m_popover->archive()->setArchiveKeySavedConfirmed(true);
    settle();
    expectRoom("confirmation");
}

TEST_P(Room, archivePlace)
{
    openStressed();
    pressWord("Settings");
    pressWord("Change place…");
    for (const auto kind : {ArchiveTargetForm::Folder, ArchiveTargetForm::S3, ArchiveTargetForm::Rclone}) {
        m_popover->archiveTarget()->setKind(kind);
        settle();
        expectRoom(kind == ArchiveTargetForm::S3 ? "bucket" : kind == ArchiveTargetForm::Folder ? "folder" : "rclone");
    }
}

TEST_P(Room, exportCard)
{
    ArchiveExportStatus status{.state = QStringLiteral("idle"), .currentDay = {}, .error = {}};
    const QString getExport = QStringLiteral("GET /api/archive/export/status");
    m_observer.always(getExport, FakeHttpTransport::answer(status.toJson()));
    m_observer.always(QStringLiteral("POST /api/archive/export/estimate"),
                      FakeHttpTransport::answer(ArchiveExportEstimate{.clips = 600, .bytes = 734'003'200}.toJson()));
    openStressed();
    pressWord("Settings");
    pressWord("Export footage");
    expectRoom("configure");
    status.state = QStringLiteral("running");
    status.exported = 34'800;
    status.total = 60'000;
    m_observer.always(getExport, FakeHttpTransport::answer(status.toJson()));
    m_observer.expect(QStringLiteral("POST /api/archive/export"), FakeHttpTransport::answer(status.toJson()));
    pressWord("Export");
    expectRoom("running");
    status.state = QStringLiteral("done");
    status.skipped = 1'200;
    m_observer.always(getExport, FakeHttpTransport::answer(status.toJson()));
    advance(1s);
    expectRoom("finished");
    pressWord("Done");
}

TEST_P(Room, alert)
{
    openStressed();
    ask({.message = word("Switch to Ostrel-managed inference?"),
         .informativeText =
             word("New analysis will use Ostrel-managed inference. The saved BYOK key or service account "
                  "path on this Mac will be removed."),
         .buttons = {word("Service account JSON"), word("API key"), word("Cancel")},
         .fields = {{.label = word("API key"), .placeholder = word("API key"), .text = {}, .secure = true},
                    {.label = word("Project"), .placeholder = {}, .text = QStringLiteral("one"), .secure = false}}});
    expectRoom("alert");
}

INSTANTIATE_TEST_SUITE_P(Stresses, Room, testing::Values(Stress::LargeLetters, Stress::LongWords),
                         [](const auto &info) {
                             return info.param == Stress::LargeLetters ? std::string("LargeLetters")
                                                                       : std::string("LongWords");
                         });

} // namespace
