#include "demux/PesHeader.h"

namespace kest {
namespace {

constexpr std::size_t kStampSize = 5;  // bytes of one coded stamp

/// Puts the stamp together: 3 + 15 + 15 bits, each part followed by a marker bit.
std::int64_t ReadStamp(std::span<const std::uint8_t, kStampSize> coded) {
    return static_cast<std::int64_t>(coded[0] >> 1 & 0x07) << 30 | static_cast<std::int64_t>(coded[1]) << 22 |
           static_cast<std::int64_t>(coded[2] >> 1) << 15 | static_cast<std::int64_t>(coded[3]) << 7 |
           static_cast<std::int64_t>(coded[4] >> 1);
}

}  // namespace

std::optional<PesStamps> ParsePtsDts(unsigned nPtsDtsFlags, std::span<const std::uint8_t> header) {
    constexpr unsigned kPtsOnly = 2, kPtsAndDts = 3;
    if (nPtsDtsFlags == kPtsOnly && header.size() >= kStampSize) {
        const std::int64_t llPts = ReadStamp(header.first<kStampSize>());
        return PesStamps{llPts, llPts};
    }
    if (nPtsDtsFlags == kPtsAndDts && header.size() >= 2 * kStampSize) {
        return PesStamps{ReadStamp(header.first<kStampSize>()),
                         ReadStamp(header.subspan<kStampSize, kStampSize>())};
    }
    return std::nullopt;
}

}  // namespace kest
