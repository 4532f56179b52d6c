// Start codes of video elementary streams, by their last byte, and what pictures say first.
#pragma once

#include <cstdint>
#include <optional>

#include "demux/BigEndian.h"

namespace kest {

// MPEG-4, ISO/IEC 14496-2 table 6-3.
constexpr std::uint8_t kLastVideoObject = 0x1F;  // of 0x00 to this
constexpr std::uint8_t kLastVideoObjectLayer = 0x2F;
constexpr std::uint8_t kVisualObjectSequence = 0xB0;
constexpr std::uint8_t kSequenceEnd = 0xB1;
constexpr std::uint8_t kGroupOfVop = 0xB3;
constexpr std::uint8_t kVisualObject = 0xB5;
constexpr std::uint8_t kVop = 0xB6;

// MPEG-2, ISO/IEC 13818-2 table 6-1.
constexpr std::uint8_t kPicture = 0x00;
constexpr std::uint8_t kSequenceHeader = 0xB3;
constexpr std::uint8_t kVideoExtension = 0xB5;
constexpr std::uint8_t kGroupOfPictures = 0xB8;

/// Whether an MPEG-1/2 picture is an I picture (picture_coding_type, ISO/IEC 13818-2 6.2.3).
/// @param picture  from its start code on. @return nothing when its type is not there.
inline std::optional<bool> IsIntraPicture(Bytes picture) {
    constexpr std::size_t kTypeIndex = 5;  // behind 10 bits of temporal_reference
    if (picture.size() <= kTypeIndex) return std::nullopt;
    return (picture[kTypeIndex] >> 3 & 7) == 1;
}

/// The same of a VOP (vop_coding_type, ISO/IEC 14496-2 6.2.5).
inline std::optional<bool> IsIntraVop(Bytes vop) {
    constexpr std::size_t kTypeIndex = 4;
    if (vop.size() <= kTypeIndex) return std::nullopt;
    return vop[kTypeIndex] >> 6 == 0;
}

}  // namespace kest
