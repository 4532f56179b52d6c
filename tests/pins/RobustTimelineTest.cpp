// The rules of time with RobustTiming, as numbers: 9 ticks are 1000; a picture has 3600 ticks, an audio frame 2160.
#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <memory>
#include <random>
#include <sstream>

#include "pins/RobustTimeline.h"

namespace kest {
namespace {

// A line is a case: mode, maybe "live", then what comes in order. A frame is V or A, its DTS and maybe + the distance
// of its PTS, "=" and its start with D (discontinuity) and a (announced); or "w": it waits. V= is the frame that
// waits, mapped again, V!= is mapped when it has waited long enough. VE ends a stream, S is a seek, C sets the clock.
constexpr const char* kCases = R"(
4: V900000+3600=w; A898200=0 D a; V=600000 D a; A900360=240000; V903600+14400=2200000
3: V900000+3600=w; A910800=800000 D; V=0 D
1: A900000=w; A=w; A!=0 D; A902160=240000; V904500+900=600000 D; V819000=-9000000
3: V900000=w; A9900000=0 D; V=w; V!=0 D; V903600=400000; A9902160=240000
3: V8589930992=w; A8589932432=160000 D; V=0 D; V0=400000; A0=400000; A2160=640000; V3600=800000
5: V2147480048=w; A2147481488=160000 D; V=0 D; V-2147483648=400000; A-2147483648=400000
4: V900000=w; A900000=0 D a; V=0 D a; V903600=400000; A902160=240000; A1804320=w; V907200=800000; V1810800=1200000 D; A=480000 D; A1806480=720000; V1814400=1600000; V918000=w; A1808640=960000; A910800=1200000 D; V=2000000 D; V921600=2400000
3: V900000=w; A900000=0 D; V=0 D; V903600=400000; V1807200=w; V!=800000 D; A902160=240000; A904320=480000; V1810800=1200000; A1806480=720000 D
3: V900000=w; A900000=0 D; V=0 D; V903600=400000; V1807200=w; A902160=240000; AE; V=800000 D; A1806480=720000 D
3: V900000=w; A900000=0 D; V=0 D; V903600=400000; V1101600=w; A990000=10000000; V=w; A1080000=20000000; V=22400000
3: V900000=w; A900000=0 D; V=0 D; V977400=8600000; V1130400=25600000; V1350000=50000000; A1352160=50240000
3: V900000=w; A900000=0 D; V=0 D; V903600=400000; A902160=240000; V5000000=w; V!=800000 D; V9000000=1133666 D; A904320=480000; V914400=1600000 D; V918000=2000000
3: V900000=w; A900000=0 D; V=0 D; A902160=240000; A1712160=w; A!=480000 D; A1714320=720000; V977400=8600000; V1130400=25600000; V1350000=50000000; V1620000=80000000; A1716480=960000; V1632000=81333333; A1718640=90960000 D
4: V900000=w; A900000=0 D a; V=0 D a; V903600=400000; S; V450000=w; A448200=0 D a; V=200000 D a; A450360=240000
2 live: C30000000; V900000=w; A900900=30100000 D a; V=30000000 D a; V903600=30400000; C60000000; V1800000=w; V!=60000000 D; A1800900=60100000 D
)";

/// Two timelines on one line of time, and the frames that wait.
class CPair {
public:
    CPair(EWorkingMode mode, bool bPush)
        : m_apTimelines{std::make_unique<CRobustTimeline>(EPin::Video, FindWorkingMode(mode), bPush),
                        std::make_unique<CRobustTimeline>(EPin::Audio, FindWorkingMode(mode), bPush)} {}

    /// Maps a frame once. @return its place, or nothing: it waits.
    std::optional<Placement> Map(EPin pin, TimedFrame& frame) {
        CTimeline& timeline = *m_apTimelines[static_cast<std::size_t>(pin)];
        for (;;) {
            Placement place = timeline.Map(frame, times);
            if (place.request == ERequest::ReadClock) {
                frame.rtClock = rtClock;
            } else if (place.request == ERequest::AwaitTimeBase) {
                return ++frame.nBaseWaits, std::nullopt;
            } else {
                EXPECT_EQ(place.request, ERequest::None);
                timeline.Finish(frame, times, place);
                return place;
            }
        }
    }

