#pragma once

#include "observer/ObserverSettings.h"
#include "observer/PortHolder.h"
#include "observer/WireRecords.h"

#include <QString>
#include <chrono>
#include <optional>

namespace ostrel {

class SecretStore;

/// How far one gets with the observer.
enum class ObserverReach {
    Answers,
    NotRunning,    ///< nobody listens on the port
    NoPort,        ///< what the settings name is none
    AnotherUsers,  ///< a program of another user listens; nothing was sent to it
    TokenRefused,  ///< whoever listens holds our token for wrong
    NotAnObserver, ///< whoever listens gives no answer that an observer would give
    Silent,        ///< whoever listens gives none at all
    Failed,        ///< the question could not be asked, or was cut off
};

/// What came of one question to the observer.
struct ObserverAnswer {
    ObserverReach reach = ObserverReach::Failed;
    qint64 port = 0;
    std::optional<ObserverStatus> status; ///< of one that answers
    std::optional<PortHolder> holder;     ///< of whoever listens
    QString failure;                      ///< the words of one that failed
    /// Why the token could not be read from where it is kept.
    std::optional<QString> tokenFailure;
};

/// What is wrong, in a sentence, and the command that mends it where there is one.
struct Advice {
    QString sentence;
    std::optional<QString> command;
};

/// How long a command waits for an answer.
constexpr std::chrono::seconds observerPatience{5};

/// The sentence and the command behind it.
QString inOneLine(const Advice &advice);

/// Asks the observer for its status, once. Changes nothing: no token is made, no observer started. Main thread, outside
/// of an event loop; returns soon after the patience at the latest, but for what the secret store takes.
ObserverAnswer askObserver(SecretStore &secrets, const ObserverSettings &settings,
                           std::chrono::milliseconds patience = observerPatience);

/// Puts an answer other than `Answers` into words. Looks for a free port where it has to name one.
Advice adviceOn(const ObserverAnswer &answer);

} // namespace ostrel
