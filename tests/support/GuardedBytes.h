#pragma once

#include <QByteArrayView>

#include <cstddef>
#include <cstring>

#include <sys/mman.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace ostrel {

/// Memory that ends at a page without access: who reads or writes a single byte too far crashes.
class GuardedBytes
{
public:
    explicit GuardedBytes(std::size_t size) : m_size(size)
    {
        const auto page = std::size_t(sysconf(_SC_PAGESIZE));
        const std::size_t usable = (size + page - 1) / page * page;
        m_mappedBytes = usable + page;
        void *mapped = mmap(nullptr, m_mappedBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        EXPECT_NE(mapped, MAP_FAILED);
        m_mapping = static_cast<std::byte *>(mapped);
        EXPECT_EQ(mprotect(m_mapping + usable, page, PROT_NONE), 0);
        m_begin = m_mapping + usable - size;
    }
    explicit GuardedBytes(QByteArrayView bytes) : GuardedBytes(std::size_t(bytes.size()))
    {
        if (!bytes.isEmpty())
            std::memcpy(m_begin, bytes.data(), m_size);
    }
    GuardedBytes(const GuardedBytes &) = delete;
    GuardedBytes &operator=(const GuardedBytes &) = delete;
    ~GuardedBytes() { munmap(m_mapping, m_mappedBytes); }

    std::byte *data() const { return m_begin; }
    QByteArrayView view() const { return {m_begin, qsizetype(m_size)}; }

private:
    std::size_t m_size;
    std::size_t m_mappedBytes = 0;
    std::byte *m_mapping = nullptr;
    std::byte *m_begin = nullptr;
};

} // namespace ostrel
