#pragma once

#include <atomic>
#include <cstdint>

namespace kest {

/// A number that one thread counts and any thread may read, at the cost of a plain number: there is no lock, and no
/// adding is atomic as a whole, since nobody else adds. Numbers that are read one after the other may be of different
/// moments.
class CCount {
public:
    void operator+=(std::uint64_t n) {
        m_n.store(m_n.load(std::memory_order_relaxed) + n, std::memory_order_relaxed);
    }
    void operator++() { *this += 1; }
    operator std::uint64_t() const { return m_n.load(std::memory_order_relaxed); }

private:
    std::atomic<std::uint64_t> m_n{0};
};

}  // namespace kest
