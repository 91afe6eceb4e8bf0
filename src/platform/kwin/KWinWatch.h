#pragma once

#include "platform/kwin/KWinNews.h"
#include "platform/sessionbus/BusSignals.h"
#include "platform/sessionbus/BusThread.h"

#include <QString>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

namespace ostrel {

/// Has KWin run the script for as long as there is a bus, also after KWin was started anew, and hears what it tells.
/// Nobody else is heard. The thread of the bus.
class KWinWatch final : public BusVisitor
{
public:
    /// All windows; nothing when they aren't known any more.
    using Tell = std::function<void(std::optional<KWinNews> news)>;

    /// @param scriptFolder where the script lies while KWin reads it
    /// @param firstPause before it is tried again with a KWin that refuses
    KWinWatch(Tell tell, QString scriptFolder, std::chrono::milliseconds firstPause);
    ~KWinWatch() override;

    void visit(const BusLine &line, BusLoop &loop) override;
    void leave() override;

private:
    bool exportListener();
    /// Forgets what was told, and starts the script where there is a KWin.
    void startAnew();
    void start();
    bool runScript(GlibHandle<GError> &error);
    void unload(const BusLine &line);
    void receive(const char *sender, GVariant *arguments, GDBusMethodInvocation *invocation);

    const Tell m_tell;
    const QString m_scriptFolder;
    const std::chrono::milliseconds m_firstPause;
    QByteArray m_scriptName; ///< as nobody else's on this bus
    BusLine m_line;
    BusLoop *m_loop = nullptr;
    guint m_object = 0;
    std::unique_ptr<BusSignals> m_signals;
    QByteArray m_kwin;          ///< its unique name; empty while there is none
    bool m_mayBeLoaded = false; ///< in this one
    std::chrono::milliseconds m_pause{0};
    std::unique_ptr<BusTimer> m_retry;
};

} // namespace ostrel
