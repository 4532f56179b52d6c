#include "demux/Mpeg4Headers.h"

#include <gtest/gtest.h>

#include <bitset>
#include <string_view>

#include "demux/ElementaryStreamClock.h"
#include "support/ProgramStreamBuilder.h"

namespace kest {
namespace {

// 352 x 288, 30 ticks a second, neither fixed rate nor control parameters.
constexpr auto kPlainVol = "00 00 01 20 00 84 40 07 A8 58 21 20 80 ";
// 720 x 576 interlaced, 25 ticks, fixed rate, pixels 12:11, 64 Mbit/s, 819200 bits, behind a video object.
constexpr auto kFullVol =
    "00 00 01 00 00 00 01 2F 00 C8 F8 60 5D C0 02 78 80 40 03 50 09 80 07 90 01 9C 31 68 44 81 80";

/// The state behind a plain layer, and that behind the full one.
MPEG4_HEADER_STATE Plain(std::uint32_t nResolution, std::uint8_t nBits, std::uint32_t nFixedIncrement = 0) {
    return {1, 0, 0, 1, 0, 2000000, 1835008, nResolution, nBits, nFixedIncrement, 352, 288};
}
const MPEG4_HEADER_STATE kFull = {15, 12, 11, 1, 1, 64000000, 819200, 25, 5, 1, 720, 576, 1};

TEST(Mpeg4Headers, VolIsTakenWholeOrNotAtAll) {
    struct {
        const char* pszHex;
        MPEG4_HEADER_STATE state;  // a state of a new object: the header is refused
    } const cases[] = {
        {kPlainVol, Plain(30, 5)},
        {kFullVol, kFull},
        {"00 00 01 20 00 84 40 00 68 58 21 20 80", Plain(1, 0)},
        {"00 00 01 20 00 84 40 00 A8 58 21 20 80", Plain(2, 1)},
        {"00 00 01 20 00 84 40 08 28 58 21 20 80", Plain(32, 5)},
        {"00 00 01 20 00 84 40 08 68 58 21 20 80", Plain(33, 6)},
        {"00 00 01 20 00 84 7F FF E8 58 21 20 80", Plain(65535, 16)},
        {"00 00 01 20 00 84 40 07 A0 58 01 20 00",
         Plain(30, 5)},  // no fixed rate: three markers may be missing
        {"00 00 01 20 00 84 40 07 B0 C2 C1 09 04", Plain(30, 5, 1)},  // fixed rate: all there
        {"00 00 01 20 00 84 40 07 B0 82 C1 09 04", {}},               // missing after the increment
        {"00 00 01 20 00 84 40 07 B0 C2 C0 09 04", {}},               // after the width
        {"00 00 01 20 00 84 40 07 B0 C2 C1 09 00", {}},               // after the height
        {"00 00 01 30 00 84 40 07 A8 58 21 20 80", {}},               // no layer's start code
        {"00 00 01 00 00 84 40 07 A8 58 21 20 80", {}},               // an object without a layer
        {"00 00 01 00 00 00 01 05 00 84 40 07 A8 58 21 20 80", {}},   // two objects
        {"00 00 01 20 00 84 40 00 28 58 21 20 80", {}},               // resolution 0
    };
    for (const auto& c : cases) {
        MPEG4_HEADER_STATE state;
        ByteVector header = Stream(c.pszHex);
        EXPECT_EQ(ParseVol(state, header), c.state == MPEG4_HEADER_STATE() ? -1 : 0) << c.pszHex;
        EXPECT_EQ(state, c.state) << c.pszHex;
        for (state = {}, header.pop_back(); !header.empty(); header.pop_back()) {
            EXPECT_EQ(ParseVol(state, header), -1) << c.pszHex << " cut to " << header.size();
        }
        EXPECT_EQ(state, MPEG4_HEADER_STATE());
    }
}

TEST(Mpeg4Headers, TimesOfVops) {
    constexpr auto kHalf = "00 00 01 B6 17 C0", kModulo3 = "00 00 01 B6 BA 48", k25of30 = "00 00 01 B6 1C C0";
    struct {
        const char* pszName;
        std::vector<const char*> headers;
        int nResult;  // of the last header
        std::uint64_t nPrevious, nTime, nSeconds;
    } const cases[] = {
        {"time code of a group", {"00 00 01 B3 00 12 80", kHalf}, 0, 10, 10510, 10},
        {"1 h 2 min 3 s", {"00 00 01 B3 08 50 C0", kHalf}, 0, 3723, 3727223, 3723},
        {"group cut short", {kHalf, "00 00 01 B3 08 50"}, -1, 0, 500, 0},
        {"modulo_time_base of 3", {kModulo3}, 0, 0, 3136, 3},
        {"increment falls back", {k25of30, "00 00 01 B6 51 40"}, 0, 833, 1067, 1},
        {"falls back with its second", {k25of30, "00 00 01 B6 68 E0"}, 0, 833, 1101, 1},
        {"falls back less than half a second", {k25of30, kHalf}, 0, 833, 500, 0},
        {"no marker after modulo_time_base", {kModulo3, "00 00 01 B6 64 E0"}, -1, 3136, 3136, 3},
        {"none after the increment", {kModulo3, "00 00 01 B6 54 80"}, -1, 3136, 3136, 3},
        {"ends in modulo_time_base", {kModulo3, "00 00 01 B6 7F"}, -1, 3136, 3136, 3},
        {"ends in the increment", {kModulo3, "00 00 01 B6 51"}, -1, 3136, 3136, 3},
        {"nothing to read", {kModulo3, "00 00 01 B6"}, -1, 0, 3136, 3},
    };
    for (const auto& c : cases) {
        MPEG4_HEADER_STATE state = Plain(30, 5);
        int nResult = 0;
        for (const char* pszHex : c.headers) {
            const ByteVector header = Stream(pszHex);
            nResult = header[3] == 0xB3 ? ParseGov(state, header) : ParseVopTime(state, header);
        }
        EXPECT_EQ(nResult, c.nResult) << c.pszName;
        EXPECT_EQ(state.nPreviousTime, c.nPrevious) << c.pszName;
        EXPECT_EQ(state.nTime, c.nTime) << c.pszName;
        EXPECT_EQ(state.nSeconds, c.nSeconds) << c.pszName;
    }
    MPEG4_HEADER_STATE state;
    EXPECT_EQ(ParseVopTime(state, Stream(kHalf)), -1) << "no resolution to divide by";
}

TEST(ElementaryStreamClock, TimesAFrameByItsHeaders) {
    const std::string strVop = "11 22 00 00 01 B6 17 C0", strGov = "00 00 01 B3 00 12 80 ",
                      strVol = kPlainVol;
    CElementaryStreamClock clock;
    EXPECT_FALSE(clock.ParseFrame(Stream(strVop))) << "there is no layer yet";
    EXPECT_TRUE(clock.ParseFrame(Stream("00 00 01 00 " + strVol + strGov + strVop)));
    EXPECT_EQ(clock.GetTime(), 105105000);
    EXPECT_FALSE(clock.ParseFrame(Stream("00 00 01 B1 " + strVop))) << "the sequence has ended";
}

// By the standard's rules B-VOPs come back to the second in which they are shown, whatever the reference before them
// and a group's time code have done to the clock.
TEST(ElementaryStreamClock, TimesBetweenReferencesByTheStandard) {
    struct {
        char cType;
        std::uint32_t nModuloSeconds, nIncrement;  // at 30 ticks a second
        REFERENCE_TIME rtTime;                     // ms; of a group: -1
    } const cases[] = {
        {'I', 0, 6, 200},  {'B', 0, 3, 100},  {'B', 0, 9, -700},  {'P', 1, 3, 1100},  {'B', 1, 0, 1000},
        {'B', 0, 27, 900}, {'G', 0, 2, -1},   {'I', 0, 6, 2200},  {'B', 0, 27, 1900}, {'B', 0, 3, 2100},
        {'P', 3, 0, 5000}, {'B', 1, 0, 3000}, {'P', 0, 27, 5900}, {'P', 0, 3, 6100},
    };
    CElementaryStreamClock clock(CElementaryStreamClock::ERules::Standard);
    clock.ParseFrame(Stream(kPlainVol));
    for (const auto& c : cases) {
        const std::string_view strTypes = "IPBS";
        std::string strBits;  // behind the start code
        const auto Add = [&](std::uint64_t nValue, std::size_t nBits) {
            strBits += std::bitset<32>(nValue).to_string().substr(32 - nBits);
        };
        if (c.cType == 'G') {
            Add(0, 11), Add(1, 1), Add(c.nIncrement, 6), Add(0, 6);
        } else {
            Add(strTypes.find(c.cType), 2), strBits.append(c.nModuloSeconds, '1'), Add(1, 2);
            Add(c.nIncrement, 5), Add(1, 1), strBits.append(16, '0');
        }
        ByteVector frame = Stream(c.cType == 'G' ? "00 00 01 B3" : "00 00 01 B6");
        for (std::size_t n = 0; n + 8 <= strBits.size(); n += 8)
            frame.push_back(static_cast<std::uint8_t>(std::stoi(strBits.substr(n, 8), nullptr, 2)));
        EXPECT_EQ(clock.ParseFrame(frame), c.rtTime != -1);
        if (c.rtTime != -1) {
            EXPECT_EQ(clock.GetTime(), c.rtTime * 10000) << c.cType << c.nIncrement;
        }
    }
}

}  // namespace
}  // namespace kest
