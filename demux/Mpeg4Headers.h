// The headers of an MPEG-4 video elementary stream (ISO/IEC 14496-2): what the picture is and when it is to
// be shown. Three parsers work on one record; each takes the bytes from its start code on, reads no further
// than they go, and returns 0, or -1 for a header that is damaged or cut short.
#pragma once

#include <cstdint>
#include <optional>
#include <span>

namespace kest {

/// What the headers so far contain. Fields of the standard have its names; those without a default below
/// keep their value through InitHeaderState.
struct MPEG4_HEADER_STATE {
    /// `nPreviousTime` before the first VOP.
    static constexpr std::uint64_t kNoTime = 0xFFFFFFFF;

    std::uint8_t aspect_ratio_info = 0;               // 15: as par_width and par_height say
    std::uint8_t par_width = 0;                       // default 0
    std::uint8_t par_height = 0;                      // default 0
    std::uint8_t chroma_format = 1;                   // default 1 (4:2:0)
    std::uint8_t low_delay = 0;                       // default 0; 1: no B-VOPs
    std::uint32_t nBitRate = 2000000;                 // default 2000000; bit/s
    std::uint32_t nVbvBufferSize = 1835008;           // default 1835008; bits
    std::uint32_t vop_time_increment_resolution = 0;  // ticks of vop_time_increment a second; 0: no VOL yet
    std::uint8_t nTimeIncrementBits = 0;              // width of vop_time_increment, in bits
    std::uint32_t fixed_vop_time_increment = 0;       // default 0; ticks a VOP when the rate is fixed
    std::uint16_t video_object_layer_width = 0;       // pixels
    std::uint16_t video_object_layer_height = 0;      // pixels
    std::uint8_t interlaced = 0;                      // 1: the VOPs may be interlaced
    std::uint8_t vop_coding_type = 0;                 // of the last VOP: 0 I, 1 P, 2 B, 3 S
    std::uint64_t nSeconds = 0;                       // default 0; whole seconds of the stream clock
    std::uint64_t nLastIncrement = 0;                 // vop_time_increment of the last VOP
    std::uint64_t nLastSeconds = 0;                   // nSeconds at the last VOP
    std::uint64_t nPreviousTime = kNoTime;            // default kNoTime; time of the VOP before the last
    std::uint64_t nTime = 0;                          // time of the last VOP, in ticks of nClockUnit
    std::uint64_t nClockUnit = 1000;                  // default 1000; ticks a second of the times

    friend bool operator==(const MPEG4_HEADER_STATE&, const MPEG4_HEADER_STATE&) = default;
};

/// Sets the defaults, the clock unit among them. Returns 0.
int InitHeaderState(MPEG4_HEADER_STATE& state);

/// Video object layer, after a video_object_start_code or not: picture size, time base, aspect, rate. What
/// the header leaves out keeps its value. The shape is taken to be rectangular.
/// @return -1, with nothing changed, also when the layer has no time base (resolution 0).
int ParseVol(MPEG4_HEADER_STATE& state, std::span<const std::uint8_t> bytes);

/// Group of VOPs: its time code becomes the seconds of the stream clock.
/// @return -1, with nothing changed, when it is cut short.
int ParseGov(MPEG4_HEADER_STATE& state, std::span<const std::uint8_t> bytes);

/// vop_coding_type of the first VOP in a frame: 0 I, 1 P, 2 B; -1 without a VOP, or for another type.
int FrameCodingType(std::span<const std::uint8_t> frame);

/// VOP: its coding type, and its time in ticks of the clock unit.
/// @return -1 with at most the coding type and what belongs to the previous time changed; without a layer
///         before it always.
int ParseVopTime(MPEG4_HEADER_STATE& state, std::span<const std::uint8_t> bytes);

/// The fields that a VOP has its time in.
struct VopFields {
    std::uint32_t vop_coding_type = 0;     // as in MPEG4_HEADER_STATE
    std::uint32_t nModuloSeconds = 0;      // modulo_time_base, counted
    std::uint32_t vop_time_increment = 0;  // ticks
};
/// Reads a VOP's fields, from its start code on, with the time base of the last layer.
/// @return nothing for a VOP that is damaged or cut short, or without a layer before it.
std::optional<VopFields> ReadVopFields(const MPEG4_HEADER_STATE& state, std::span<const std::uint8_t> bytes);

}  // namespace kest
