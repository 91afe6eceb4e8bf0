#pragma once

#include "AccessibleScreen.h"
#include "ArchiveTargets.h"
#include "ModelFixture.h"
#include "app/popover/PopoverEngine.h"
#include "app/popover/PopoverModel.h"
#include "base/Paths.h"
#include "support/FakeAutostart.h"

#include <QDir>
#include <QFile>
#include <QQmlEngine>
#include <QQuickView>
#include <QTest>

#include <memory>

namespace ostrel {

/// The screens over the whole model, whose desktop, observer and time belong to the test. Nothing moves by itself:
/// motion is reduced. Whatever QML complains of fails the test.
class PopoverFixture : public ModelFixture
{
protected:
    PopoverFixture()
    {
        m_accessibility.onIsTrusted = [this] { return m_accessibilityGranted.load(); };
        // Unless a test says otherwise, the observer lets nobody choose where the archive lies.
        m_observer.always(getTarget, FakeHttpTransport::answer({}, 404));
    }

    ~PopoverFixture() override { close(); }

    /// Starts the model and shows the screens.
    void open()
    {
        launch();
        show();
    }
    void show()
    {
        close();
        m_popover = std::make_unique<PopoverModel>(PopoverModel::Dependencies{.model = *m_model,
                                                                              .defaults = m_defaults,
                                                                              .autostart = m_autostart,
                                                                              .clock = m_clock,
                                                                              .appVersion = m_version,
                                                                              .checkForUpdates = m_checkForUpdates});
        m_popover->appearance()->setReducedMotion(true);
        m_view = std::make_unique<QQuickView>();
        QObject::connect(m_view->engine(), &QQmlEngine::warnings, [](const QList<QQmlError> &warnings) {
            for (const QQmlError &warning : warnings)
                ADD_FAILURE() << warning.toString().toStdString();
        });
        preparePopoverEngine(*m_view->engine());
        m_view->setResizeMode(QQuickView::SizeRootObjectToView);
        m_view->resize(320, 560);
        m_view->setInitialProperties({{QStringLiteral("model"), QVariant::fromValue(m_popover.get())}});
        m_view->setSource(popoverViewUrl());
        ASSERT_EQ(m_view->status(), QQuickView::Ready);
        m_view->show();
        m_view->requestActivate();
        settle();
    }

    /// Ends the screens. Their pictures go with the next one that is drawn, so that has to happen before the window's
    /// end.
    void close()
    {
        if (!m_view)
            return;
        m_view->setSource({});
        m_view->show();
        m_view->grabWindow();
        m_view.reset();
        settle();
    }

    /// The screen as it stands once everything is laid out, which happens only when it is drawn.
    AccessibleScreen screen() const
    {
        if (m_view->isVisible())
            m_view->grabWindow();
        return AccessibleScreen(*m_view);
    }
    void press(const QString &name)
    {
        screen().press(name);
        settle();
    }
    void press(const char *name) { press(QString::fromUtf8(name)); }
    bool shows(const char *name) const { return screen().has(QString::fromUtf8(name)); }
    bool showsButton(const char *name) const { return screen().hasButton(QString::fromUtf8(name)); }
    void key(Qt::Key key, Qt::KeyboardModifiers modifiers = Qt::NoModifier)
    {
        QTest::keyClick(m_view.get(), key, modifiers);
        settle();
    }
    /// Clicks into the middle of what has that name.
    void click(const char *name)
    {
        if (QQuickItem *item = screen().item(QString::fromUtf8(name))) {
            const QPointF middle = item->mapToScene({item->width() / 2, item->height() / 2});
            QTest::mouseClick(m_view.get(), Qt::LeftButton, Qt::NoModifier, middle.toPoint());
            settle();
        }
    }

    void writeDay(const QString &dateKey, const QByteArray &text) const
    {
        const QString folder = expandedPath(m_settings.outputDirectory);
        QDir().mkpath(folder);
        QFile day(folder + u'/' + dateKey + QStringLiteral(".md"));
        ASSERT_TRUE(day.open(QIODevice::WriteOnly));
        day.write(text);
    }
    /// Some entries, a minute from each other.
    static QByteArray entries(int count, const QByteArray &what = "Worked on")
    {
        QByteArray text = "## Session one\nstart_time: 2023-11-14T09:00:00+00:00\n";
        for (int i = 0; i < count; ++i)
            text += QStringLiteral("- [%1:%2] [Editor] action: %3 page %4\n")
                        .arg(9 + i / 60, 2, 10, QLatin1Char('0'))
                        .arg(i % 60, 2, 10, QLatin1Char('0'))
                        .arg(QString::fromUtf8(what))
                        .arg(i)
                        .toUtf8();
        return text;
    }

    FakeAutostart m_autostart;
    std::atomic<bool> m_accessibilityGranted = true;
    QString m_version = QStringLiteral("0.1.0");
    std::function<void()> m_checkForUpdates;
    std::unique_ptr<PopoverModel> m_popover;
    std::unique_ptr<QQuickView> m_view;
};

} // namespace ostrel
