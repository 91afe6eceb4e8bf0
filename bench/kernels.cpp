#include "capture/Base64.h"
#include "capture/FrameChangeDetector.h"
#include "capture/JpegEncoder.h"
#include "capture/Thumbnail.h"

#include <QByteArray>
#include <benchmark/benchmark.h>

#include <cstring>
#include <random>
#include <vector>

using namespace ostrel;

namespace {

/// Several frames in turn, together larger than any cache: a frame that is captured every two seconds is never in one.
class Frames
{
public:
    explicit Frames(const benchmark::State &state) : m_width(int(state.range(0))), m_height(int(state.range(1)))
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
    }

    FrameView next()
    {
        m_current = (m_current + 1) % m_frames.size();
        return {m_frames[m_current].data(), m_width, m_height, std::ptrdiff_t(m_width) * 4};
    }
    std::int64_t bytes() const { return std::int64_t(m_frames.front().size()); }

private:
    static constexpr std::size_t atLeastBytes = 256'000'000;
    int m_width;
    int m_height;
    std::vector<std::vector<std::uint8_t>> m_frames;
    std::size_t m_current = 0;
};

void screenSizes(benchmark::internal::Benchmark *bench)
{
    bench->Args({1920, 1080})->Args({3840, 2160})->Unit(benchmark::kMillisecond);
}

void memcpyFrame(benchmark::State &state)
{
    Frames frames(state);
    std::vector<std::vector<std::uint8_t>> copies(4, std::vector<std::uint8_t>(std::size_t(frames.bytes())));
    std::size_t turn = 0;
    for (auto _ : state) {
        auto &copy = copies[turn++ % copies.size()];
        std::memcpy(copy.data(), frames.next().pixels, copy.size());
        benchmark::DoNotOptimize(copy.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * frames.bytes());
}
BENCHMARK(memcpyFrame)->Apply(screenSizes);

void thumbnail(benchmark::State &state)
{
    Frames frames(state);
    Downsampler downsampler;
    for (auto _ : state)
        benchmark::DoNotOptimize(downsampler.makeDownsample(frames.next()));
    state.SetBytesProcessed(state.iterations() * frames.bytes());
}
BENCHMARK(thumbnail)->Apply(screenSizes);

void thumbnailReference(benchmark::State &state)
{
    Frames frames(state);
    for (auto _ : state)
        benchmark::DoNotOptimize(makeReferenceDownsample(frames.next()));
    state.SetBytesProcessed(state.iterations() * frames.bytes());
}
BENCHMARK(thumbnailReference)->Apply(screenSizes);

void compareThumbnails(benchmark::State &state)
{
    const Downsample a(downsampleBytes, 100);
    const Downsample b(downsampleBytes, 102);
    for (auto _ : state)
        benchmark::DoNotOptimize(FrameChangeDetector::hasMeaningfulChange(a, b));
}
BENCHMARK(compareThumbnails)->Unit(benchmark::kMillisecond);

void jpeg(benchmark::State &state)
{
    Frames frames(state);
    JpegEncoder encoder;
    for (auto _ : state)
        benchmark::DoNotOptimize(encoder.makeJPEGData(frames.next()));
    state.SetBytesProcessed(state.iterations() * frames.bytes());
}
BENCHMARK(jpeg)->Apply(screenSizes);

void base64OfJpeg(benchmark::State &state)
{
    Frames frames(state);
    JpegEncoder encoder;
    const auto file = *encoder.makeJPEGData(frames.next());
    for (auto _ : state)
        benchmark::DoNotOptimize(base64Encoded(file));
    state.SetBytesProcessed(state.iterations() * std::int64_t(file.size()));
}
BENCHMARK(base64OfJpeg)->Apply(screenSizes);

} // namespace

BENCHMARK_MAIN();
