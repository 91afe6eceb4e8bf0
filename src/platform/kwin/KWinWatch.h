#pragma once

#include "platform/kwin/KWinNews.h"
#include "platform/sessionbus/BusSignals.h"
#include "platform/sessionbus/BusThread.h"
#include "platform/sessionbus/BusWaker.h"

#include <QString>

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>

namespace ostrel {

/// Has KWin run the script for as long as somebody asks, also after KWin was started anew or has unloaded it, and hears
/// what it tells. Nobody else is heard. The thread of the bus, but for `ask`.
class KWinWatch final : public BusVisitor
{
public:
    struct Outlets {
        /// All windows; nothing when they aren't known any more.
        std::function<void(std::optional<KWinNews> news)> tell;
        /// The script still runs, and all that KWin drew before this time is told.
        std::function<void(std::chrono::milliseconds time, bool isElsewhere)> confirm;
        /// By which that is measured.
        std::function<std::chrono::milliseconds()> monotonicTime;
    };
    struct Ways {
        QString scriptFolder;                 ///< where the script lies while KWin reads it
        std::chrono::milliseconds firstPause; ///< before it is tried again with a KWin that refuses
        std::chrono::milliseconds restAfter;  ///< without anybody who asks
    };

    KWinWatch(Outlets outlets, Ways ways);
    ~KWinWatch() override;

    void visit(const BusLine &line, BusLoop &loop) override;
    void leave() override;

    /// Wants a `confirm` of now, soon. Any thread; waits for nothing.
    void ask();

private:
    struct Question;
    /// @param answer null without one
    using TakeAnswer = void (KWinWatch::*)(const Question &question, GVariant *answer);

    bool exportListener();
    /// Forgets what was told, and starts the script where there is a KWin.
    void startAnew();
    void start();
    void retryLater(const char *why);
    bool runScript(GlibHandle<GError> &error);
    void unload(const BusLine &line);
    void receive(const char *sender, GVariant *arguments, GDBusMethodInvocation *invocation);
    /// Asks KWin, unless it hasn't answered yet: then afterwards.
    void inquire();
    void ask(Question question, const BusMethod &method, GVariant *arguments, const char *answerType, TakeAnswer taker);
    void takeEffects(const Question &question, GVariant *answer);
    void takeAnswer(const Question &question, GVariant *answer);
    /// Of a script that KWin has unloaded.
    void replaceScript();
    void rest();
    void forget();

    const Outlets m_outlets;
    const Ways m_ways;
    QByteArray m_scriptName; ///< as nobody else's on this bus
    BusLine m_line;
    BusLoop *m_loop = nullptr;
    guint m_object = 0;
    std::unique_ptr<BusSignals> m_signals;
    QByteArray m_kwin;          ///< its unique name; empty while there is none
    bool m_mayBeLoaded = false; ///< in this one
    std::chrono::milliseconds m_pause{0};
    std::unique_ptr<BusTimer> m_retry;
    std::unique_ptr<BusTimer> m_rest;
    bool m_isResting = true; ///< nobody asks, and so KWin runs no script
    bool m_isRunning = false;
    bool m_isConfirmed = false; ///< by KWin, since it was started
    int m_attempt = 0;          ///< at a script that runs; what was asked about an earlier one is void
    bool m_isElsewhere = false; ///< an effect shows windows elsewhere, by the last answer
    bool m_isInquiring = false;
    bool m_isAskedAgain = false;

    std::mutex m_mutex; ///< of these
    std::unique_ptr<BusWaker> m_waker;
    bool m_isAsked = false; ///< while nobody could be woken
};

} // namespace ostrel
