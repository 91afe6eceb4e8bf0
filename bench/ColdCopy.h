#pragma once

#include "ProcessUsage.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

namespace ostrel {

inline double median(std::vector<double> values)
{
    const auto middle = values.begin() + std::ptrdiff_t(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

/// Copies between buffers that together are larger than the caches.
class ColdCopy
{
public:
    explicit ColdCopy(std::size_t bytes)
    {
        constexpr std::size_t atLeastBytes = 256'000'000;
        const std::size_t count = std::max<std::size_t>(4, atLeastBytes / bytes) / 2 * 2;
        for (std::size_t i = 0; i < count; ++i)
            m_buffers.emplace_back(bytes, std::uint8_t(i));
    }

    double measureMs()
    {
        auto &from = m_buffers[m_next++ % m_buffers.size()];
        auto &to = m_buffers[m_next++ % m_buffers.size()];
        const double before = ownCpuMs();
        std::memcpy(to.data(), from.data(), from.size());
        __asm__ volatile("" ::"r"(to.data()) : "memory");
        return ownCpuMs() - before;
    }

private:
    std::vector<std::vector<std::uint8_t>> m_buffers;
    std::size_t m_next = 0;
};

} // namespace ostrel
