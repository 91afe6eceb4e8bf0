#pragma once

#include "support/ScopedVariable.h"
#include "support/TestProcess.h"

#include <QByteArray>
#include <QList>
#include <QPoint>
#include <QSize>
#include <QTemporaryDir>

#include <memory>
#include <optional>
#include <vector>

namespace ostrel {

/// A Wayland session of the test's own: sway with outputs that exist in memory alone, in a private home and runtime
/// folder, with the pointer out of the way. This process belongs to the session until it is destroyed, and every
/// program that was started has ended then. Main thread.
class WaylandDesktop
{
public:
    /// The outputs are called HEADLESS-1, HEADLESS-2 and so on.
    struct Output {
        QSize pixels;
        QPoint corner; ///< on sway's desktop, logical
        int scale = 1;
        QString transform = QStringLiteral("normal"); ///< in sway's words
        QByteArray colour = "#336699";
    };

    explicit WaylandDesktop(QList<Output> outputs);
    ~WaylandDesktop();

    static QString nameOf(qsizetype output) { return QStringLiteral("HEADLESS-%1").arg(output + 1); }

    const QProcessEnvironment &environment() const { return m_environment; }
    /// A file or folder in the session's private folder.
    QString path(const QString &name) const { return m_directory.filePath(name); }
    QByteArray ipcSocket() const { return m_environment.value(QStringLiteral("SWAYSOCK")).toLocal8Bit(); }
    TestProcess &compositor() { return *m_sway; }

    /// Ends sway and everything in it, and starts a new one at the same place.
    void restart();
    /// Has sway do something, in the words of its configuration; ends the test when it refuses.
    void command(const QString &words);
    /// What swaymsg prints, as JSON.
    QByteArray ask(const QString &type);
    /// Starts a program of the session; it ends with the session at the latest.
    TestProcess &start(const QString &program, const QStringList &arguments);
    /// A terminal without borders, all of one colour; of several on a workspace each gets a part. Returns when it has
    /// the focus.
    /// @param colour as six hexadecimal digits
    TestProcess &startTerminal(const QString &appId, const QString &title, const QByteArray &colour);
    /// Fills an output with a picture that has its size.
    void showPicture(qsizetype output, const QString &file);

private:
    void writeConfiguration() const;
    void startSway();
    void put(const QString &variable, const QString &value);
    std::unique_ptr<TestProcess> launch(const QString &program, const QStringList &arguments,
                                        const QProcessEnvironment &environment);
    std::optional<QByteArray> message(const QStringList &arguments);

    const QList<Output> m_outputs;
    QTemporaryDir m_directory;
    QProcessEnvironment m_environment;
    std::vector<std::unique_ptr<ScopedVariable>> m_entered;
    std::unique_ptr<TestProcess> m_sway;
    std::vector<std::unique_ptr<TestProcess>> m_programs;
};

} // namespace ostrel
