#include "app/ObserverQuestion.h"

#include "app/RunTask.h"
#include "base/Clock.h"
#include "base/Fault.h"
#include "base/SerialQueue.h"
#include "observer/LocalObserverAPI.h"
#include "observer/NetworkTransport.h"
#include "observer/PortOwner.h"
#include "observer/SecretStore.h"
#include "observer/TokenStore.h"

#include <unistd.h>

namespace ostrel {

namespace {

constexpr qint64 greatestPort = 65'535;
constexpr int unauthorized = 401;

bool isPort(qint64 number)
{
    return number >= 1 && number <= greatestPort;
}

/// Hands requests on and remembers the status code, which the client keeps to itself.
class WitnessTransport final : public HttpTransport
{
public:
    explicit WitnessTransport(HttpTransport &transport) : m_transport(transport) {}

    Task<Result<HttpAnswer>> send(HttpRequest request, std::stop_token stop) override
    {
        auto answer = co_await m_transport.send(std::move(request), std::move(stop));
        if (answer)
            m_statusCode = answer->statusCode;
        co_return answer;
    }
    std::optional<int> statusCode() const { return m_statusCode; }

private:
    HttpTransport &m_transport;
    std::optional<int> m_statusCode;
};

ObserverReach reachBehind(const Error &error, std::optional<int> statusCode, bool looksLikeObserver)
{
    if (isFault(error, Fault::ConnectionRefused))
        return ObserverReach::NotRunning;
    if (isFault(error, Fault::PortTaken))
        return ObserverReach::AnotherUsers;
    if (isFault(error, Fault::Cancelled) || isFault(error, Fault::TimedOut))
        return ObserverReach::Silent;
    if (statusCode == unauthorized)
        return ObserverReach::TokenRefused;
    // An observer that is just ending cuts connections off; from anything else it is no answer of an observer.
    return statusCode || !looksLikeObserver ? ObserverReach::NotAnObserver : ObserverReach::Failed;
}

void ask(ObserverAnswer &answer, const ObserverSettings &settings, const std::optional<QString> &token,
         std::chrono::milliseconds patience)
{
    SystemClock clock;
    NetworkTransport network(clock);
    WitnessTransport transport(network);
    SerialQueue worker(QStringLiteral("com.tamsk.ostrel.worker"));
    LocalObserverAPI api(settings.localhostBaseURL(), token, transport, worker);
    Result<ObserverStatus> status;
    // It runs to its end within this call. NOLINTNEXTLINE(cppcoreguidelines-avoid-capturing-lambda-coroutines)
    runToEnd([&](std::stop_token) -> Task<> {
        std::stop_source outOfTime;
        const auto withdraw = clock.schedule(patience, [&outOfTime] { outOfTime.request_stop(); });
        status = co_await api.status(outOfTime.get_token());
        withdraw();
    });
    if (status) {
        answer.reach = ObserverReach::Answers;
        answer.status = *status;
    } else {
        answer.reach = reachBehind(status.error(), transport.statusCode(), answer.holder->isObserver());
        answer.failure = status.error().localizedDescription;
    }
}

/// "node (process 4711)", as far as it can be seen.
QString named(const PortHolder &holder)
{
    const QString program = holder.program().isEmpty() ? QStringLiteral("a program") : holder.program();
    return holder.processId ? QStringLiteral("%1 (process %2)").arg(program).arg(*holder.processId) : program;
}

/// The command that moves the observer to a port that is free now.
QString otherPort(qint64 port)
{
    constexpr int tries = 20;
    qint64 candidate = isPort(port + 1) ? port + 1 : ObserverSettings::defaults().localPort;
    for (int i = 0; i < tries; ++i, ++candidate) {
        const auto sockets = listeningSockets(quint16(candidate));
        if (isPort(candidate) && sockets && sockets->isEmpty())
            break;
    }
    return QStringLiteral("ostrel settings set localPort %1").arg(candidate);
}

Advice adviceOnRefusedToken(const ObserverAnswer &answer, const PortHolder &holder)
{
    if (answer.tokenFailure)
        return {.sentence = QStringLiteral("The observer could not be asked, because its token cannot be read: %1")
                                .arg(*answer.tokenFailure),
                .command = {}};
    if (!holder.isObserver())
        return {.sentence = QStringLiteral("Port %1 is used by %2, which refuses our token: it is not our observer.")
                                .arg(answer.port)
                                .arg(named(holder)),
                .command = otherPort(answer.port)};
    return {.sentence = QStringLiteral("The observer on port %1 (process %2) refuses our token: it was started from "
                                       "another home folder, or before the token changed.")
                            .arg(answer.port)
                            .arg(holder.processId.value_or(0)),
            .command = QStringLiteral("kill %1").arg(holder.processId.value_or(0))};
}

Advice adviceOnSilence(const ObserverAnswer &answer, const PortHolder &holder)
{
    if (holder.isObserver() && holder.processId)
        return {.sentence = QStringLiteral("The observer (process %1) does not answer. What it has taken over is "
                                           "kept, also if it is ended.")
                                .arg(*holder.processId),
                .command = QStringLiteral("kill -KILL %1").arg(*holder.processId)};
    return {.sentence = QStringLiteral("Port %1 is used by %2, which does not answer: it is not the observer.")
                            .arg(answer.port)
                            .arg(named(holder)),
            .command = otherPort(answer.port)};
}

} // namespace

QString inOneLine(const Advice &advice)
{
    return advice.command ? QStringLiteral("%1 Try: %2").arg(advice.sentence, *advice.command) : advice.sentence;
}

ObserverAnswer askObserver(SecretStore &secrets, const ObserverSettings &settings, std::chrono::milliseconds patience)
{
    ObserverAnswer answer;
    answer.port = settings.localPort;
    if (!isPort(settings.localPort)) {
        answer.reach = ObserverReach::NoPort;
        return answer;
    }
    const auto holder = portHolder(quint16(settings.localPort));
    if (!holder) {
        answer.failure = holder.error().localizedDescription;
        return answer;
    }
    if (!*holder) {
        // Nobody need be asked for the token either.
        answer.reach = ObserverReach::NotRunning;
        return answer;
    }
    answer.holder = *holder;
    if ((*holder)->user != ::geteuid()) {
        answer.reach = ObserverReach::AnotherUsers;
        return answer;
    }
    const auto token = secrets.lookUp(localApiTokenService, secretAccount);
    if (!token)
        answer.tokenFailure = token.error().localizedDescription;
    ask(answer, settings, token.value_or(std::nullopt), patience);
    return answer;
}

Advice adviceOn(const ObserverAnswer &answer)
{
    const PortHolder holder = answer.holder.value_or(PortHolder());
    switch (answer.reach) {
    case ObserverReach::Answers:
        return {};
    case ObserverReach::NotRunning:
        return {.sentence = QStringLiteral("The observer is not running: nothing is being recorded."),
                .command = QStringLiteral("ostrel record")};
    case ObserverReach::NoPort:
        return {.sentence = QStringLiteral("localPort is %1, which is no port.").arg(answer.port),
                .command = otherPort(answer.port)};
    case ObserverReach::AnotherUsers:
        return {.sentence = QStringLiteral("Port %1 is used by %2 of the user %3. Nothing was sent to it.")
                                .arg(answer.port)
                                .arg(named(holder), holder.userName),
                .command = otherPort(answer.port)};
    case ObserverReach::TokenRefused:
        return adviceOnRefusedToken(answer, holder);
    case ObserverReach::NotAnObserver:
        return {
            .sentence =
                QStringLiteral("Port %1 is used by %2, which is not the observer.").arg(answer.port).arg(named(holder)),
            .command = otherPort(answer.port)};
    case ObserverReach::Silent:
        return adviceOnSilence(answer, holder);
    case ObserverReach::Failed:
        break;
    }
    return {.sentence = QStringLiteral("The observer could not be asked: %1").arg(answer.failure), .command = {}};
}

} // namespace ostrel
