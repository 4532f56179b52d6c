#pragma once

#include <cstddef>

#include "demux/ParseCounters.h"
#include "demux/StreamInput.h"
#include "demux/TsPacket.h"

namespace kest {

/// Reads the packets of a transport stream one after the other, and finds the next one behind what is none.
///
/// It works on a window of 4096 bytes of its input: when too few of them are left, the window moves to the
/// first of these, provided that all of its 4096 bytes can be had. So the end of the input is not read. The
/// byte behind a packet belongs to it: without that byte there is no packet. With `bDrain` the input is read to
/// its last whole packet.
class CTsPacketReader {
public:
    /// @param input     borrowed.
    /// @param counters  of packets and of bytes that are none; borrowed.
    CTsPacketReader(CStreamInput& input, ParseCounters& counters) : m_input(input), m_counters(counters) {}

    /// The input begins anew. @param bDrain  it is read to its end, and no search is given up before.
    void Begin(bool bDrain) {
        m_window = {};
        m_nOffset = 0;
        m_bDrain = bDrain;
        m_bSearching = m_bAtEnd = false;
    }
    /// There is a packet to read; waits for it as the input does.
    bool HasPacket() { return HasMoreThan(kTsPacketSize) || IsLast(kTsPacketSize); }
    /// The packet, valid until any other call but `HasPacket`'s that was answered with true before. Only
    /// after `HasPacket`.
    Bytes GetPacket() const { return m_window.subspan(m_nOffset, kTsPacketSize); }
    /// Leaves the packet behind and resynchronises when no sync byte follows it. Only after `HasPacket`.
    /// @return whether the reader is in sync.
    bool SkipPacket();
    /// Goes to the next run of four packets, in three steps of 752 bytes at most; when draining, without such a
    /// limit, and at the end of the input fewer packets are enough. @return whether there is one.
    bool Synchronise();
    /// There are no more packets: counts what is left of the input as skipped, when draining.
    void SkipRest();

private:
    static constexpr std::uint32_t kWindowSize = 4096;

    enum class ESync { Found, NotFound, NoData };

    ESync FindSync();
    void CountSkipped(std::size_t n);
    bool HasMoreThan(std::size_t n);
    bool IsLast(std::size_t n) const { return m_bAtEnd && m_nOffset + n <= m_window.size(); }
    void Refill();
    bool IsSync(std::size_t nIndex) const;

    CStreamInput& m_input;
    ParseCounters& m_counters;
    Bytes m_window;             // the next bytes of the input, in place
    std::size_t m_nOffset = 0;  // index in it of the packet
    bool m_bDrain = false;      // see Begin
    bool m_bSearching = false;  // bytes have been skipped in the present search
    bool m_bAtEnd = false;      // the input ends with the window
};

/// Tries up to three times. @return whether one of them succeeded.
template <class Try>
bool TryThreeTimes(Try attempt) {
    return attempt() || attempt() || attempt();
}

}  // namespace kest
