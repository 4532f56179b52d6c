// Real streams, whole and damaged: whatever is broken, parsing ends, and every frame before the damage comes
// out as it was. With KEST_DAMAGE set to anything, many more places are damaged.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <random>

#include "demux/StreamTypeProbe.h"
#include "support/CoreRunner.h"
#include "support/TestData.h"
#include "support/TransportStream.h"

namespace kest {
namespace {

constexpr int kKinds = 6, kCut = 0;

/// Damages up to 4096 bytes from a place on, in one of kKinds ways.
void Damage(ByteVector& bytes, std::ptrdiff_t nPlace, int nKind, std::mt19937& random) {
    const auto from = bytes.begin() + nPlace, to = from + 4096;
    switch (nKind) {
        case kCut: bytes.erase(from, bytes.end()); return;
        case 1: bytes.erase(from, to); return;
        case 2: std::fill(from, to, 0); return;
        case 3: std::generate(from, to, std::ref(random)); return;
        case 4: std::shuffle(from, to, random); return;
        default:
            for (auto i = from; i < to - 5; ++i) {  // other start codes, other lengths
                if (i[0] == 0 && i[1] == 0 && i[2] == 1)
                    i[random() % 3 ? 3 : 4] = "\xB9\xBA\xBC\xC0\xE0"[random() % 6];
            }
    }
}

void ExpectUntouchedBefore(std::ptrdiff_t nDamage, const std::vector<Frame>& whole,
                           const std::vector<Frame>& damaged) {
    constexpr std::int64_t kMargin = 2048;  // what the search for a start code needs behind the next frame's
    for (std::size_t i = 0; i + 1 < whole.size() && whole[i + 1].info.llFilePos + kMargin < nDamage; ++i) {
        ASSERT_TRUE(i < damaged.size() && damaged[i] == whole[i]) << "frame " << i;
    }
}

constexpr ParseSettings kExtended{.bAssumeMap = true, .nVideoStream = 0, .nAudioStream = 0, .bDrain = true};

/// The frames that a class of stream gives.
Frames Demux(int nClass, Bytes bytes) {
    if (nClass == 0) return {FrameUnits(bytes, 4096), {}};
    return nClass == 5 ? CMpeg1Rig(bytes).Run() : CParserRig(bytes).Run();
}

void ExpectBegins(const std::vector<Frame>& frames, const std::vector<Frame>& beginning) {
    ASSERT_GE(frames.size(), beginning.size());
    EXPECT_TRUE(std::equal(beginning.begin(), beginning.end(), frames.begin()));
}

TEST(RealStreams, AreClassifiedAndSurviveDamage) {
    const struct {
        const char* pszFile;
        int nClass;
        std::uint32_t nBitRate;
    } streams[] = {{"ps_mpeg1.mpg", 4, 409600},   {"ps_mpeg2_early_audio.mpg", 4, 409600},
                   {"ps_mpeg4.mpg", 2, 409600},   {"ps_mpeg2_packs.mpg", 4, 1800000},
                   {"vob_mpeg2_nomap.mpg", 6, 0}, {"sys_mpeg1_stereo.mpg", 5, 0},
                   {"sys_mpeg1_vcd.mpg", 5, 0},   {"ts_mpeg2.ts", 3, 0},
                   {"ts_mpeg4.ts", 1, 0},         {"es_mpeg4.m4v", 0, 0}};
    const int nPlaces = std::getenv("KEST_DAMAGE") ? 2000 : 15;
    for (const auto& stream : streams) {
        const ByteVector intact = ReadTestData(stream.pszFile);
        CMemoryReader reader(intact);
        CStreamTypeProbe probe;
        probe.SetReader(&reader);
        EXPECT_EQ(probe.Probe(), stream.nClass) << stream.pszFile;
        EXPECT_EQ(probe.GetBitRate(), stream.nBitRate) << stream.pszFile;
        const Frames whole = Demux(stream.nClass, intact);
        const bool bTransport = stream.nClass == 1 || stream.nClass == 3;
        const Frames extended = ParseWith(kExtended, intact, 32768);
        EXPECT_EQ(whole.video.size() > 30, !bTransport) << stream.pszFile;
        std::mt19937 random(20240229);
        for (int i = 0; i < nPlaces * kKinds; ++i) {
            SCOPED_TRACE(std::string(stream.pszFile) + ", damage " + std::to_string(i));
            ByteVector bytes = intact;
            const auto nPlace = static_cast<std::ptrdiff_t>(random() % (bytes.size() - 4096));
            Damage(bytes, nPlace, i % kKinds, random);
            probe.ClassifyHeader(bytes);
            const Frames damaged = Demux(stream.nClass, bytes);
            if (stream.nClass == 0 || stream.nClass == 5) {  // their frames have no positions
                const Frames before = Demux(stream.nClass, Bytes(intact).first(nPlace));
                for (const Frames* pFrames : {&whole, &damaged}) {
                    ExpectBegins(pFrames->video, before.video);
                    ExpectBegins(pFrames->audio, before.audio);
                }
                continue;
            }
            const std::ptrdiff_t nSafe =
                i % kKinds == kCut ? nPlace & ~16383 : nPlace;  // what is read in whole blocks
            ExpectUntouchedBefore(nSafe, whole.video, damaged.video);
            ExpectUntouchedBefore(nSafe, whole.audio, damaged.audio);
            if (bTransport) continue;
            const Frames drained = ParseWith(kExtended, bytes, 32768);
            ExpectUntouchedBefore(nPlace, extended.video, drained.video);
            ExpectUntouchedBefore(nPlace, extended.audio, drained.audio);
        }
    }
}

/// Damages packets of a transport stream from a place on: drops, blanks or exchanges them, or their PIDs.
void DamagePackets(ByteVector& bytes, std::ptrdiff_t nPlace, std::mt19937& random) {
    const auto from = bytes.begin() + nPlace / 188 * 188, to = from + 20 * 188;
    const unsigned nKind = random() % 4;
    if (nKind == 0) {
        bytes.erase(from, to);
        return;
    }
    for (auto packet = from; packet < to; packet += 188) {
        const auto other = from + static_cast<std::ptrdiff_t>(random() % 20) * 188;
        if (nKind == 1 && random() % 2) std::fill_n(packet, 188, 0xFF);
        if (nKind == 2) std::swap_ranges(packet, packet + 188, other);
        if (nKind == 3) std::swap_ranges(packet + 1, packet + 3, other + 1);
    }
}

TEST(RealStreams, OfTransportPacketsSurviveDamage) {
    constexpr std::ptrdiff_t kTail = 3000;
    const bool bAll = std::getenv("KEST_DAMAGE") != nullptr;
    for (const char* pszFile : {"ts_mpeg2.ts", "ts_mpeg4.ts"}) {
        const ByteVector intact = ReadTestData(pszFile);
        const auto nSize = static_cast<std::ptrdiff_t>(intact.size());
        std::mt19937 random(20240229);
        CTsRig rig, elementary;
        auto ExpectRuns = [&](const ByteVector& bytes, std::ptrdiff_t nPlace) {
            const Frames before =
                rig.Run(Bytes(intact).first(static_cast<std::size_t>(nPlace)), ETsTiming::Pes,
                        /*bEnd=*/false);
            const Frames frames = rig.Run(bytes);
            ExpectBegins(frames.video, before.video);
            ExpectBegins(frames.audio, before.audio);
            elementary.Run(bytes, ETsTiming::Elementary);
        };
        EXPECT_EQ(rig.Run(intact).video.size(), 89u);
        for (std::ptrdiff_t n = 0; n < kTail; n += bAll ? 1 : 97) {
            SCOPED_TRACE(std::string(pszFile) + ", cut by " + std::to_string(n));
            ExpectRuns({intact.begin(), intact.end() - n}, nSize - n);
        }
        for (int i = 0; i < (bAll ? 10000 : 40); ++i) {
            SCOPED_TRACE(std::string(pszFile) + ", damage " + std::to_string(i));
            ByteVector bytes = intact;
            const auto nPlace = static_cast<std::ptrdiff_t>(random() % (bytes.size() - 4096));
            i % 2 ? Damage(bytes, nPlace, 1 + i / 2 % (kKinds - 1), random)
                  : DamagePackets(bytes, nPlace, random);
            ExpectRuns(bytes, nPlace / 188 * 188);
        }
    }
}

}  // namespace
}  // namespace kest
