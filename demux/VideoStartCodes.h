// Start codes of video elementary streams, by their last byte.
#pragma once

#include <cstdint>

namespace kest {

// MPEG-4, ISO/IEC 14496-2 table 6-3.
constexpr std::uint8_t kLastVideoObject = 0x1F;  // of 0x00 to this
constexpr std::uint8_t kLastVideoObjectLayer = 0x2F;
constexpr std::uint8_t kSequenceEnd = 0xB1;
constexpr std::uint8_t kGroupOfVop = 0xB3;
constexpr std::uint8_t kVop = 0xB6;

// MPEG-2, ISO/IEC 13818-2 table 6-1.
constexpr std::uint8_t kPicture = 0x00;
constexpr std::uint8_t kSequenceHeader = 0xB3;
constexpr std::uint8_t kVideoExtension = 0xB5;
constexpr std::uint8_t kGroupOfPictures = 0xB8;

}  // namespace kest
