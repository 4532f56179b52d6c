// The rules of time, as numbers. Timestamp 900000 is 10 s, or 100000000; 3600 ticks are 400000.
#include <gtest/gtest.h>

#include <limits>
#include <memory>
#include <sstream>
#include <tuple>

#include "pins/AudioTimeline.h"
#include "pins/RobustTimeline.h"
#include "pins/VideoTimeline.h"

namespace kest {
namespace {

// A line is a case: mode and pin ("live" is the audio of a live input), maybe the time of the clock, then what
// comes in order. A frame is its timestamp and what becomes of it: first what is requested before it is placed,
// by letters (f flush, F both flushes, t time base, c clock; "." is dropped); its start and flags (Discontinuity,
// Sync point, Preroll, "-" none); then what is requested with it (a announce, k skip ahead, r reset, w wait for
// the audio). Else:
//   audio, video BASE START LAST   the pin's timing, running
//   seek TIMESTAMP                 a seek by time: what stands for the start of the segment
//   first, pending, reset PIN      the first-time flag, the pending restart, or both are set
//   left V A BASE BASE             what is left: first-time flags and time bases of video and audio
constexpr const char* kCases = R"(
4 audio 30000000: 900000=F 0 DS a; 902160=240000 S; left 1 0 100000000 100000000
4 live 30000000: 900000=Fc 30000000 DS a; left 1 0 70000000 70000000
4 audio: reset audio; 900000=F 0 DS a; left 1 1 100000000 100000000
4 audio: 900000=F 0 DS a; video 100000000 0 0; 1000000=240000 DS r; left 1 1 100000000 100000000
4 audio: seek 900000; 896400=-400000 DS a; 898560=-160000 S; left 1 0 -1 100000000; first audio; 1000000=11111111 DS a
2 video: seek 900000; 810000=-10000000 DS a; audio 0 0 500000000; 813600=-9600000 S; left 0 0 100000000 0
4 video: seek 8589934692; 8589930992=-411112 DS a; 0=-11223 S; first video; 3600=388889 DS a
4 audio: seek 8589934692; 20=-8889 DS a; 2180=231111 S
4 audio: seek 100; 8589934592=-11112 DS a
4 video: seek 900000; 900000=0 DS a; 1080000=333666 DS r; first video; 903600=t 0 DS a
4 audio: seek 900000; 900000=0 DS a; 1080000=240000 DS r; 1083600=F 0 DS a
5 audio -5: 777777=c 0 DS; left 1 0 -1 86419671
5 audio 30000000: 900000=c 30000000 DS; 1800000=30240000 DS r; 1803600=30480000 DS r; 1807200=30720000 DS r
3 audio: video -1 0 70000000; 900000=70000000 DS; 918000=72000000 S; 936009=72240000 DS; 902160=70240000 S; 882000=70480000 DS; 1800000=68240000 D r; 1800000=68480000 D r; audio 0 0 80000000; first audio; 900000=80000000 DS
1 audio: 900000=c 0 DS; video 99000000 0 0; 903600=c 1400000 DS; 907200=c 1800000 S; first audio; 910800=c 2200000 DS; 914400=c 2600000 S
1 audio: 900000=c 0 DS; 1800000=c 240000 DS r; 904000=c 444444 D
0 audio: 900000=0 DS; 5400000=500000000 S; 450000=-50000000 S
4 video: 900000=t 0 DS a; 903600=400000 S; left 0 1 100000000 -1
2 video: audio 100000000 0 0; 903600=f 400000 DS a; 907200=800000 S
4 video: audio 100000000 0 0; 900000=0 DS a; 1080000=333666 DS r; 1083600=667333 DS r; 900100=11111 S; audio 100000000 20000000 20000000; first video; 1084000=20444444 DS a; 1164000=29333333 S; 1244000=38222222 S
5 video: audio 100000000 0 0; 450000=0 DS; 903600=-49666334 DS r; 903600=400000 DS; 1803600=733666 DS; 1803600=100400000 DS; left 0 1 100000000 100000000
5 video: audio 100000000 0 0; 900000=0 DS; pending video; 1800000=100000000 DS; 1803600=100400000 S
3 video: audio 0 0 0; 9000=1000000 DS; 54000=6000000 S; 99001=6330000 DS; 11970=1330000 S; 500000=1663666 D r; 500000=1997333 D
1 video: audio 0 0 999999; 9000=c 1000000 DS w; 12600=c 1400000 S; 200000=c 1733666 D r; 15700=c 1744444 DP
4 video: audio 954436776888 0 0; 8589930992=0 DS a; 0=399889 S; 3600=799889 S
4 video: audio 954436776888 0 0; 8589930992=0 DS a; 16400=2222111 S
4 video: audio 954436776888 0 0; 8589930992=0 DS a; 16401=333667 DS r
4 audio: 8589930992=F 0 DS a; 0=399889 S; 3600=799889 S
4 video: audio 100000000 0 0; 900000=0 DS a; 990090=10010000 S
4 video: audio 100000000 0 0; 900000=0 DS a; 990091=333666 DS r
4 audio: 900000=F 0 DS a; 809910=-10010000 S
4 audio: 900000=F 0 DS a; 809909=240000 DS r
4 video: audio 0 80000007 80000000; 900000=100000000 DS a
4 video: audio 0 80000006 79999999; 900000=80000006 D a
4 video: audio 0 50000007 50000000; 900000=50000007 D a
4 video: audio 0 50000006 49999999; 900000=50000006 DS a
4 video: audio 0 110000007 110000000; 900000=100000000 DS a
4 video: audio 0 110000008 110000001; 900000=110000008 DS a
4 video: audio 0 0 100000000; 896400=99600000 DS a; audio 0 80000007 80000000; 900000=100000000 S
4 video: audio 0 0 100000000; 896400=99600000 DS a; audio 0 80000006 79999999; 900000=80000006 -
4 video: audio 0 0 100000000; 896400=99600000 DS a; audio 0 120000007 120000000; 900000=100000000 S
4 video: audio 0 0 100000000; 896400=99600000 DS a; audio 0 120000008 120000001; 900000=120000008 -
4 video: audio 0 0 200000000; 1800000=200000000 DS a; audio 0 0 0; 1800000=0 -; 1800000=0 -; 1800000=0 -; 1800000=0 -; 1800000=0 -; 1800000=0 -; 1800000=0 - k; 1800000=0 - k; audio 0 0 200000000; 1800000=200000000 S; audio 0 0 0; 1800000=0 -
4 video: audio 0 0 200000000; 1800000=200000000 DS a; audio 0 0 0; 1800000=0 -; 1800000=0 -; first video; 1800000=0 DS a; 1800000=0 -
4 video: audio 0 0 200000000; 1800000=200000000 DS a; audio 0 0 0; 1800000=0 -; 1800000=0 -; 1800000=0 -; first video; 1800000=0 DS ak
)";

std::string Place(CTimeline& timeline, AvTimes& times, TimedFrame frame, REFERENCE_TIME rtClock) {
    std::string text;
    Placement place;
    while ((place = timeline.Map(frame, times)).request != ERequest::None) {
        if (place.request == ERequest::Drop) return text + ".";
        if (place.request == ERequest::AwaitTimeBase && frame.nBaseWaits++ > 0) continue;
        if (place.request == ERequest::ReadClock) frame.rtClock = rtClock;
        if (place.request == ERequest::FlushOwn || place.request == ERequest::FlushBoth)
            frame.bFlushed = true;
        text += "??fFtc"[static_cast<int>(place.request)];
    }
    const bool bSkipsEarly = std::exchange(place.bSkipAhead, false);
    timeline.Finish(frame, times, place);
    if (!text.empty()) text += ' ';
    text += std::to_string(place.rtStart) + ' ';
    for (const auto& [b, c] :
         {std::pair(place.bDiscontinuity, 'D'), {place.bSyncPoint, 'S'}, {place.bPreroll, 'P'}}) {
        if (b) text += c;
    }
    if (text.back() == ' ') text += '-';
    std::string acts = " ";
    for (const auto& [b, c] : {std::pair(place.bAnnounce, 'a'),
                               {place.bSkipAhead || bSkipsEarly, 'k'},
                               {place.bRequestReset, 'r'},
                               {place.bAwaitAudio, 'w'}}) {
        if (b) acts += c;
    }
    return acts == " " ? text : text + acts;
}

/// Does what stands between two frames.
void Change(std::istream& item, AvTimes& times) {
    std::string strWord, strPin;
    item >> strWord;
    if (strWord == "left") {
        bool bVideo = false, bAudio = false;
        REFERENCE_TIME rtVideo = 0, rtAudio = 0;
        item >> bVideo >> bAudio >> rtVideo >> rtAudio;
        EXPECT_EQ(std::pair(times.video.bFirstTime, times.audio.bFirstTime), std::pair(bVideo, bAudio));
        EXPECT_EQ(std::pair(times.video.rtTimeBase, times.audio.rtTimeBase), std::pair(rtVideo, rtAudio));
    } else if (strWord == "seek") {
        item >> times.seekTarget.emplace().llTimestamp;
    } else if (strWord == "audio" || strWord == "video") {
        PinTiming& pin = strWord == "audio" ? times.audio : times.video;
        item >> pin.rtTimeBase >> pin.rtStart >> pin.rtLastStart;
        pin.bFirstTime = false;
    } else {
        item >> strPin;
        PinTiming& pin = strPin == "audio" ? times.audio : times.video;
        if (strWord != "pending") pin.bFirstTime = true;
        if (strWord != "first") pin.bRestartPending = true;
    }
}

TEST(Timelines, PlaceFramesByTheirRules) {
    std::istringstream cases(kCases);
    for (std::string strCase; std::getline(cases, strCase);) {
        if (strCase.empty()) continue;
        SCOPED_TRACE(strCase);
        std::istringstream line(strCase);
        std::string strHead, strPin, strItem;
        std::getline(line, strHead, ':');
        std::istringstream head(strHead);
        int nMode = 0;
        REFERENCE_TIME rtClock = 0;
        head >> nMode >> strPin >> rtClock;
        const WorkingMode& mode = FindWorkingMode(static_cast<EWorkingMode>(nMode));
        CVideoTimeline video(mode);
        CAudioTimeline audio(mode, strPin == "live");
        CTimeline& timeline = strPin == "video" ? static_cast<CTimeline&>(video) : audio;
        AvTimes times;
        while (std::getline(line, strItem, ';')) {
            std::istringstream item(strItem);
            const auto nEquals = strItem.find('=');
            TimedFrame frame;
            item >> frame.llTimestamp;
            if (nEquals != std::string::npos) {
                EXPECT_EQ(Place(timeline, times, frame, rtClock), strItem.substr(nEquals + 1));
            } else {
                item.clear();
                item.seekg(0);
                Change(item, times);
            }
        }
    }
    AvTimes times;
    times.audio.rtLastStart = 999999;
    EXPECT_TRUE(CVideoTimeline::IsAudioBehind(times, 1000000));
    EXPECT_FALSE(CVideoTimeline::IsAudioBehind(times, 999999));
}

TEST(Timelines, ElementaryStreamHasTheTimesOfItsHeaders) {
    using namespace std::string_literals;
    const std::string object = "\0\0\1\0"s, end = "\0\0\1\xB1"s, noise = "\0\0\1\xB5\xAF"s;
    const std::string vop15 = "\0\0\1\xB6\x17\xFF"s, vop18 = "\0\0\1\xB6\x59\x7F"s;
    const std::string layer =
        "\0\0\1\x20\x00\x84\x40\x07\xA8\x58\x20\xF0\xBF"s;  // 30 ticks a second, no fixed rate
    const WorkingMode& mode = FindWorkingMode(EWorkingMode::Mpeg4VideoEs);
    CVideoTimeline classic(mode);
    CRobustTimeline robust(EPin::Video, mode, false);
    AvTimes times, robustTimes;
    // 9 ticks are 1000; by the simple rules 1000 ticks are 1001, so that tick 15 of 30 is at 5005000.
    for (const auto& [bytes, pszPlaced, pszRobust] : {std::tuple(vop15, ".", "."),
                                                      {layer, ".", "."},
                                                      {object + layer + vop15, "5004000 DS", "0 DS"},
                                                      {vop18, "6005000 S", "1000000 S"},
                                                      {noise, "6005000 S", "1000000 S"},
                                                      {end + vop15, "6005000 S", "1000000 S"},
                                                      {layer + vop15 + vop18, "5004000 S", "0 S"}}) {
        const std::span data(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
        const TimedFrame frame{.llTimestamp = 9, .bytes = data};
        EXPECT_EQ(Place(classic, times, frame, 0), pszPlaced);
        EXPECT_EQ(Place(robust, robustTimes, frame, 0), pszRobust);
    }
}

// Under the sanitizer of undefined behaviour: whatever a stream claims, nothing overflows.
TEST(Timelines, TakeEveryNumber) {
    constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max(), kMin = -kMax - 1;
    for (int nMode = 0; nMode <= 5; ++nMode) {
        for (const REFERENCE_TIME rtOther : {kMax, kMin}) {
            const WorkingMode& mode = FindWorkingMode(static_cast<EWorkingMode>(nMode));
            CVideoTimeline video(mode);
            CAudioTimeline audio(mode, /*bPush=*/true);
            CRobustTimeline robust(EPin::Video, mode, /*bPush=*/true);
            for (CTimeline* pTimeline : std::initializer_list<CTimeline*>{&video, &audio, &robust}) {
                AvTimes times;
                times.audio.rtTimeBase = times.video.rtLastStart = times.audio.rtLastStart = rtOther;
                for (const auto ll :
                     std::initializer_list<std::int64_t>{kMax, kMin, -1, 0, kMax / 1000 + 1, kMax, 1, kMin}) {
                    Place(*pTimeline, times, TimedFrame{.llTimestamp = ll}, rtOther);
                }
            }
        }
    }
    EXPECT_EQ(CTimeline::ToTime(kMax), kMax);
    EXPECT_EQ(CTimeline::ToTime(kMin), kMin);
    EXPECT_EQ(CTimeline::ToTime(9223372036854776), 1024819115206086222);
}

}  // namespace
}  // namespace kest
