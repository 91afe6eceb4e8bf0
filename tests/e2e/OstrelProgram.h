#pragma once

#include "support/VirtualDesktop.h"

#include <QByteArray>
#include <QJsonDocument>
#include <QList>
#include <QString>
#include <QStringList>

namespace ostrel {

/// The built program, run as its user would: in a session of its own, with its real observer.
class OstrelProgram
{
public:
    struct Outcome {
        int status = -1;
        QByteArray output;
        QByteArray messages;
    };

    /// @param environment home, display and bus to run in
    explicit OstrelProgram(QProcessEnvironment environment);

    QProcessEnvironment &environment() { return m_environment; }
    QString home() const { return m_environment.value(QStringLiteral("HOME")); }
    /// A path below the home folder.
    QString path(const QString &name) const { return home() + QLatin1Char('/') + name; }

    /// Runs it to its end.
    Outcome run(const QStringList &arguments) const;
    QJsonDocument json(const QStringList &arguments) const;

    /// Starts it; `messages` waits for what it says.
    void start(const QStringList &arguments);
    /// Starts it by way of another program, which must become it.
    void startThrough(const QString &program, const QStringList &arguments);
    /// Waits until standard error holds this text that many times.
    void waitForMessage(const QByteArray &text, int times = 1);
    void terminate();
    void signal(int number);
    qint64 processId() const;
    Outcome waitForEnd();

    /// From the next start on it says what its capture does.
    void tellOfCapture();
    /// How many frames it has handed over to the observer, as it says then.
    static int framesHandedOver(const QByteArray &messages);

    /// Writes the settings file, with a free port unless one is given.
    void writeSettings(const QByteArray &otherKeys = {}, int port = 0);
    /// The observers of this home, while they run.
    QList<qint64> observers() const;
    /// Waits until there is none.
    void expectNoObserverStays() const;
    /// What waits to be analysed, as names below `~/.ostrel/observer`.
    QStringList spooled() const;
    /// For `writeSettings`: the observer keeps the picture of each frame that it has analysed.
    static constexpr const char *keepAnalysed = "\"saveRawInputs\": true, \"rawInputDirectory\": \"~/raw\"";
    /// Those frames as "batch-frame", each as often as it was analysed.
    QStringList analysedFrames() const;
    /// All the journal's files, one after the other.
    QByteArray journal() const;

    static QString file();

private:
    void launch(const QString &program, const QStringList &arguments);

    QProcessEnvironment m_environment;
    std::unique_ptr<QProcess> m_process;
    QByteArray m_messages;
};

} // namespace ostrel
