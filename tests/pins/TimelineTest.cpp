// The rules of time, as numbers. Timestamp 900000 is 10 s, or 100000000; 3600 ticks are 400000.
#include <gtest/gtest.h>

#include <functional>
#include <limits>
#include <memory>
#include <string_view>

#include "pins/AudioTimeline.h"
#include "pins/VideoTimeline.h"

namespace kest {
namespace {

constexpr REFERENCE_TIME kTenSeconds = 100000000;
constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kMin = std::numeric_limits<std::int64_t>::min();

using Change = std::function<void(AvTimes&)>;

/// One frame, and what becomes of it: first what is requested before it is placed, by letters (f flush, F both
/// flushes, t time base, c clock); its start and flags (Discontinuity, Sync point, Preroll); then what is requested
/// with it (a announce, k skip ahead, r reset, w wait for audio). "." is dropped.
struct Row {
    std::int64_t llTimestamp;
    const char* pszPlaced;
    Change before = nullptr;  // what the other pin or the filter does before
};

struct Case {
    const char* pszName;
    int nMode;
    EPin pin;
    Change begin;
    std::vector<Row> rows;
    Change end = nullptr;  // checks the timing that is left
    bool bPush = false;
    REFERENCE_TIME rtClock = 0;
};

std::string Place(CTimeline& timeline, AvTimes& times, TimedFrame frame, REFERENCE_TIME rtClock) {
    std::string text;
    for (;;) {
        Placement place = timeline.Map(frame, times);
        switch (place.request) {
            case ERequest::Drop: return text + ".";
            case ERequest::FlushOwn: text += 'f'; break;
            case ERequest::FlushBoth: text += 'F'; break;
            case ERequest::AwaitTimeBase: text += frame.nBaseWaits++ == 0 ? "t" : ""; continue;
            case ERequest::ReadClock: text += 'c'; break;
            case ERequest::None: {
                const bool bEarlySkip = std::exchange(place.bSkipAhead, false);
                timeline.Finish(frame, times, place);
                if (!text.empty()) text += ' ';
                text += std::to_string(place.rtStart) + ' ';
                if (place.bDiscontinuity) text += 'D';
                if (place.bSyncPoint) text += 'S';
                if (place.bPreroll) text += 'P';
                EXPECT_LE(place.bRestart, place.bDiscontinuity);
                std::string acts;
                if (place.bAnnounce) acts += 'a';
                if (place.bSkipAhead || bEarlySkip) acts += 'k';
                if (place.bRequestReset) acts += 'r';
                if (place.bAwaitAudio) acts += 'w';
                return acts.empty() ? text : text + ' ' + acts;
            }
        }
        frame.bFlushed = frame.bFlushed || place.request != ERequest::ReadClock;
        if (place.request == ERequest::ReadClock) frame.rtClock = rtClock;
    }
}

void RunCase(const Case& c) {
    SCOPED_TRACE(c.pszName);
    const WorkingMode& mode = FindWorkingMode(static_cast<EWorkingMode>(c.nMode));
    std::unique_ptr<CTimeline> pTimeline;
    if (c.pin == EPin::Video) pTimeline = std::make_unique<CVideoTimeline>(mode);
    if (c.pin == EPin::Audio) pTimeline = std::make_unique<CAudioTimeline>(mode, c.bPush);
    AvTimes times;
    if (c.begin) c.begin(times);
    for (std::size_t i = 0; i < c.rows.size(); ++i) {
        const Row& row = c.rows[i];
        if (row.before) row.before(times);
        EXPECT_EQ(Place(*pTimeline, times, TimedFrame{.llTimestamp = row.llTimestamp}, c.rtClock),
                  row.pszPlaced)
            << i;
    }
    if (c.end) c.end(times);
}

/// The audio has a time base and has come to a start.
Change Audio(REFERENCE_TIME rtBase, REFERENCE_TIME rtStart) {
    return [=](AvTimes& times) {
        times.audio = {.bFirstTime = false, .rtTimeBase = rtBase, .rtStart = rtStart, .rtLastStart = rtStart};
    };
}
Change AudioAt(REFERENCE_TIME rtLast, REFERENCE_TIME rtStart) {
    return [=](AvTimes& times) { times.audio.rtLastStart = rtLast, times.audio.rtStart = rtStart; };
}
Change FirstTime(EPin pin) {
    return [=](AvTimes& times) { times.Of(pin).bFirstTime = true; };
}
Change FirstTimes(bool bVideo, bool bAudio) {
    return [=](AvTimes& times) {
        EXPECT_EQ(times.video.bFirstTime, bVideo);
        EXPECT_EQ(times.audio.bFirstTime, bAudio);
    };
}
Change Bases(REFERENCE_TIME rtVideo, REFERENCE_TIME rtAudio) {
    return [=](AvTimes& times) {
        EXPECT_EQ(times.video.rtTimeBase, rtVideo);
        EXPECT_EQ(times.audio.rtTimeBase, rtAudio);
    };
}

TEST(Timelines, Audio) {
    const Change after80 = [](AvTimes& t) { t.audio.rtLastStart = 80000000, t.audio.bFirstTime = true; };
    const Change videoBase = [](AvTimes& t) { t.video.rtTimeBase = 99000000; };
    const Change reset = [](AvTimes& t) { t.audio.bRestartPending = t.audio.bFirstTime = true; };
    const Case cases[] = {
        {"pulled: the frame's own time, for both",
         4,
         EPin::Audio,
         nullptr,
         {{900000, "F 0 DS a"}, {902160, "240000 S"}},
         Bases(kTenSeconds, kTenSeconds),
         false,
         30000000},
        {"pushed: the stream time",
         4,
         EPin::Audio,
         nullptr,
         {{900000, "Fc 30000000 DS a"}},
         Bases(70000000, 70000000),
         true,
         30000000},
        {"a reset during the restart is not lost",
         4,
         EPin::Audio,
         reset,
         {{900000, "F 0 DS a"}},
         FirstTimes(true, true)},
        {"broken: both begin anew",
         4,
         EPin::Audio,
         nullptr,
         {{900000, "F 0 DS a"}, {1000000, "240000 DS r", [](AvTimes& t) { t.video.bFirstTime = false; }}},
         FirstTimes(true, true)},
        {"basic: a first frame before time 0",
         5,
         EPin::Audio,
         nullptr,
         {{777777, "c 0 DS"}},
         Bases(kNoTimeBase, 86419666 + 5),
         false,
         -5},
        {"basic: broken ones, each with a request",
         5,
         EPin::Audio,
         nullptr,
         {{900000, "c 30000000 DS"},
          {1800000, "30240000 DS r"},
          {1803600, "30480000 DS r"},
          {1807200, "30720000 DS r"}},
         FirstTimes(true, false),
         false,
         30000000},
        {"jump-clamping: behind the later pin, within 0.2 s",
         3,
         EPin::Audio,
         [](AvTimes& t) { t.video.rtLastStart = 70000000; },
         {{900000, "70000000 DS"},
          {918000, "72000000 S"},
          {936009, "72240000 DS"},
          {902160, "70240000 S"},
          {882000, "70480000 DS"},
          {1800000, "68240000 D r"},
          {1800000, "68480000 D r"},
          {900000, "80000000 DS", after80}}},
        {"clock-following: adopts the video's base once",
         1,
         EPin::Audio,
         nullptr,
         {{900000, "c 0 DS"},
          {903600, "c 1400000 DS", videoBase},
          {907200, "c 1800000 S"},
          {910800, "c 2200000 DS", FirstTime(EPin::Audio)},
          {914400, "c 2600000 S"}}},
        {"clock-following: rendered after a request",
         1,
         EPin::Audio,
         nullptr,
         {{900000, "c 0 DS"}, {1800000, "c 240000 DS r"}, {904000, "c 444444 D"}}},
        {"plain: no repairs",
         0,
         EPin::Audio,
         nullptr,
         {{900000, "0 DS"}, {5400000, "500000000 S"}, {450000, "-50000000 S"}}},
    };
    for (const Case& c : cases) RunCase(c);
}

TEST(Timelines, Video) {
    const Change pending = [](AvTimes& t) { t.video.bRestartPending = true; };
    const Case cases[] = {
        {"without audio: its own time",
         4,
         EPin::Video,
         nullptr,
         {{900000, "t 0 DS a"}, {903600, "400000 S"}},
         Bases(kTenSeconds, kNoTimeBase)},
        {"MPEG-4: flushes at its restart",
         2,
         EPin::Video,
         Audio(kTenSeconds, 0),
         {{903600, "f 400000 DS a"}}},
        {"broken: frame by frame until a restart",
         4,
         EPin::Video,
         Audio(kTenSeconds, 0),
         {{900000, "0 DS a"},
          {1080000, "333666 DS r"},
          {1083600, "667333 DS r"},
          {900100, "11111 S"},
          {1084000, "20444444 DS a",
           [](AvTimes& t) { t.audio.rtLastStart = t.audio.rtStart = 20000000, t.video.bFirstTime = true; }},
          {1164000, "29333333 S"},
          {1244000, "38222222 S"}},
         FirstTimes(false, true)},
        {"basic: broken ones ask once, none is below 0",
         5,
         EPin::Video,
         Audio(kTenSeconds, 0),
         {{450000, "0 DS"},
          {903600, "-49666334 DS r"},
          {903600, "400000 DS"},
          {1803600, "733666 DS"},
          {1803600, "100400000 DS"}},
         FirstTimes(false, true)},
        {"basic: a pending restart",
         5,
         EPin::Video,
         Audio(kTenSeconds, 0),
         {{900000, "0 DS"}, {1800000, "100000000 DS", pending}, {1803600, "100400000 S"}}},
        {"jump-clamping: within 0.5 s",
         3,
         EPin::Video,
         Audio(0, 0),
         {{9000, "1000000 DS"},
          {54000, "6000000 S"},
          {99001, "6330000 DS"},
          {11970, "1330000 S"},
          {500000, "1663666 D r"},
          {500000, "1997333 D"}}},
        {"clock-following: the first waits; not shown after a request",
         1,
         EPin::Video,
         Audio(0, 999999),
         {{9000, "c 1000000 DS w"},
          {12600, "c 1400000 S"},
          {200000, "c 1733666 D r"},
          {15700, "c 1744444 DP"}}},
    };
    for (const Case& c : cases) RunCase(c);
    AvTimes times;
    times.audio.rtLastStart = 999999;
    EXPECT_TRUE(CVideoTimeline::IsAudioBehind(times, 1000000));
    EXPECT_FALSE(CVideoTimeline::IsAudioBehind(times, 999999));
}

TEST(Timelines, WrapsAndJumps) {
    constexpr std::int64_t kLast = 8589930992;  // 3600 ticks before the counter begins anew
    constexpr REFERENCE_TIME kBase = 954436776888;
    for (const EPin pin : {EPin::Video, EPin::Audio}) {
        const bool bVideo = pin == EPin::Video;
        auto Run = [&](const char* pszName, REFERENCE_TIME rtBase, std::vector<Row> rows) {
            RunCase({pszName, 4, pin, bVideo ? Audio(rtBase, 0) : nullptr, std::move(rows)});
        };
        const char* pszFirst = bVideo ? "0 DS a" : "F 0 DS a";
        Run("wrap", kBase, {{kLast, pszFirst}, {0, "399889 S"}, {3600, "799889 S"}});
        Run("19999 ticks", kBase, {{kLast, pszFirst}, {16400, "2222111 S"}});
        Run("20000 ticks", kBase, {{kLast, pszFirst}, {16401, bVideo ? "333667 DS r" : "240000 DS r"}});
        Run("up", kTenSeconds, {{900000, pszFirst}, {990090, "10010000 S"}});
        Run("down", kTenSeconds, {{900000, pszFirst}, {809910, "-10010000 S"}});
        Run("up, broken", kTenSeconds,
            {{900000, pszFirst}, {990091, bVideo ? "333666 DS r" : "240000 DS r"}});
        Run("down, broken", kTenSeconds,
            {{900000, pszFirst}, {809909, bVideo ? "333666 DS r" : "240000 DS r"}});
    }
}

TEST(Timelines, VideoKeepsNearTheAudio) {
    struct {
        bool bFirst;             // else the frame after it
        REFERENCE_TIME rtAhead;  // of the audio's last start
        bool bTaken;             // the audio's present start, 7 behind its last
        const char* pszFlags;
    } const cases[] = {
        // A first frame that keeps its time is measured again as any frame: by 2 s, and no sync point.
        {true, 20000000, false, " DS a"}, {true, 20000001, true, " D a"},    {true, 50000000, true, " D a"},
        {true, 50000001, true, " DS a"},  {true, -10000000, false, " DS a"}, {true, -10000001, true, " DS a"},
        {false, 20000000, false, " S"},   {false, 20000001, true, " "},      {false, -20000000, false, " S"},
        {false, -20000001, true, " "},
    };
    for (const auto& c : cases) {
        const REFERENCE_TIME rtAudio = kTenSeconds - c.rtAhead;
        const std::string placed = std::to_string(c.bTaken ? rtAudio + 7 : kTenSeconds) + c.pszFlags;
        std::vector<Row> rows{{900000, placed.c_str(), AudioAt(rtAudio, rtAudio + 7)}};
        if (!c.bFirst) rows.insert(rows.begin(), Row{896400, "99600000 DS a"});
        RunCase({"distance", 4, EPin::Video, Audio(0, kTenSeconds), rows});
    }
    constexpr std::int64_t kNow = 1800000;  // 20 s, and the audio at 0 or there
    const Row taken{kNow, "0 "}, skips{kNow, "0  k"},
        fine{kNow, "200000000 S", AudioAt(200000000, 200000000)},
        first{kNow, "0 DS a", FirstTime(EPin::Video)}, firstSkips{kNow, "0 DS ak", FirstTime(EPin::Video)};
    const Row begin{kNow, "200000000 DS a"}, away{kNow, "0 ", AudioAt(0, 0)};
    RunCase({"later frames",
             4,
             EPin::Video,
             Audio(0, 200000000),
             {begin, away, taken, taken, taken, taken, taken, skips, skips, fine, away, taken}});
    RunCase({"with a first frame",
             4,
             EPin::Video,
             Audio(0, 200000000),
             {begin, away, taken, first, taken, first}});
    RunCase({"first frames count too",
             4,
             EPin::Video,
             Audio(0, 200000000),
             {begin, away, taken, taken, firstSkips}});
}

TEST(Timelines, ElementaryStreamHasTheTimesOfItsHeaders) {
    auto Unit = [](std::uint8_t nCode, std::string_view bits) {  // a start code and bits, filled up with ones
        std::string bytes{0, 0, 1, static_cast<char>(nCode)};
        int nBit = 0;
        for (const char c : bits) {
            if (c == ' ') continue;
            if (nBit % 8 == 0) bytes.push_back('\xFF');
            if (c == '0') bytes.back() = static_cast<char>(bytes.back() & ~(0x80 >> nBit % 8));
            ++nBit;
        }
        return bytes;
    };
    const std::string object = Unit(0x00, ""), end = Unit(0xB1, ""), noise = Unit(0xB5, "1010");
    const std::string layer =  // 30 ticks a second, no fixed rate, 352 x 240
        Unit(0x20, "0 00000001 0 0001 0 00 1 0000000000011110 1 0 1 0000101100000 1 0000011110000 1 0");
    const std::string vop15 = Unit(0xB6, "00 0 1 01111 1"), vop18 = Unit(0xB6, "01 0 1 10010 1");
    CVideoTimeline timeline(FindWorkingMode(EWorkingMode::Mpeg4VideoEs));
    AvTimes times;
    // 9 ticks are 1000; encoders count 1000 ticks for 1001, so that tick 15 of 30 is at 5005000.
    for (const auto& [bytes, pszPlaced] : {std::pair(vop15, "."),
                                           {layer, "."},
                                           {object + layer + vop15, "5004000 DS"},
                                           {vop18, "6005000 S"},
                                           {noise, "6005000 S"},
                                           {end + vop15, "6005000 S"},
                                           {layer + vop15 + vop18, "5004000 S"}}) {
        const std::span data(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
        EXPECT_EQ(Place(timeline, times, TimedFrame{.llTimestamp = 9, .bytes = data}, 0), pszPlaced);
    }
}

// Under the sanitizer of undefined behaviour: whatever a stream claims, nothing overflows.
TEST(Timelines, TakeEveryNumber) {
    constexpr std::int64_t kHostile[] = {kMax, kMin, -1, 0, kMax / 1000 + 1, kMin / 1000 - 1, kMax, 1, kMin};
    for (int nMode = 0; nMode <= 5; ++nMode) {
        for (const EPin pin : {EPin::Video, EPin::Audio}) {
            for (const REFERENCE_TIME rtOther : {kMax, kMin}) {
                const WorkingMode& mode = FindWorkingMode(static_cast<EWorkingMode>(nMode));
                CVideoTimeline video(mode);
                CAudioTimeline audio(mode, /*bPush=*/true);
                CTimeline& timeline = pin == EPin::Video ? static_cast<CTimeline&>(video) : audio;
                AvTimes times;
                Audio(rtOther, rtOther)(times);
                times.Of(pin).bFirstTime = true;
                for (const std::int64_t ll : kHostile)
                    Place(timeline, times, TimedFrame{.llTimestamp = ll}, rtOther);
            }
        }
    }
    EXPECT_EQ(CTimeline::ToTime(kMax), kMax);
    EXPECT_EQ(CTimeline::ToTime(kMin), kMin);
    EXPECT_EQ(CTimeline::ToTime(kMax / 1000 + 1),
              (kMax / 1000 + 1) / 9 * 1000 + (kMax / 1000 + 1) % 9 * 1000 / 9);
}

}  // namespace
}  // namespace kest
