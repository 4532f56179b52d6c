#include "demux/Mpeg4Headers.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

namespace kest {
namespace {

std::vector<std::uint8_t> Hex(std::string_view text) {
    std::vector<std::uint8_t> bytes;
    for (std::size_t i = 0; i + 1 < text.size(); i += 3) {
        bytes.push_back(static_cast<std::uint8_t>(std::stoi(std::string(text.substr(i, 2)), nullptr, 16)));
    }
    return bytes;
}

// 352 x 288, 30 ticks a second, neither fixed rate nor control parameters.
constexpr auto kPlainVol = "00 00 01 20 00 84 40 07 A8 58 21 20 80";
// 720 x 576 interlaced, 25 ticks, fixed rate, pixels 12:11, 64 Mbit/s, 819200 bits, behind a video object.
constexpr auto kFullVol =
    "00 00 01 00 00 00 01 2F 00 C8 F8 60 5D C0 02 78 80 40 03 50 09 80 07 90 01 9C 31 68 44 81 80";

MPEG4_HEADER_STATE StateWithTicks30() {
    MPEG4_HEADER_STATE state;
    EXPECT_EQ(0, ParseVol(state, Hex(kPlainVol)));
    return state;
}

TEST(Mpeg4Headers, VolWithoutOptionsKeepsTheDefaults) {
    const MPEG4_HEADER_STATE state = StateWithTicks30();
    EXPECT_EQ(1, state.aspect_ratio_info);
    EXPECT_EQ(2000000U, state.nBitRate);
    EXPECT_EQ(1835008U, state.nVbvBufferSize);
    EXPECT_EQ(30U, state.vop_time_increment_resolution);
    EXPECT_EQ(352, state.video_object_layer_width);
    EXPECT_EQ(288, state.video_object_layer_height);
    EXPECT_EQ(0, state.interlaced);
}

TEST(Mpeg4Headers, VolWithEveryOption) {
    MPEG4_HEADER_STATE state;
    ASSERT_EQ(0, ParseVol(state, Hex(kFullVol)));
    EXPECT_EQ(15, state.aspect_ratio_info);
    EXPECT_EQ(12, state.par_width);
    EXPECT_EQ(11, state.par_height);
    EXPECT_EQ(1, state.chroma_format);
    EXPECT_EQ(1, state.low_delay);
    EXPECT_EQ(64000000U, state.nBitRate);
    EXPECT_EQ(819200U, state.nVbvBufferSize);
    EXPECT_EQ(25U, state.vop_time_increment_resolution);
    EXPECT_EQ(1U, state.fixed_vop_time_increment);
    EXPECT_EQ(720, state.video_object_layer_width);
    EXPECT_EQ(576, state.video_object_layer_height);
    EXPECT_EQ(1, state.interlaced);
}

TEST(Mpeg4Headers, IncrementBitsAreTheSmallestThatHoldTheResolution) {
    struct {
        const char* hex;
        int nBits;
    } const cases[] = {
        {"00 00 01 20 00 84 40 00 68 58 21 20 80", 0},   // resolution 1
        {"00 00 01 20 00 84 40 00 A8 58 21 20 80", 1},   // 2
        {kPlainVol, 5},                                  // 30
        {"00 00 01 20 00 84 40 08 28 58 21 20 80", 5},   // 32
        {"00 00 01 20 00 84 40 08 68 58 21 20 80", 6},   // 33
        {"00 00 01 20 00 84 7F FF E8 58 21 20 80", 16},  // 65535
    };
    for (const auto& c : cases) {
        MPEG4_HEADER_STATE state;
        EXPECT_EQ(0, ParseVol(state, Hex(c.hex))) << c.hex;
        EXPECT_EQ(c.nBits, state.nTimeIncrementBits) << c.hex;
    }
}

TEST(Mpeg4Headers, MarkersOfTheVolCountOnlyWithAFixedRate) {
    struct {
        const char* hex;
        int nResult;
    } const cases[] = {
        {"00 00 01 20 00 84 40 07 A0 58 01 20 00", 0},   // no fixed rate: all three missing
        {"00 00 01 20 00 84 40 07 B0 C2 C1 09 04", 0},   // fixed rate: all there
        {"00 00 01 20 00 84 40 07 B0 82 C1 09 04", -1},  // missing after the increment
        {"00 00 01 20 00 84 40 07 B0 C2 C0 09 04", -1},  // after the width
        {"00 00 01 20 00 84 40 07 B0 C2 C1 09 00", -1},  // after the height
    };
    for (const auto& c : cases) {
        MPEG4_HEADER_STATE state;
        EXPECT_EQ(c.nResult, ParseVol(state, Hex(c.hex))) << c.hex;
        EXPECT_EQ(c.nResult == 0, state != MPEG4_HEADER_STATE()) << c.hex;
    }
}

TEST(Mpeg4Headers, WrongOrShortVolChangesNothing) {
    std::vector<std::vector<std::uint8_t>> headers = {
        Hex("00 00 01 30 00 84 40 07 A8 58 21 20 80"),              // no layer's start code
        Hex("00 00 01 00 00 84 40 07 A8 58 21 20 80"),              // an object without a layer
        Hex("00 00 01 00 00 00 01 05 00 84 40 07 A8 58 21 20 80"),  // two objects
        Hex("00 00 01 20 00 84 40 00 28 58 21 20 80"),              // resolution 0
    };
    for (const char* whole : {kPlainVol, kFullVol}) {
        for (auto header = Hex(whole); !header.empty();) {
            header.pop_back();
            headers.push_back(header);
        }
    }
    for (const auto& header : headers) {
        MPEG4_HEADER_STATE state;
        EXPECT_EQ(-1, ParseVol(state, header)) << header.size();
        EXPECT_EQ(MPEG4_HEADER_STATE(), state) << header.size();
    }
}

TEST(Mpeg4Headers, TimesOfVops) {
    struct {
        const char* name;
        std::vector<const char*> headers;
        std::uint64_t nPrevious, nTime, nSeconds;
    } const cases[] = {
        {"time code of a group", {"00 00 01 B3 00 12 80", "00 00 01 B6 17 C0"}, 10, 10510, 10},
        {"1 h 2 min 3 s", {"00 00 01 B3 08 50 C0", "00 00 01 B6 17 C0"}, 3723, 3727223, 3723},
        {"modulo_time_base of 3", {"00 00 01 B6 BA 48"}, 0, 3136, 3},
        {"increment falls back", {"00 00 01 B6 1C C0", "00 00 01 B6 51 40"}, 833, 1067, 1},
        {"falls back with its second", {"00 00 01 B6 1C C0", "00 00 01 B6 68 E0"}, 833, 1101, 1},
        {"falls back less than half a second", {"00 00 01 B6 1C C0", "00 00 01 B6 17 C0"}, 833, 500, 0},
    };
    for (const auto& c : cases) {
        MPEG4_HEADER_STATE state = StateWithTicks30();
        for (const char* hex : c.headers) {
            const auto header = Hex(hex);
            EXPECT_EQ(0, header[3] == 0xB3 ? ParseGov(state, header) : ParseVopTime(state, header)) << c.name;
        }
        EXPECT_EQ(c.nPrevious, state.nPreviousTime) << c.name;
        EXPECT_EQ(c.nTime, state.nTime) << c.name;
        EXPECT_EQ(c.nSeconds, state.nSeconds) << c.name;
    }
}

TEST(Mpeg4Headers, ClockUnitScalesTheTimes) {
    MPEG4_HEADER_STATE state = StateWithTicks30();
    state.nClockUnit = 10000000;
    ASSERT_EQ(0, ParseVopTime(state, Hex("00 00 01 B6 17 C0")));
    EXPECT_EQ(5005000U, state.nTime);
    InitHeaderState(state);
    EXPECT_EQ(1000U, state.nClockUnit);
    EXPECT_EQ(MPEG4_HEADER_STATE::kNoTime, state.nPreviousTime);
    EXPECT_EQ(352, state.video_object_layer_width);
}

TEST(Mpeg4Headers, DamagedVopMovesNoTime) {
    const char* const headers[] = {
        "00 00 01 B6 64 E0",  // no marker after modulo_time_base
        "00 00 01 B6 54 80",  // none after the increment
        "00 00 01 B6 7F",     // ends in modulo_time_base
        "00 00 01 B6 51",     // ends in the increment
    };
    for (const char* hex : headers) {
        MPEG4_HEADER_STATE expected = StateWithTicks30();
        ASSERT_EQ(0, ParseVopTime(expected, Hex("00 00 01 B6 BA 48")));
        MPEG4_HEADER_STATE state = expected;
        EXPECT_EQ(-1, ParseVopTime(state, Hex(hex))) << hex;
        expected.vop_coding_type = 1;
        expected.nPreviousTime = expected.nTime;
        EXPECT_EQ(expected, state) << hex;
    }
}

TEST(Mpeg4Headers, NothingToReadOrNoLayer) {
    MPEG4_HEADER_STATE state;
    EXPECT_EQ(-1, ParseVopTime(state, Hex("00 00 01 B6 17 C0")));  // no resolution to divide by
    const MPEG4_HEADER_STATE before = state = StateWithTicks30();
    EXPECT_EQ(-1, ParseVopTime(state, Hex("00 00 01 B6")));
    EXPECT_EQ(-1, ParseGov(state, Hex("00 00 01 B3 08 50")));
    EXPECT_EQ(before, state);
}

}  // namespace
}  // namespace kest
