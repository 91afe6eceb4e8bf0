#include "platform/systemsettings/DesktopSettingsOpener.h"

#include "base/Log.h"

#include <QFileInfo>
#include <QList>
#include <QProcess>
#include <QStandardPaths>

#include <algorithm>
#include <utility>

namespace ostrel {

/// A page of a desktop's settings, and how it is opened.
struct DesktopSettingsOpener::Panel {
    Page page;
    const char *desktop; ///< as XDG_CURRENT_DESKTOP names it
    const char *program;
    const char *argument = nullptr;
    /// Installed only with versions that have the page; the program alone would open any page instead.
    const char *desktopEntry = nullptr;
};

/// The first one that is installed is opened. KDE's program had its version in its name, and still has it on some.
const QList<DesktopSettingsOpener::Panel> &DesktopSettingsOpener::panels()
{
    static const QList<Panel> all{
        {Page::Accessibility, "GNOME", "gnome-control-center", "universal-access",
         "gnome-universal-access-panel.desktop"},
        {Page::Accessibility, "KDE", "systemsettings", "kcm_access", "kcm_access.desktop"},
        {Page::Accessibility, "KDE", "systemsettings5", "kcm_access", "kcm_access.desktop"},
        {Page::Accessibility, "KDE", "kcmshell6", "kcm_access", "kcm_access.desktop"},
        {Page::Accessibility, "KDE", "kcmshell5", "kcm_access", "kcm_access.desktop"},
        {Page::Accessibility, "XFCE", "xfce4-accessibility-settings"},
        {Page::Accessibility, "MATE", "mate-at-properties"},
        {Page::Accessibility, "X-Cinnamon", "cinnamon-settings", "accessibility"},
        {Page::ScreenRecording, "GNOME", "gnome-control-center", "privacy", "gnome-privacy-panel.desktop"},
        {Page::ScreenRecording, "KDE", "systemsettings", "kcm_app-permissions", "kcm_app-permissions.desktop"},
        {Page::ScreenRecording, "KDE", "kcmshell6", "kcm_app-permissions", "kcm_app-permissions.desktop"},
    };
    return all;
}

namespace {

QStringList pathsIn(const QProcessEnvironment &environment, const char *name, const char *otherwise)
{
    const QString value = environment.value(QLatin1String(name));
    return (value.isEmpty() ? QString::fromLatin1(otherwise) : value).split(u':', Qt::SkipEmptyParts);
}

QStringList dataFolders(const QProcessEnvironment &environment)
{
    const QString ownFolder = environment.value(QStringLiteral("HOME")) + QLatin1String("/.local/share");
    return pathsIn(environment, "XDG_DATA_HOME", qPrintable(ownFolder)) +
           pathsIn(environment, "XDG_DATA_DIRS", "/usr/local/share:/usr/share");
}

bool hasDisplay(const QProcessEnvironment &environment)
{
    return !environment.value(QStringLiteral("DISPLAY")).isEmpty() ||
           !environment.value(QStringLiteral("WAYLAND_DISPLAY")).isEmpty();
}

} // namespace

DesktopSettingsOpener::DesktopSettingsOpener(const QProcessEnvironment &environment, QString helpPage)
    : m_environment(environment), m_helpPage(std::move(helpPage))
{}

void DesktopSettingsOpener::openScreenRecording()
{
    if (!openPanel(Page::ScreenRecording))
        openHelpPage();
}

/// No desktop grants folders to programs that run outside of a sandbox: their owner and mode decide, and our page says
/// what to do about them.
void DesktopSettingsOpener::openFilesAndFolders()
{
    openHelpPage();
}

void DesktopSettingsOpener::openAccessibility()
{
    if (!openPanel(Page::Accessibility))
        openHelpPage();
}

bool DesktopSettingsOpener::openPanel(Page page) const
{
    // Such as "ubuntu:GNOME": from the particular to what it is made of.
    const QStringList desktops = pathsIn(m_environment, "XDG_CURRENT_DESKTOP", "");
    return std::ranges::any_of(panels(), [&](const Panel &panel) {
        return panel.page == page && desktops.contains(QLatin1String(panel.desktop), Qt::CaseInsensitive) &&
               isInstalled(panel) &&
               start(QLatin1String(panel.program),
                     panel.argument ? QStringList(QLatin1String(panel.argument)) : QStringList());
    });
}

bool DesktopSettingsOpener::isInstalled(const Panel &panel) const
{
    if (!panel.desktopEntry)
        return true; // the program shows nothing else
    return std::ranges::any_of(dataFolders(m_environment), [&panel](const QString &folder) {
        return QFileInfo::exists(folder + QLatin1String("/applications/") + QLatin1String(panel.desktopEntry));
    });
}

void DesktopSettingsOpener::openHelpPage() const
{
    if (!QFileInfo(m_helpPage).isFile())
        qCWarning(logPlatform, "there is no page that explains the grants at %ls", qUtf16Printable(m_helpPage));
    else if (!start(QStringLiteral("xdg-open"), {m_helpPage}) &&
             !start(QStringLiteral("gio"), {QStringLiteral("open"), m_helpPage}))
        qCInfo(logPlatform, "nothing here can show %ls", qUtf16Printable(m_helpPage));
}

QString DesktopSettingsOpener::findProgram(const QString &name) const
{
    const QStringList folders = pathsIn(m_environment, "PATH", "");
    // Given none, Qt would search those of this process.
    return folders.isEmpty() ? QString() : QStandardPaths::findExecutable(name, folders);
}

/// @return whether it runs
bool DesktopSettingsOpener::start(const QString &program, const QStringList &arguments) const
{
    const QString path = findProgram(program);
    if (path.isEmpty() || !hasDisplay(m_environment))
        return false;
    QProcess process;
    process.setProgram(path);
    process.setArguments(arguments);
    process.setProcessEnvironment(m_environment);
    process.setStandardInputFile(QProcess::nullDevice());
    process.setStandardOutputFile(QProcess::nullDevice());
    process.setStandardErrorFile(QProcess::nullDevice());
    return process.startDetached();
}

} // namespace ostrel
