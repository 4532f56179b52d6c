#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>
#include <optional>

#include "demux/BigEndian.h"
#include "demux/PesHeader.h"

namespace kest {

/// A PES packet that is complete.
struct PesPacket {
    std::optional<PesTimestamps> timestamps;
    Bytes payload;
};

/// The bytes of one elementary stream that are not queued yet, and behind them the PES packet that is being
/// assembled, so that the payload stands where it will be wanted. Each of the two has a capacity; bytes that do
/// not all fit are not added, none of them. Used by one thread.
class CPesBuffer {
public:
    static constexpr std::uint32_t kLeastCapacity = 1024 * 1024;  // bytes

    /// Gets the memory, or gives it back; empty afterwards. Only with the memory there may be bytes. The system backs
    /// memory as it is used: short PES packets touch little of it.
    /// @param nLeastPayload  bytes of payload that fit into a PES packet, and into the elementary stream, if not more.
    void Allocate(std::uint32_t nLeastPayload);
    void Free();
    bool IsAllocated() const { return m_pStorage != nullptr; }

    // ---------------- the PES packet

    /// Adds bytes to it, with the first from its start code on. @return whether they fit.
    bool AppendPes(Bytes bytes) {
        if (bytes.size() > m_nCapacity - m_nPesFill) return false;
        if (m_nPesFill < kHeadSize) {
            AppendHead(bytes);
        } else {
            std::ranges::copy(bytes, m_pStorage.get() + m_nBegin + m_nFill + m_nPesFill - GetHeaderSize());
        }
        m_nPesFill += static_cast<std::uint32_t>(bytes.size());
        return true;
    }
    /// What is added next goes on with the payload of the packet that was dropped last.
    void ContinuePes() { m_bContinued = true; }
    bool HasPes() const { return m_nPesFill > 0; }
    /// The packet as far as it came; what is missing of its fixed header counts as 0.
    /// @param nLeast  bytes at its end that are payload, whatever the header says of its own length, when it
    ///                carries timestamps; without them one. 0: none in both cases, and timestamps that are cut
    ///                short do not count.
    PesPacket GetPes(std::uint32_t nLeast);
    void DropPes() {
        m_nPesFill = 0;
        m_bContinued = false;
    }

    // ---------------- the elementary stream

    /// Adds bytes of the present PES packet's payload. @return whether they fit.
    bool Take(Bytes part);
    Bytes GetBytes() const { return {m_pStorage.get() + m_nBegin, m_nFill}; }
    /// Drops n bytes, no more than there are, from the front.
    void Consume(std::size_t n);
    void Clear() { m_nFill = 0; }

private:
    static constexpr std::uint32_t kSlack = 256 * 1024;  // the elementary stream begins here at the latest
    static constexpr std::uint32_t kTimestampsEnd = 19;  // behind a PTS and a DTS
    static constexpr std::uint32_t kHeadSize = 9 + 255 + 3;  // the longest header and the payload kept behind

    void BeginPes();
    void AppendHead(Bytes bytes);
    std::uint32_t GetHeaderSize() const { return m_bContinued ? 0 : kPesFixedHeader + m_abHead[8]; }

    std::uint32_t m_nCapacity = 0;                   // bytes of each of the two
    std::unique_ptr<std::uint8_t[]> m_pStorage;      // elementary stream, then payload of the PES packet
    std::uint32_t m_nBegin = 0;                      // index of the elementary stream
    std::uint32_t m_nFill = 0;                       // and its bytes
    std::uint32_t m_nPesFill = 0;                    // bytes of the PES packet with its header
    std::array<std::uint8_t, kHeadSize> m_abHead{};  // the first of them
    bool m_bContinued = false;                       // see ContinuePes
};

}  // namespace kest
