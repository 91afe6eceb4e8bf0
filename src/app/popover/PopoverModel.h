#pragma once

#include "app/popover/ArchiveForm.h"
#include "app/popover/ArchiveTargetForm.h"
#include "app/popover/AutostartForm.h"
#include "app/popover/DesktopAppearance.h"
#include "app/popover/ExportForm.h"
#include "app/popover/JournalListModel.h"
#include "app/popover/PaletteScheme.h"
#include "app/popover/PermissionRows.h"
#include "app/popover/SettingsForm.h"

#include <QObject>
#include <QString>
#include <QtQmlIntegration>
#include <functional>

namespace ostrel {

class AppModel;
class Autostart;
class Clock;
class UserDefaults;

/// The application model as the popover's screens see it: the same names, plain values, and the empty text for what is
/// absent. It holds no state of the product. Main thread.
class PopoverModel : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("made by the program")

    Q_PROPERTY(bool isRecording READ isRecording NOTIFY recorderChanged)
    /// Whether a recording is being started or stopped.
    Q_PROPERTY(bool isWaiting READ isWaiting NOTIFY recorderChanged)
    Q_PROPERTY(QString recordButtonTitle READ recordButtonTitle NOTIFY recorderChanged)
    Q_PROPERTY(QString recorderSubtext READ recorderSubtext NOTIFY recorderChanged)
    Q_PROPERTY(bool recorderSubtextIsError READ recorderSubtextIsError NOTIFY recorderChanged)
    Q_PROPERTY(bool recorderSubtextIsBackfillNotice READ recorderSubtextIsBackfillNotice NOTIFY recorderChanged)
    Q_PROPERTY(QString recordingProviderIndicatorText READ recordingProviderIndicatorText NOTIFY recorderChanged)
    Q_PROPERTY(bool popoverOverlayActive READ popoverOverlayActive NOTIFY popoverOverlayActiveChanged)

    /// The text of the settings screen's footer.
    Q_PROPERTY(QString versionText READ versionText CONSTANT)
    Q_PROPERTY(bool canCheckForUpdates READ canCheckForUpdates CONSTANT)

    Q_PROPERTY(ostrel::PermissionRows *permissions READ permissions CONSTANT)
    Q_PROPERTY(ostrel::JournalListModel *journal READ journal CONSTANT)
    Q_PROPERTY(ostrel::SettingsForm *settings READ settings CONSTANT)
    Q_PROPERTY(ostrel::ArchiveForm *archive READ archive CONSTANT)
    Q_PROPERTY(ostrel::ArchiveTargetForm *archiveTarget READ archiveTarget CONSTANT)
    Q_PROPERTY(ostrel::ExportForm *footageExport READ footageExport CONSTANT)
    Q_PROPERTY(ostrel::AutostartForm *autostart READ autostart CONSTANT)
    Q_PROPERTY(ostrel::DesktopAppearance *appearance READ appearance CONSTANT)

public:
    /// What it is built from. References outlive this object.
    struct Dependencies {
        AppModel &model;
        UserDefaults &defaults;
        Autostart &autostart;
        Clock &clock;
        QString appVersion;                    ///< without the "v"
        std::function<void()> checkForUpdates; ///< empty where there are no updates
    };

    explicit PopoverModel(Dependencies dependencies);

    bool isRecording() const;
    bool isWaiting() const;
    QString recordButtonTitle() const;
    QString recorderSubtext() const;
    bool recorderSubtextIsError() const;
    bool recorderSubtextIsBackfillNotice() const;
    QString recordingProviderIndicatorText() const;
    bool popoverOverlayActive() const;
    QString versionText() const;
    bool canCheckForUpdates() const { return bool(m_checkForUpdates); }

    PermissionRows *permissions() { return &m_permissions; }
    JournalListModel *journal() { return &m_journal; }
    SettingsForm *settings() { return &m_settings; }
    ArchiveForm *archive() { return &m_archive; }
    ArchiveTargetForm *archiveTarget() { return &m_archiveTarget; }
    ExportForm *footageExport() { return &m_export; }
    AutostartForm *autostart() { return &m_autostart; }
    /// Dark while the desktop's palette is.
    DesktopAppearance *appearance() { return &m_appearance; }

    Q_INVOKABLE void toggleRecording();
    Q_INVOKABLE void refreshJournal();
    Q_INVOKABLE void checkForUpdates();
    Q_INVOKABLE void quit();

Q_SIGNALS:
    void recorderChanged();
    void popoverOverlayActiveChanged();

private:
    AppModel &m_model;
    const QString m_appVersion;
    const std::function<void()> m_checkForUpdates;
    PermissionRows m_permissions;
    JournalListModel m_journal;
    SettingsForm m_settings;
    ArchiveForm m_archive;
    ArchiveTargetForm m_archiveTarget;
    ExportForm m_export;
    AutostartForm m_autostart;
    DesktopAppearance m_appearance;
    PaletteScheme m_palette{m_appearance};
};

} // namespace ostrel
