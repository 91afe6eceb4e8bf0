#pragma once

#include "support/PlayedService.h"

#include <QByteArray>
#include <QByteArrayList>

#include <mutex>

namespace ostrel {

/// A KWin that runs no script, but tells what the test says to whoever has had one run. Any thread.
class TestKWin
{
public:
    struct Ways {
        const char *scriptPath = "/"; ///< before a script's number; another one in KWin 6
        bool takesScripts = true;
        bool saysThatTheyRun = true;
        bool saysWhatIsLoaded = true;
        bool keepsScripts = true;
    };

    TestKWin(const QByteArray &busAddress, Ways ways);
    explicit TestKWin(const QByteArray &busAddress) : TestKWin(busAddress, Ways()) {}

    /// Scripts that run.
    int running();
    /// How many were to be loaded, in vain or not.
    int asked();
    /// How often it was asked whether a script is loaded, and answered that or not.
    int questions();
    void answerQuestions(bool isAnswering);
    /// Names of effects that it shows.
    void showEffects(const QByteArrayList &effects);
    /// As if another program had all scripts unloaded.
    void unloadAll();
    /// The text of the latest script, and how its file was when it was loaded and is now.
    QByteArray script();
    int scriptMode();
    bool isScriptThere();
    void takeScripts();

    /// As the latest script would.
    /// @return the name of the error; empty without one
    QByteArray tell(const QByteArray &json);
    /// Where the script would tell it.
    static PlayedService::Method listenerIn(const QByteArray &script);

private:
    bool handle(GDBusMessage *call);
    void load(GDBusMessage *call, const char *file, const char *name);
    void unload(GDBusMessage *call, const char *name);
    void tellEffects(GDBusMessage *call);
    void tellWhetherLoaded(GDBusMessage *call, const char *name);
    bool run(GDBusMessage *call);

    std::mutex m_mutex;
    Ways m_ways;
    QByteArrayList m_loaded; ///< names, by number
    QByteArrayList m_running;
    int m_asked = 0;
    int m_questions = 0;
    QByteArrayList m_effects;
    QByteArray m_file;
    QByteArray m_script;
    int m_scriptMode = 0;
    PlayedService m_service; ///< the last, for it calls the others
};

} // namespace ostrel
