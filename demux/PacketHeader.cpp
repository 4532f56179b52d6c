#include "demux/PacketHeader.h"

namespace kest {
namespace {

std::optional<PacketContent> ParseMpeg2Packet(Bytes packet) {
    constexpr std::size_t kFixed = 3;  // flags, PES_header_data_length
    if (packet.size() < kFixed || packet.size() < kFixed + packet[2]) return std::nullopt;
    return PacketContent{.timestamps = ParsePtsDts(packet[1] >> 6, packet.subspan(kFixed, packet[2])),
                         .payload = packet.subspan(kFixed + packet[2])};
}

std::optional<PacketContent> ParseMpeg1Packet(Bytes packet) {
    constexpr std::uint8_t kStuffingByte = 0xFF, kNoTimestamps = 0x0F;
    constexpr unsigned kPtsOnly = 2, kPtsAndDts = 3;
    while (!packet.empty() && packet[0] == kStuffingByte) packet = packet.subspan(1);
    if (packet.size() >= 2 && packet[0] >> 6 == 1)
        packet = packet.subspan(2);  // STD_buffer_scale, STD_buffer_size
    if (packet.empty()) return std::nullopt;
    const unsigned nKind = packet[0] >> 4;  // has the meaning of PTS_DTS_flags
    const std::size_t nSize = nKind == kPtsOnly            ? 5
                              : nKind == kPtsAndDts        ? 10
                              : packet[0] == kNoTimestamps ? 1
                                                           : 0;
    if (nSize == 0 || packet.size() < nSize) return std::nullopt;
    return PacketContent{.timestamps = ParsePtsDts(nKind, packet), .payload = packet.subspan(nSize)};
}

}  // namespace

std::optional<PacketContent> ParsePacket(Bytes packet) {
    constexpr std::uint8_t kMpeg2Marker = 2;
    const bool bMpeg2 = !packet.empty() && packet[0] >> 6 == kMpeg2Marker;
    return bMpeg2 ? ParseMpeg2Packet(packet) : ParseMpeg1Packet(packet);
}

}  // namespace kest
