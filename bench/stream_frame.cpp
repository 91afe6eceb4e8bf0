#include "ColdCopy.h"
#include "platform/portal/PictureFeed.h"

#include <QCoreApplication>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <vector>

/// What a picture of a stream costs us before the frame gate has it, in terms of a cold copy of the picture: one that
/// comes too soon to be a frame, one in which a text cursor has blinked, and one that is new everywhere. The producer
/// is the benchmark, which draws into four buffers by turns. Status 1 when a budget is exceeded.

using namespace ostrel;

namespace {

constexpr std::size_t rounds = 41;
constexpr int buffers = 4;
/// Next to nothing: it is looked at by its size alone.
constexpr double tooSoonBudget = 0.05;

class Producer
{
public:
    explicit Producer(QSize size)
        : m_size(size),
          m_buffers(buffers, std::vector<std::uint8_t>(std::size_t(size.width()) * std::size_t(size.height()) * 4))
    {
        m_feed = std::make_shared<PictureFeed>(
            size, QStringLiteral("bench"),
            DisplaySource::StreamDelegate{.didOutputSample = [](const StreamSample &) {},
                                          .didStopWithError = [](const Error &) { std::abort(); }},
            [this](auto job) { m_job = std::move(job); },
            PictureFeed::Pace{.interval = interval,
                              .monotonicTime = [this] { return m_now; },
                              .wakeAfter = [](std::chrono::milliseconds) {}});
        show(interval, std::nullopt);
    }

    /// @param after     the picture before
    /// @param changedRows from the top; all where it is absent
    /// @return our processor time for it, ms
    double show(std::chrono::milliseconds after, std::optional<int> changedRows)
    {
        auto &buffer = m_buffers[m_next++ % buffers];
        std::ranges::fill(buffer, std::uint8_t(m_next));
        m_now += after;
        ProducedPicture picture{.source = {.pixels = buffer.data(), .size = m_size, .stride = m_size.width() * 4},
                                .conversion = {},
                                .changes =
                                    QList<QRect>{QRect(0, 0, m_size.width(), changedRows.value_or(m_size.height()))}};
        chill();
        const double before = ownCpuMs();
        m_feed->take(picture);
        if (const auto job = std::exchange(m_job, nullptr))
            job();
        return ownCpuMs() - before;
    }

    static constexpr std::chrono::milliseconds interval{500};

private:
    /// Nothing of the pictures stays in the caches, as between two frames of a recording.
    void chill() { m_chill.measureMs(); }

    const QSize m_size;
    std::vector<std::vector<std::uint8_t>> m_buffers;
    std::size_t m_next = 0;
    ColdCopy m_chill{64'000'000};
    std::chrono::milliseconds m_now{0};
    std::function<void()> m_job;
    std::shared_ptr<PictureFeed> m_feed;
};

double medianOf(const std::function<double()> &measure)
{
    std::vector<double> times;
    for (std::size_t i = 0; i < rounds; ++i)
        times.push_back(measure());
    return median(times);
}

/// @return whether all is within budget
bool measure(QSize size)
{
    constexpr int cursorRows = 20;
    ColdCopy copy(std::size_t(size.width()) * std::size_t(size.height()) * 4);
    Producer producer(size);
    const double unit = medianOf([&] { return copy.measureMs(); });
    const double tooSoon = medianOf([&] { return producer.show(std::chrono::milliseconds(1), std::nullopt); });
    const double cursor = medianOf([&] { return producer.show(Producer::interval, cursorRows); });
    const double whole = medianOf([&] { return producer.show(Producer::interval, std::nullopt); });
    std::printf("%dx%d: a copy of the picture %.2f ms\n", size.width(), size.height(), unit);
    std::printf("  %-36s %7.4f ms  %6.3f copies (budget %.2f)\n", "comes too soon, new everywhere", tooSoon,
                tooSoon / unit, tooSoonBudget);
    std::printf("  %-36s %7.4f ms  %6.3f copies\n", "delivered, a text cursor has blinked", cursor, cursor / unit);
    std::printf("  %-36s %7.4f ms  %6.3f copies\n", "delivered, new everywhere", whole, whole / unit);
    return tooSoon / unit <= tooSoonBudget;
}

} // namespace

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    const bool small = measure({1920, 1080});
    const bool large = measure({3840, 2160});
    if (!small || !large)
        std::printf("exceeded\n");
    return small && large ? 0 : 1;
}
