#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace kest {

/// The settings of raw forwarding over UDP and of the demux function, with the defaults of a new filter. A
/// plain record of 32 bytes, copied and shared between processes as it is.
struct SEND_SETTINGS {
    std::uint32_t nLocalPort = 5454;  // UDP port of the local view on 127.0.0.1 (low 16 bits)
    std::uint8_t bLocalView = 0;      // forward to the local view
    std::uint8_t bDisableDemux = 0;   // demultiplexing is off: the input is only forwarded
    std::uint8_t bSending = 0;        // forward to the destination
    std::uint8_t bUnused = 0;
    std::uint32_t nSendPort = 8100;  // UDP port of the destination (low 16 bits)
    std::uint32_t dwSendAddr =
        0x070605EA;                  // IPv4 address of the destination in network byte order: 234.5.6.7
    std::uint32_t nDemuxOutput = 0;  // see EDemuxOutput
    std::int32_t nChunkKB = 8;       // KiB of a datagram
    std::uint64_t llBytesSent = 0;   // bytes accepted for forwarding so far

    friend bool operator==(const SEND_SETTINGS&, const SEND_SETTINGS&) = default;
};
static_assert(sizeof(SEND_SETTINGS) == 32 && std::is_trivially_copyable_v<SEND_SETTINGS>);
static_assert(offsetof(SEND_SETTINGS, dwSendAddr) == 12 && offsetof(SEND_SETTINGS, llBytesSent) == 24);

/// Values of SEND_SETTINGS::nDemuxOutput, the demux function.
enum EDemuxOutput : std::uint32_t {
    kDemuxOutputPes = 0,      // times from the PES packets
    kDemuxOutputAvEs = 1,     // times from the elementary streams, where the core can
    kDemuxOutputFreeRun = 2,  // samples without times, delivered as fast as they are taken
};

}  // namespace kest
