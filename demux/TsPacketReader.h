#pragma once

#include <cstddef>

#include "demux/StreamInput.h"
#include "demux/TsPacket.h"

namespace kest {

/// Reads the packets of a transport stream one after the other, and finds the next one behind what is none.
///
/// It works on a window of 4096 bytes of its input: when too few of them are left, the window moves to the
/// first of these, provided that all of its 4096 bytes can be had. So the end of the input is not read. The
/// byte behind a packet belongs to it: without that byte there is no packet.
class CTsPacketReader {
public:
    /// @param input  borrowed.
    explicit CTsPacketReader(CStreamInput& input) : m_input(input) {}

    /// The input begins anew.
    void Begin() {
        m_window = {};
        m_nOffset = 0;
    }
    /// There is a packet to read; waits for it as the input does.
    bool HasPacket() { return HasMoreThan(kTsPacketSize); }
    /// The packet, valid until any other call but `HasPacket`'s that was answered with true before. Only
    /// after `HasPacket`.
    Bytes GetPacket() const { return m_window.subspan(m_nOffset, kTsPacketSize); }
    /// Leaves the packet behind and resynchronises when no sync byte follows it. Only after `HasPacket`.
    /// @return whether the reader is in sync.
    bool SkipPacket();
    /// Goes to the first of the next 752 bytes with which a run of four packets begins, or behind these
    /// bytes. @return whether there is one, and the bytes to examine it could be had.
    bool FindSync();

private:
    static constexpr std::uint32_t kWindowSize = 4096;

    bool HasMoreThan(std::size_t n);
    void Refill();
    bool IsSync(std::size_t nIndex) const;

    CStreamInput& m_input;
    Bytes m_window;             // the next bytes of the input, in place
    std::size_t m_nOffset = 0;  // index in it of the packet
};

/// Tries up to three times. @return whether one of them succeeded.
template <class Try>
bool TryThreeTimes(Try attempt) {
    return attempt() || attempt() || attempt();
}

}  // namespace kest
