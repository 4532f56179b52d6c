// Codes of the MPEG-2 system layer that more than one parser needs.
#pragma once

#include <cstdint>

namespace kest {

// Start codes of a program stream, ISO/IEC 13818-1 table 2-33 and table 2-18 (stream_id).
constexpr std::uint32_t kPackStartCode = 0x000001BA;
constexpr std::uint32_t kMuxRateUnit = 400;     // bit/s: program_mux_rate counts 50 bytes a second
constexpr std::uint8_t kProgramEndId = 0xB9;    // MPEG_program_end_code
constexpr std::uint8_t kPackHeaderId = 0xBA;    // pack_start_code
constexpr std::uint8_t kSystemHeaderId = 0xBB;  // system_header_start_code
constexpr std::uint8_t kProgramStreamMapId = 0xBC;
constexpr std::uint8_t kPrivateStream1Id = 0xBD;
constexpr std::uint8_t kPaddingStreamId = 0xBE;
constexpr std::uint8_t kPrivateStream2Id = 0xBF;
constexpr std::uint8_t kFirstAudioStreamId = 0xC0;
constexpr std::uint8_t kFirstVideoStreamId = 0xE0;
constexpr std::uint8_t kFirstReservedDataId = 0xF0;  // of an MPEG-1 stream, ISO/IEC 11172-1 table 1

/// Whether an id is a stream_id of audio, 0xC0 to 0xDF, or of video, 0xE0 to 0xEF.
constexpr bool IsAudioStreamId(int nId) { return nId >= kFirstAudioStreamId && nId < kFirstVideoStreamId; }
constexpr bool IsVideoStreamId(int nId) { return nId >= kFirstVideoStreamId && nId < kFirstReservedDataId; }

// stream_type values, ISO/IEC 13818-1 table 2-34.
constexpr std::uint8_t kStreamTypeMpeg1Video = 0x01;
constexpr std::uint8_t kStreamTypeMpeg2Video = 0x02;
constexpr std::uint8_t kStreamTypeMpeg1Audio = 0x03;
constexpr std::uint8_t kStreamTypeMpeg2Audio = 0x04;
constexpr std::uint8_t kStreamTypeMpeg4Video = 0x10;

}  // namespace kest
