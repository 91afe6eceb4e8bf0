#include "platform/desktopentry/DesktopEntryFile.h"

#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <gio/gdesktopappinfo.h>
#include <memory>

namespace ostrel {

namespace {

using KeyFile = std::unique_ptr<GKeyFile, decltype(&g_key_file_unref)>;

QString takeString(char *text)
{
    const std::unique_ptr<char, decltype(&g_free)> owned(text, &g_free);
    return QString::fromUtf8(owned.get());
}

QString value(GKeyFile *file, const char *key)
{
    return takeString(g_key_file_get_string(file, G_KEY_FILE_DESKTOP_GROUP, key, nullptr));
}

bool flag(GKeyFile *file, const char *key)
{
    return g_key_file_get_boolean(file, G_KEY_FILE_DESKTOP_GROUP, key, nullptr);
}

/// What an interpreter or a terminal is told to run is not that program; so entries with arguments of their own have
/// none.
QString programOf(GKeyFile *file)
{
    if (flag(file, G_KEY_FILE_DESKTOP_KEY_TERMINAL))
        return {};
    int count = 0;
    char **words = nullptr;
    const QByteArray command = value(file, G_KEY_FILE_DESKTOP_KEY_EXEC).toUtf8();
    if (g_shell_parse_argv(command.constData(), &count, &words, nullptr) == FALSE)
        return {};
    const std::unique_ptr<char *, decltype(&g_strfreev)> owned(words, &g_strfreev);
    const bool hasArguments = std::any_of(words + 1, words + count, [](const char *word) { return *word != '%'; });
    return hasArguments ? QString() : QFileInfo(QFile::decodeName(words[0])).fileName();
}

} // namespace

std::optional<DesktopEntryFile> readDesktopEntryFile(const QString &path)
{
    // GDesktopAppInfo would drop entries whose program it can't find in its own PATH, but their windows are there.
    const KeyFile file(g_key_file_new(), &g_key_file_unref);
    if (!QFileInfo(path).isFile() ||
        !g_key_file_load_from_file(file.get(), QFile::encodeName(path).constData(), G_KEY_FILE_NONE, nullptr))
        return std::nullopt;
    if (value(file.get(), G_KEY_FILE_DESKTOP_KEY_TYPE) != QLatin1String(G_KEY_FILE_DESKTOP_TYPE_APPLICATION))
        return std::nullopt;
    return DesktopEntryFile{
        .name = takeString(g_key_file_get_locale_string(file.get(), G_KEY_FILE_DESKTOP_GROUP,
                                                        G_KEY_FILE_DESKTOP_KEY_NAME, nullptr, nullptr)),
        .startupWmClass = value(file.get(), G_KEY_FILE_DESKTOP_KEY_STARTUP_WM_CLASS),
        .program = programOf(file.get()),
        .hidden = flag(file.get(), G_KEY_FILE_DESKTOP_KEY_HIDDEN),
        .visible = !flag(file.get(), G_KEY_FILE_DESKTOP_KEY_NO_DISPLAY),
    };
}

} // namespace ostrel