    AvTimes times;
    REFERENCE_TIME rtClock = 0;

private:
    const std::array<std::unique_ptr<CTimeline>, 2> m_apTimelines;
};

TEST(RobustTimeline, PlacesFramesByItsRules) {
    std::istringstream cases(kCases);
    for (std::string strCase; std::getline(cases, strCase);) {
        if (strCase.empty()) continue;
        SCOPED_TRACE(strCase);
        std::istringstream line(strCase);
        std::string strHead, strItem;
        std::getline(line, strHead, ':');
        CPair pair(static_cast<EWorkingMode>(strHead[0] - '0'), strHead.find("live") != std::string::npos);
        std::map<EPin, TimedFrame> frames;
        std::uint32_t nSegment = 0;
        while (std::getline(line, strItem, ';')) {
            std::istringstream item(strItem);
            char cKind = 0, cNext = 0;
            item >> cKind;
            const EPin pin = cKind == 'V' ? EPin::Video : EPin::Audio;
            if (cKind == 'S') ++nSegment;
            if (cKind == 'C') item >> pair.rtClock;
            if (cKind == 'S' || cKind == 'C') continue;
            cNext = static_cast<char>(item.peek());
            if (cNext == 'E') {
                pair.times.line.Of(pin).bEnded = true;
                continue;
            }
            TimedFrame& frame = frames[pin];
            if (cNext == '!') frame.nBaseWaits = 31;
            if (cNext != '!' && cNext != '=') {
                frame = {.nSegment = nSegment};
                std::int64_t llLead = 0;
                item >> frame.llDecoding;
                if (item.peek() == '+') item >> llLead;
                frame.llTimestamp = frame.llDecoding + llLead;
            }
            const auto place = pair.Map(pin, frame);
            std::string text = place ? std::to_string(place->rtStart) : "w";
            if (place && place->bDiscontinuity) text += " D";
            if (place && place->bAnnounce) text += " a";
            EXPECT_EQ(text, strItem.substr(strItem.find('=') + 1)) << strItem;
        }
    }
}

constexpr std::int64_t kSecond = 90000, kNever = 1LL << 40;

/// What happens to the timestamps of two streams of 60 s.
struct Disturbance {
    const char* pszName;
    std::int64_t llBase, llJump, llPause;  // first timestamp; jump at 20 s, and back at 40 s; pause at 30 s

    static int FindPart(std::int64_t llDts) {
        return (llDts >= 20 * kSecond) + (llDts >= 30 * kSecond) + (llDts >= 40 * kSecond);
    }
    std::int64_t GetShift(int nPart) const {
        return llBase + (nPart == 1 || nPart == 2 ? llJump : 0) + (nPart >= 2 ? llPause : 0);
    }
};

/// A stream of pictures in the order I B B P or of audio frames, timed by the undisturbed timestamps.
struct MadeStream {
    EPin pin;
    std::int64_t llLag;  // in delivery, ticks
    std::int64_t llFrame = pin == EPin::Video ? 3600 : 2160;
    std::int64_t llDts = 0;
    std::optional<TimedFrame> waiting{};
    REFERENCE_TIME rtLast = -10000000;

