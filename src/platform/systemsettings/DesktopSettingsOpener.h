#pragma once

#include "model/SystemSettingsOpener.h"

#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

namespace ostrel {

/// Opens the desktop's own settings where they have a page for a grant: accessibility on GNOME, KDE, XFCE, MATE and
/// Cinnamon, privacy on those GNOME and KDE that have it. Everywhere else it opens our page that explains the grants.
/// What is started outlives the program, and neither reads nor writes its terminal.
class DesktopSettingsOpener final : public SystemSettingsOpener
{
public:
    /// @param environment of the session: which desktop it is, and where programs and desktop entries lie. Without a
    ///                    display in it nothing is opened
    /// @param helpPage    an absolute path; where there is no such file, nothing is opened in place of a missing page
    DesktopSettingsOpener(const QProcessEnvironment &environment, QString helpPage);

    void openScreenRecording() override;
    void openFilesAndFolders() override;
    void openAccessibility() override;

private:
    enum class Page { ScreenRecording, Accessibility };
    struct Panel;

    static const QList<Panel> &panels();
    bool openPanel(Page page) const;
    void openHelpPage() const;
    bool isInstalled(const Panel &panel) const;
    QString findProgram(const QString &name) const;
    bool start(const QString &program, const QStringList &arguments) const;

    const QProcessEnvironment m_environment;
    const QString m_helpPage;
};

} // namespace ostrel
