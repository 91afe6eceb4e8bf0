#include "platform/portal/PipeWireRemote.h"

#include "base/Fault.h"
#include "platform/portal/PipeWireNode.h"

#include <spa/utils/result.h>

#include <ctime>
#include <memory>
#include <unistd.h>
#include <vector>

namespace ostrel {

namespace {

/// PipeWire is begun once a process. It is not ended: other parts of the process may use it.
void beginPipeWire()
{
    [[maybe_unused]] static const bool begun = [] {
        pw_init(nullptr, nullptr);
        return true;
    }();
}

Error lost()
{
    return faultError(Fault::PictureStreamEnded, QStringLiteral("PipeWire can't be reached"));
}

} // namespace

Result<std::shared_ptr<PipeWireRemote>> PipeWireRemote::connect(int descriptor, std::chrono::milliseconds patience)
{
    beginPipeWire();
    std::shared_ptr<PipeWireRemote> remote(new PipeWireRemote);
    if (const auto opened = remote->open(descriptor, patience); !opened)
        return std::unexpected(opened.error());
    return remote;
}

PipeWireRemote::PipeWireRemote() : m_loop(pw_thread_loop_new("ostrel-pictures", nullptr)) {}

PipeWireRemote::~PipeWireRemote()
{
    pw_thread_loop_stop(m_loop);
    if (m_core != nullptr) {
        spa_hook_remove(&m_listener);
        pw_core_disconnect(m_core);
    }
    if (m_context != nullptr)
        pw_context_destroy(m_context);
    pw_thread_loop_destroy(m_loop);
}

Result<> PipeWireRemote::open(int descriptor, std::chrono::milliseconds patience)
{
    static const pw_core_events events = [] {
        pw_core_events table{};
        table.version = PW_VERSION_CORE_EVENTS;
        table.done = [](void *self, uint32_t id, int sequence) {
            static_cast<PipeWireRemote *>(self)->noteDone(id, sequence);
        };
        table.error = [](void *self, uint32_t id, int /*sequence*/, int result, const char * /*message*/) {
            static_cast<PipeWireRemote *>(self)->noteError(id, result);
        };
        return table;
    }();
    m_context = pw_context_new(loop(), nullptr, 0);
    if (m_context == nullptr || pw_thread_loop_start(m_loop) < 0) {
        ::close(descriptor);
        return std::unexpected(lost());
    }
    const Lock lock(*this);
    m_core = pw_context_connect_fd(m_context, descriptor, nullptr, 0); // closes the descriptor in any case
    if (m_core == nullptr)
        return std::unexpected(lost());
    pw_core_add_listener(m_core, &m_listener, &events, this);
    return roundTrip(patience);
}

void PipeWireRemote::noteDone(uint32_t id, int sequence)
{
    if (id != PW_ID_CORE)
        return;
    m_done = sequence;
    wake();
}

void PipeWireRemote::noteError(uint32_t id, int result)
{
    // Errors of other objects are told to those objects too.
    if (id != PW_ID_CORE || result != -EPIPE)
        return;
    m_isBroken = true;
    wake();
}

bool PipeWireRemote::waitUntil(const std::function<bool()> &isMet, std::chrono::milliseconds atMost) const
{
    timespec deadline{};
    pw_thread_loop_get_time(m_loop, &deadline, std::chrono::nanoseconds(atMost).count());
    while (!isMet()) {
        if (pw_thread_loop_timed_wait_full(m_loop, &deadline) < 0)
            return isMet();
    }
    return true;
}

Result<> PipeWireRemote::roundTrip(std::chrono::milliseconds patience)
{
    const int question = ask();
    const bool isInTime = waitUntil([&] { return m_isBroken || isAnswered(question); }, patience);
    if (m_isBroken)
        return std::unexpected(lost());
    if (!isInTime)
        return std::unexpected(faultError(Fault::TimedOut, QStringLiteral("stream of pictures")));
    return {};
}

int PipeWireRemote::ask()
{
    return pw_core_sync(m_core, PW_ID_CORE, 0);
}

bool PipeWireRemote::isAnswered(int question) const
{
    if (!m_done)
        return false;
    // Answers come in the order of the questions, whose numbers begin anew some day.
    const auto later = (unsigned(*m_done) - unsigned(question)) & SPA_ASYNC_SEQ_MASK;
    return later <= SPA_ASYNC_SEQ_MASK / 2;
}

QList<std::optional<QSize>> PipeWireRemote::pictureSizes(const QList<quint32> &nodes,
                                                         std::chrono::milliseconds patience)
{
    const Lock lock(*this);
    pw_registry *registry = pw_core_get_registry(m_core, PW_VERSION_REGISTRY, 0);
    std::vector<std::unique_ptr<PipeWireNode>> asked;
    for (const quint32 node : nodes)
        asked.push_back(std::make_unique<PipeWireNode>(registry, node));
    // The answers come before that of the round trip. One that is missing is no failure: nobody has to tell.
    static_cast<void>(roundTrip(patience));
    QList<std::optional<QSize>> sizes;
    for (const auto &node : asked)
        sizes.append(node->pictureSize());
    asked.clear();
    pw_proxy_destroy(reinterpret_cast<pw_proxy *>(registry));
    return sizes;
}

} // namespace ostrel
