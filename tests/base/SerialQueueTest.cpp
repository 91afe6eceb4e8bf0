#include "base/SerialQueue.h"

#include "base/TaskScope.h"
#include "base/TaskSlot.h"
#include "support/ManualClock.h"
#include "support/Printers.h"

#include <QCoreApplication>

#include <gtest/gtest.h>

#include <latch>
#include <stdexcept>

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

class Queue : public testing::Test
{
protected:
    SerialQueue m_queue{QStringLiteral("test")};
    TaskScope m_scope;
};

TEST_F(Queue, run_job_runsOnTheQueueAndAnswersOnTheMainThread)
{
    std::optional<int> answer;
    m_scope.spawn([&](std::stop_token stop) -> Task<> {
        answer = co_await m_queue.run(stop, [this] { return m_queue.isCurrent() ? 42 : 0; });
        EXPECT_FALSE(m_queue.isCurrent());
    });
    settleEvents({&m_queue});
    EXPECT_EQ(answer, 42);
}

TEST_F(Queue, run_jobThatThrows_throwsWhereItIsAwaited)
{
    bool caught = false;
    m_scope.spawn([&](std::stop_token stop) -> Task<> {
        try {
            co_await m_queue.run(stop, []() -> int { throw std::runtime_error("boom"); });
        } catch (const std::runtime_error &) {
            caught = true;
        }
    });
    settleEvents({&m_queue});
    EXPECT_TRUE(caught);
}

TEST_F(Queue, run_blockedJob_mainThreadStillHandlesEvents)
{
    std::latch release(1);
    bool done = false;
    m_scope.spawn([&](std::stop_token stop) -> Task<> {
        co_await m_queue.run(stop, [&] { release.wait(); });
        done = true;
    });
    bool handled = false;
    QMetaObject::invokeMethod(qApp, [&] { handled = true; }, Qt::QueuedConnection);
    QCoreApplication::processEvents();
    EXPECT_TRUE(handled);
    EXPECT_FALSE(done);
    release.count_down();
    settleEvents({&m_queue});
    EXPECT_TRUE(done);
}

TEST_F(Queue, run_stoppedWhileTheJobRuns_returnsAtOnceAndTheJobFinishes)
{
    std::latch started(1);
    std::latch release(1);
    bool returned = false;
    bool finished = false;
    TaskSlot slot;
    slot.start([&](std::stop_token stop) -> Task<> {
        const auto answer = co_await m_queue.run(stop, [&] {
            started.count_down();
            release.wait();
            finished = true;
        });
        returned = !answer.has_value();
    });
    started.wait();
    slot.cancel();
    EXPECT_TRUE(returned);
    release.count_down();
    m_queue.sync([] {});
    EXPECT_TRUE(finished);
    settleEvents({&m_queue}); // the late answer finds nobody, and that is fine
}

TEST_F(Queue, run_captures_areDestroyedOnTheQueue)
{
    QThread *destroyedOn = nullptr;
    const auto note = [&](int *value) {
        delete value;
        destroyedOn = QThread::currentThread();
    };
    m_scope.spawn([&](std::stop_token stop) -> Task<> {
        std::shared_ptr<int> capture(new int(1), note);
        co_await m_queue.run(stop, [moved = std::move(capture)] { return *moved; });
    });
    settleEvents({&m_queue});
    EXPECT_NE(destroyedOn, nullptr);
    EXPECT_NE(destroyedOn, QThread::currentThread());
}

TEST_F(Queue, jobs_postedInOrder_runInOrder)
{
    QString order;
    for (const char16_t c : {u'a', u'b', u'c'})
        m_queue.post([&order, c] { order += QChar(c); });
    EXPECT_EQ(m_queue.sync([&] { return order; }), QStringLiteral("abc"));
}

TEST_F(Queue, sync_onTheQueueItself_runsInline)
{
    EXPECT_EQ(m_queue.sync([this] { return m_queue.sync([] { return 3; }); }), 3);
}

TEST_F(Queue, sync_jobThatThrows_throwsAtTheCaller)
{
    EXPECT_THROW(m_queue.sync([] { throw std::runtime_error("boom"); }), std::runtime_error);
}

TEST(SerialQueue, destroyed_whatWasPostedHasRun)
{
    int ran = 0;
    {
        SerialQueue queue(QStringLiteral("test"));
        for (int i = 0; i < 100; ++i)
            queue.post([&] { ++ran; });
    }
    EXPECT_EQ(ran, 100);
}

TEST(SerialQueue, destroyedWhileSomebodyWaits_theWaitIsStoppedByItsOwner)
{
    bool ended = false;
    auto queue = std::make_unique<SerialQueue>(QStringLiteral("test"));
    TaskSlot slot;
    slot.start([&](std::stop_token stop) -> Task<> {
        co_await queue->run(stop, [] { return 1; });
        ended = true;
    });
    queue.reset(); // the answer was on its way to a mailbox that is gone
    settleEvents();
    slot.cancel();
    EXPECT_TRUE(ended);
}

TEST(SerialQueue, periodicWorkOnAManualClock_isExact)
{
    SerialQueue queue(QStringLiteral("test"));
    ManualClock clock([&] { settleEvents({&queue}); });
    int flushes = 0;
    TaskSlot flusher;
    flusher.start([&](std::stop_token stop) -> Task<> {
        while (co_await clock.sleepFor(500ms, stop))
            co_await queue.run(stop, [&] { ++flushes; });
    });
    clock.advance(5s);
    flusher.cancel();
    clock.advance(5s);
    EXPECT_EQ(queue.sync([&] { return flushes; }), 10);
}

} // namespace
