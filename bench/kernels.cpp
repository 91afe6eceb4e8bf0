#include "capture/FrameChangeDetector.h"
#include "capture/JpegEncoder.h"
#include "capture/Thumbnail.h"
#include "observer/Base64.h"

#include <QByteArray>
#include <benchmark/benchmark.h>
#include <hwy/highway.h>

#include <array>
#include <cstring>
#include <ctime>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

using namespace ostrel;

namespace {

/// Several frames in turn, together larger than any cache: a frame that is captured every two seconds is never in one.
class Frames
{
public:
    /// Those of a measurement's size; made once, for that takes longer than most measurements.
    static Frames &of(const benchmark::State &state)
    {
        static std::map<std::pair<int, int>, Frames> all;
        const std::pair<int, int> size(int(state.range(0)), int(state.range(1)));
        return all.try_emplace(size, size.first, size.second).first->second;
    }

    Frames(int width, int height) : m_width(width), m_height(height)
    {
        const std::size_t bytes = std::size_t(m_width) * std::size_t(m_height) * 4;
        std::mt19937 random(1);
        std::vector<std::uint8_t> frame(bytes);
        // Flat areas with letter-sized detail: what a screen is made of.
        for (std::size_t i = 0; i < bytes; i += 4) {
            const bool detail = (i / 4 / 6) % 3 != 0 && (i / 4 / std::size_t(m_width)) % 14 < 9 && random() % 3 == 0;
            std::memset(&frame[i], detail ? 0x30 : 0xf8, 4);
        }
        for (std::size_t total = 0; total < atLeastBytes; total += bytes)
            m_frames.push_back(frame);
        m_copies.fill(frame);
    }

    FrameView next()
    {
        m_current = (m_current + 1) % m_frames.size();
        return {m_frames[m_current].data(), m_width, m_height, std::ptrdiff_t(m_width) * 4};
    }
    /// What everything is compared with.
    void copyNext()
    {
        auto &copy = m_copies[m_copyTurn++ % m_copies.size()];
        std::memcpy(copy.data(), next().pixels, copy.size());
        benchmark::DoNotOptimize(copy.data());
        benchmark::ClobberMemory();
    }

private:
    static constexpr std::size_t atLeastBytes = 256'000'000;
    int m_width;
    int m_height;
    std::vector<std::vector<std::uint8_t>> m_frames;
    std::array<std::vector<std::uint8_t>, 4> m_copies;
    std::size_t m_current = 0;
    std::size_t m_copyTurn = 0;
};

/// Processor time of this thread, in seconds.
double threadSeconds()
{
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return double(time.tv_sec) + double(time.tv_nsec) / 1e9;
}

double secondsOf(const std::function<void()> &work)
{
    const double begin = threadSeconds();
    work();
    return threadSeconds() - begin;
}

/// Times the work on one frame after another, with a copy of a frame between them, and tells how many copies the work
/// takes as long as.
void measure(benchmark::State &state, const std::function<void(const FrameView &)> &work)
{
    Frames &frames = Frames::of(state);
    double working = 0, copying = 0;
    for (auto _ : state) {
        copying += secondsOf([&] { frames.copyNext(); });
        const FrameView frame = frames.next();
        const double seconds = secondsOf([&] { work(frame); });
        working += seconds;
        state.SetIterationTime(seconds);
    }
    state.counters["x_memcpy"] = working / copying;
}

/// Has everything run by one instruction set.
class OnTarget
{
public:
    explicit OnTarget(std::int64_t target) { use(target); }
    OnTarget(const OnTarget &) = delete;
    OnTarget &operator=(const OnTarget &) = delete;
    ~OnTarget() { use(0); }

private:
    static void use(std::int64_t targets)
    {
        hwy::SetSupportedTargetsForTest(targets);
        hwy::GetChosenTarget().Update(hwy::SupportedTargets());
    }
};

void thumbnail(benchmark::State &state)
{
    Downsampler downsampler;
    measure(state, [&](const FrameView &frame) { benchmark::DoNotOptimize(downsampler.makeDownsample(frame)); });
}

void thumbnailReference(benchmark::State &state)
{
    measure(state, [](const FrameView &frame) { benchmark::DoNotOptimize(makeReferenceDownsample(frame)); });
}

void jpeg(benchmark::State &state)
{
    JpegEncoder encoder;
    measure(state, [&](const FrameView &frame) { benchmark::DoNotOptimize(encoder.makeJPEGData(frame)); });
}

/// Of the JPEG of one frame, which is what a changed frame adds.
void base64OfJpeg(benchmark::State &state)
{
    JpegEncoder encoder;
    const auto file = *encoder.makeJPEGData(Frames::of(state).next());
    QByteArray text;
    text.reserve(base64Size(qsizetype(file.size())));
    measure(state, [&](const FrameView &) {
        text.resize(0);
        appendBase64(text, QByteArrayView(file.data(), qsizetype(file.size())));
        benchmark::DoNotOptimize(text.constData());
    });
}

void base64OfJpegByQt(benchmark::State &state)
{
    JpegEncoder encoder;
    const auto file = *encoder.makeJPEGData(Frames::of(state).next());
    const QByteArray bytes(reinterpret_cast<const char *>(file.data()), qsizetype(file.size()));
    measure(state, [&](const FrameView &) { benchmark::DoNotOptimize(bytes.toBase64()); });
}

void compareThumbnails(benchmark::State &state)
{
    const Downsample a(downsampleBytes, 100);
    const Downsample b(downsampleBytes, 102);
    measure(state,
            [&](const FrameView &) { benchmark::DoNotOptimize(FrameChangeDetector::hasMeaningfulChange(a, b)); });
}

/// The same for all: each also takes as many copies, so a fast kernel would be repeated for minutes.
constexpr int iterations = 100;

using Measurement = void (*)(benchmark::State &);

void onBothScreenSizes(const std::string &name, const std::function<void(benchmark::State &)> &measurement)
{
    benchmark::RegisterBenchmark(name.c_str(), measurement)
        ->Args({1920, 1080})
        ->Args({3840, 2160})
        ->Unit(benchmark::kMillisecond)
        ->Iterations(iterations)
        ->UseManualTime();
}

/// One row an instruction set that this machine has, the best first.
void onEveryTarget(const std::string &name, Measurement measurement)
{
    for (const std::int64_t target : hwy::SupportedAndGeneratedTargets()) {
        onBothScreenSizes(name + '/' + hwy::TargetName(target), [measurement, target](benchmark::State &state) {
            const OnTarget only(target);
            measurement(state);
        });
    }
}

} // namespace

int main(int argc, char **argv)
{
    onEveryTarget("thumbnail", thumbnail);
    onBothScreenSizes("thumbnail/reference", thumbnailReference);
    onBothScreenSizes("compareThumbnails", compareThumbnails);
    onEveryTarget("jpeg", jpeg); // of which only the colours are ours
    onEveryTarget("base64OfJpeg", base64OfJpeg);
    onBothScreenSizes("base64OfJpeg/Qt", base64OfJpegByQt);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
