#include "base/Clock.h"
#include "base/SerialQueue.h"
#include "base/TaskSlot.h"
#include "observer/LocalObserverAPI.h"
#include "observer/NetworkTransport.h"

#include <QCoreApplication>
#include <QFile>

#include <array>
#include <cstdio>

#include <arpa/inet.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace ostrel;

namespace {

constexpr int frameCount = 200;
constexpr qsizetype jpegBytes = 400'000;

/// A line of /proc/self/status, in bytes.
qint64 memory(const char *key)
{
    QFile file(QStringLiteral("/proc/self/status"));
    if (!file.open(QIODevice::ReadOnly))
        return 0;
    for (const QByteArray &line : file.readAll().split('\n')) {
        if (line.startsWith(key))
            return line.mid(line.indexOf(':') + 1).simplified().split(' ').value(0).toLongLong() * 1024;
    }
    return 0;
}

/// Has the kernel forget the greatest resident set so far.
void resetPeak()
{
    QFile file(QStringLiteral("/proc/self/clear_refs"));
    if (!file.open(QIODevice::WriteOnly) || file.write("5") != 1)
        std::fprintf(stderr, "the peak could not be reset\n");
}

/// In a process of its own: takes one request, forgets it byte by byte, and answers once its body has ended.
[[noreturn]] void serve(int listener)
{
    const int connection = ::accept(listener, nullptr, nullptr);
    std::array<char, 65536> buffer{};
    QByteArray tail; // "]}" ends the body, and nothing within it
    while (!tail.endsWith("]}")) {
        const ssize_t count = ::read(connection, buffer.data(), buffer.size());
        if (count <= 0)
            ::_exit(1);
        tail.append(buffer.data(), count);
        tail = tail.right(2);
    }
    const QByteArray status = R"({"running":true,"chunkIndex":0})";
    const QByteArray answer =
        "HTTP/1.1 200 OK\r\nContent-Length: " + QByteArray::number(status.size()) + "\r\n\r\n" + status;
    ::_exit(::write(connection, answer.constData(), size_t(answer.size())) == answer.size() ? 0 : 1);
}

/// @return the port
quint16 startServer(pid_t &child)
{
    const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address);
    auto *generic = reinterpret_cast<sockaddr *>(&address);
    if (::bind(listener, generic, size) != 0 || ::listen(listener, 1) != 0 ||
        ::getsockname(listener, generic, &size) != 0)
        return 0;
    child = ::fork();
    if (child == 0)
        serve(listener);
    ::close(listener);
    return ntohs(address.sin_port);
}

QList<CapturedFramePayload> makeBatch()
{
    QList<CapturedFramePayload> frames(frameCount);
    for (int i = 0; i < frameCount; ++i) {
        QByteArray picture(jpegBytes, char(i));
        frames[i].frameIndex = i;
        frames[i].videoBase64 = Base64Text::ofBytes(std::move(picture));
        frames[i].text = QStringLiteral("Application: Editor\nWindow: notes.md");
    }
    return frames;
}

} // namespace

/// What the flush of a batch adds to the memory of the program, as a ratio to the pictures in it. Status 1 when the
/// flush fails or the ratio exceeds its budget.
int main(int argc, char **argv)
{
    pid_t server = 0;
    const quint16 port = startServer(server);
    QCoreApplication application(argc, argv);
    SystemClock clock;
    SerialQueue worker(QStringLiteral("worker"));
    NetworkTransport transport(clock);
    LocalObserverAPI api(QUrl(QStringLiteral("http://127.0.0.1:%1").arg(port)), QStringLiteral("token"), transport,
                         worker);

    const qint64 before = memory("VmRSS");
    QList<CapturedFramePayload> batch = makeBatch();
    const qint64 held = memory("VmRSS");
    resetPeak();
    bool sent = false;
    TaskSlot slot;
    // The slot keeps the closure. NOLINTNEXTLINE(cppcoreguidelines-avoid-capturing-lambda-coroutines)
    slot.start([&](std::stop_token stop) -> Task<> {
        sent = (co_await api.submitFrames(std::move(batch), stop)).has_value();
        QCoreApplication::quit();
    });
    QCoreApplication::exec();
    ::waitpid(server, nullptr, 0);

    constexpr double pictures = double(frameCount) * double(jpegBytes);
    constexpr double budget = 1.1;
    const double holding = double(held - before) / pictures;
    const double peak = double(memory("VmHWM") - before) / pictures;
    std::printf("%d frames of %lld bytes; memory in times the pictures' bytes: holding %.3f, flushing at most %.3f "
                "(budget %.1f)\n",
                frameCount, qint64(jpegBytes), holding, peak, budget);
    return sent && peak <= budget ? 0 : 1;
}
