#include "demux/PesHeader.h"

namespace kest {
namespace {

constexpr std::size_t kTimestampSize = 5;  // bytes of one coded timestamp

/// A coded timestamp: 3 + 15 + 15 bits, each part followed by a marker bit.
std::int64_t ReadTimestamp(Bytes coded) {
    return static_cast<std::int64_t>(coded[0] >> 1 & 0x07) << 30 |
           static_cast<std::int64_t>(Read16(coded, 1) >> 1) << 15 | Read16(coded, 3) >> 1;
}

}  // namespace

std::optional<PesTimestamps> ParsePtsDts(unsigned nPtsDtsFlags, Bytes header) {
    constexpr unsigned kPtsOnly = 2, kPtsAndDts = 3;
    if (nPtsDtsFlags == kPtsOnly && header.size() >= kTimestampSize) {
        const std::int64_t llPts = ReadTimestamp(header);
        return PesTimestamps{llPts, llPts};
    }
    if (nPtsDtsFlags == kPtsAndDts && header.size() >= 2 * kTimestampSize) {
        return PesTimestamps{ReadTimestamp(header), ReadTimestamp(header.subspan(kTimestampSize))};
    }
    return std::nullopt;
}

}  // namespace kest