    std::int64_t GetLead() const {
        if (pin == EPin::Audio) return 0;
        return llDts / llFrame % 3 == 0 ? 3 * llFrame : llFrame;
    }
    std::int64_t DueAt() const { return llDts < 60 * kSecond ? llDts + llLag : kNever; }
};

bool IsWithinMs(REFERENCE_TIME rtA, REFERENCE_TIME rtB) { return std::abs(rtA - rtB) <= 10000; }

/// Maps the next frame of a stream. @return its start less its undisturbed time; nothing: it waits.
std::optional<REFERENCE_TIME> MapNext(MadeStream& stream, const Disturbance& disturbance, int nMode,
                                      CPair& pair) {
    if (!stream.waiting) {
        const std::int64_t llShift = disturbance.GetShift(Disturbance::FindPart(stream.llDts));
        auto Code = [&](std::int64_t ll) {
            const std::int64_t llCoded = (ll + llShift) & 0x1FFFFFFFF;
            return nMode == 5 ? static_cast<std::int32_t>(llCoded) : llCoded;
        };
        stream.waiting = TimedFrame{.llTimestamp = Code(stream.llDts + stream.GetLead()),
                                    .llDecoding = Code(stream.llDts)};
    }
    const auto place = pair.Map(stream.pin, *stream.waiting);
    if (!place) return std::nullopt;
    stream.waiting.reset();
    const REFERENCE_TIME rtDecoding = place->rtStart - CTimeline::ToTime(stream.GetLead());
    EXPECT_GT(rtDecoding, stream.rtLast) << stream.llDts;
    stream.rtLast = rtDecoding;
    const REFERENCE_TIME rtOffset = rtDecoding - CTimeline::ToTime(stream.llDts);
    stream.llDts += stream.llFrame;
    return rtOffset;
}

// Fails where each stream closes a jump for itself, and where a wrap or a reordered picture is taken for one.
TEST(RobustTimeline, KeepsOffsetsOfMadeStreams) {
    const Disturbance disturbances[] = {{"wrap of 33 bits", (1LL << 33) - 25 * kSecond, 0, 0},
                                        {"sign of 32 bits", (1LL << 31) - 25 * kSecond, 0, 0},
                                        {"forward", 0, 10 * kSecond, 0},
                                        {"backward", 1000 * kSecond, -10 * kSecond, 0},
                                        {"pause", 0, 0, 5 * kSecond},
                                        {"short pause", 0, 0, kSecond / 2},
                                        {"all", (1LL << 33) - 21 * kSecond, 3600 * kSecond, 7 * kSecond}};
    std::mt19937 random(1);
    for (const Disturbance& d : disturbances) {
        for (int nCase = 0; nCase < 20; ++nCase) {  // modes 1 to 5, the audio ahead or behind in delivery
            SCOPED_TRACE(std::string(d.pszName) + " " + std::to_string(nCase));
            const int nMode = 1 + nCase % 5;
            CPair pair(static_cast<EWorkingMode>(nMode), false);
            MadeStream aStreams[2] = {{.pin = EPin::Video, .llLag = 0},
                                      {.pin = EPin::Audio, .llLag = (nCase / 5 - 1) * kSecond / 3}};
            std::map<int, REFERENCE_TIME> offsets;  // by part of the streams
            while (std::min(aStreams[0].DueAt(), aStreams[1].DueAt()) < kNever) {
                std::size_t n = aStreams[0].DueAt() <= aStreams[1].DueAt() ? 0 : 1;
                const bool bOther = aStreams[n].waiting && aStreams[1 - n].DueAt() < kNever && random() % 2;
                if (bOther) n = 1 - n;
                const int nPart = Disturbance::FindPart(aStreams[n].llDts);
                const auto rtOffset = MapNext(aStreams[n], d, nMode, pair);
                if (!rtOffset) continue;
                const REFERENCE_TIME rtPart = offsets.try_emplace(nPart, *rtOffset).first->second;
                ASSERT_TRUE(IsWithinMs(*rtOffset, rtPart))
                    << *rtOffset - rtPart << " at " << aStreams[n].llDts;
            }
            const REFERENCE_TIME rtKept = d.llPause < kSecond ? CTimeline::ToTime(d.llPause) : 0;
            for (const int nPart : {1, 2, 3}) {  // what is closed is closed without a hole
                EXPECT_TRUE(IsWithinMs(offsets[nPart], offsets[0] + (nPart >= 2 ? rtKept : 0)))
                    << offsets[nPart];
            }
        }
    }
}

}  // namespace
}  // namespace kest
