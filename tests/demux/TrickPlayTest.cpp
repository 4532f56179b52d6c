// Trick play over sources in memory, against what the rules of each mode make of a list of all frames, which
// comes from the parser.
#include "demux/TrickPlay.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include <algorithm>

#include "demux/StartCodeSearch.h"
#include "support/CoreRunner.h"
#include "support/TestData.h"

namespace kest {

/// Position and size, with a sign for those that are not to be shown.
void PrintTo(const Frame& frame, std::ostream* pOut) {
    *pOut << frame.info.llFilePos << ':' << frame.payload.size() << (frame.info.bNoVideo ? "-" : "");
}

namespace {

/// A demuxer that keeps what is delivered; its source can end early or fail.
struct CHost final : ITrickPlayHost {
    explicit CHost(const ByteVector& b) : bytes(b), llEnd(std::ssize(b)), llReadable(llEnd) {}

    bool MayGoOn() override { return frames.size() < nMost; }
    bool Read(std::int64_t llPosition, std::span<std::uint8_t> room) override {
        EXPECT_TRUE(llPosition >= 0 && room.size() == 32768 && llPosition + 32768 <= llEnd);
        if (++nReads % nFailEvery == 0 || llPosition + 32768 > llReadable) return false;
        std::copy_n(bytes.begin() + llPosition, room.size(), room.begin());
        return true;
    }
    std::int64_t GetEnd() const override { return llEnd; }
    void Deliver(Bytes frame, const FRAME_INFO& info) override {
        frames.push_back({info, {frame.begin(), frame.end()}});
    }
    /// Takes steps until there have been enough frames, or a few steps have found nothing.
    void Play(CTrickPlay& trickPlay, int nRate) {
        for (int nPauses = 0; nPauses < 4 && frames.size() < nMost;)
            nPauses = trickPlay.Step(nRate) == CTrickPlay::EStep::Pause ? nPauses + 1 : 0;
    }
    std::vector<Frame> PlayFrom(std::int64_t llFrom, int nRate) {
        CTrickPlay trickPlay(*this, 524288);
        trickPlay.SetSettings({.bMpegKeyFrames = bMpegKeyFrames});
        frames.clear();
        trickPlay.SeekTo(llFrom);
        Play(trickPlay, nRate);
        return frames;
    }

    const ByteVector& bytes;
    std::int64_t llEnd, llReadable;
    std::size_t nMost = SIZE_MAX;
    int nFailEvery = INT_MAX, nReads = 0;
    bool bMpegKeyFrames = false;
    std::vector<Frame> frames;
};

/// The rules of the modes, over all frames that have an end.
class CModel {
public:
    /// @param bPictures  key frames are those whose first picture is an I picture.
    explicit CModel(ByteVector bytes, bool bPictures = false) {
        bytes.resize(bytes.size() + 100000);  // the parser leaves the end of a source unread
        m_all = CParserRig(bytes).Run().video;
        for (const Frame& frame : m_all) {
            const auto nFound = FindStartCode(frame.payload, bPictures ? 0x100 : 0x1B6);
            const auto* pType = nFound ? &frame.payload[*nFound + 4] : nullptr;
            m_abKey.push_back(pType && (bPictures ? (pType[1] & 0x38) == 8 : *pType < 0x40));
        }
    }
    std::size_t Size() const { return m_all.size(); }
    std::int64_t PositionOf(std::size_t n) const { return m_all[n].info.llFilePos; }

    std::vector<Frame> Play(std::int64_t llFrom, int nRate, std::size_t nMost = SIZE_MAX) {
        m_out.clear();
        m_nMost = nMost;
        const int nFirst = Count([&](const Frame& frame) { return frame.info.llFilePos < llFrom; });
        const int nLast = Count([&](const Frame& frame) { return frame.info.llFilePos + 4 <= llFrom; }) - 1;
        if (nRate >= 10) FastForward(nFirst, nRate / 10);
        if (nRate <= -10) FastReverse(nLast, -nRate / 10);
        if (nRate > 0 && nRate < 10) SlowForward(nFirst);
        if (nRate < 0 && nRate > -10) SlowReverse(nLast);
        return m_out;
    }

private:
    template <class Is>
    int Count(Is is) const {
        return static_cast<int>(std::count_if(m_all.begin(), m_all.end(), is));
    }
    bool IsKey(int n) const { return m_abKey[static_cast<std::size_t>(n)]; }
    void Put(int n, bool bNoVideo = false) {
        if (m_out.size() >= m_nMost) return;
        Frame frame = m_all[static_cast<std::size_t>(n)];
        frame.info = {.llPts = 0,
                      .llDts = 0,
                      .llFilePos = frame.info.llFilePos,
                      .abUnused = {},
                      .bDiscontinuity = 0,
                      .bSegmentMarker = 1,
                      .bNoVideo = bNoVideo,
                      .bEndOfStream = 0};
        m_out.push_back(frame);
    }
    /// The key frame among n and those before it, 150 in all; -1: none.
    int KeyBefore(int n, int nPassed) const {
        for (; n >= 0 && nPassed < 150 && !IsKey(n); --n) ++nPassed;
        return nPassed < 150 ? n : -1;
    }
    void FastForward(int n, int nEvery) {
        for (int nKeys = 0; n < std::ssize(m_all); ++n)
            if (IsKey(n) && ++nKeys % nEvery == 0) Put(n);
    }
    void FastReverse(int n, int nEvery) {
        while (n >= 0) {  // a step each
            for (int i = 0, nKeys = 0; i < 50 && n >= 0 && nKeys < nEvery; ++i, --n)
                if (IsKey(n) && ++nKeys == nEvery) Put(n);
        }
    }
    void SlowForward(int n) {
        if (n == std::ssize(m_all)) return;
        if (!IsKey(n)) {
            const int nKey = KeyBefore(n - 1, 0);
            for (int i = nKey; i >= 0 && i < n; ++i) Put(i, true);
            if (nKey < 0) n = std::max(n - 150, 0);
        }
        for (; n < std::ssize(m_all); ++n) Put(n);
    }
    void SlowReverse(int n) {
        while (n >= 0 && m_out.size() < m_nMost) {
            const int nKey = KeyBefore(n, 0);
            for (int i = nKey; i >= 0 && i <= n; ++i) Put(i, i < n);
            n -= nKey < 0 ? 150 : 1;
        }
    }

    std::vector<Frame> m_all, m_out;
    std::vector<bool> m_abKey;
    std::size_t m_nMost = SIZE_MAX;
};

/// A program stream whose video is in groups of so many frames, beginning with the second of a group. Frames
/// have one or two packets, among audio; now and then one is larger than what is read at a time.
ByteVector Groups(int nFrames, int nGroup) {
    CProgramStreamBuilder b;
    b.Pack().Map({{0x10, 0xE0}, {0x03, 0xC0}});
    for (int i = 1; i <= nFrames; ++i) {
        const auto nType = static_cast<std::uint8_t>(i % nGroup == 0 ? 0 : i % 3 ? 0x80 : 0x40);
        ByteVector frame(static_cast<std::size_t>(20 + i * 37 % 300), static_cast<std::uint8_t>(i));
        const std::uint8_t abVop[] = {0, 0, 1, 0xB6, nType};
        std::copy_n(abVop, 5, frame.begin() + 5);
        b.Pes(0xE0, frame, 3003 * i);
        if (i % 4 == 0) b.Pes(0xE0, ByteVector(static_cast<std::size_t>(i % 100 == 0 ? 40000 : i % 50), 7));
        if (i % 5 == 0) b.Pes(0xC0, ByteVector(50, 0), 3003 * i);
    }
    return b.Get();
}

const std::vector<int> kRates = {5, 15, 20, 39, 100, -5, -10, -25, -60};

TEST(TrickPlay, DeliversWhatTheRulesGiveFromStartMiddleAndEnd) {
    std::vector<ByteVector> streams = {ReadTestData("ps_mpeg4.mpg")};
    for (const int nGroup : {12, 50, 60, 200}) streams.push_back(Groups(450, nGroup));
    for (const char* pszName : {"ps_mpeg2_packs.mpg", "ps_mpeg4.mpg"})
        streams.push_back(ReadTestData(pszName));  // with bMpegKeyFrames
    for (std::size_t i = 0; i < streams.size(); ++i) {
        CHost host(streams[i]);
        host.bMpegKeyFrames = i >= 5;
        CModel model(streams[i], i == 5);
        const std::int64_t llMiddle = model.PositionOf(model.Size() / 2);
        for (const std::int64_t llFrom : {std::int64_t{0}, llMiddle, llMiddle + 1, host.llEnd, INT64_MAX}) {
            for (const int nRate : kRates) {
                EXPECT_EQ(host.PlayFrom(llFrom, nRate), model.Play(llFrom, nRate))
                    << "stream " << i << " from " << llFrom << " at " << nRate;
            }
        }
    }
}

// With KEST_DAMAGE set, at every byte and at all rates.
TEST(TrickPlay, BeginsAtAnyPosition) {
    const bool bAll = std::getenv("KEST_DAMAGE") != nullptr;
    const std::vector<int> rates = bAll ? kRates : std::vector{5, 15, -5, -10};
    const ByteVector bytes = Groups(450, 12);
    CModel model(bytes);
    CHost host(bytes);
    host.nMost = 3;
    std::size_t nNext = 0;
    for (std::int64_t ll = 0; ll < std::min<std::int64_t>(host.llEnd, 100000);) {
        for (const int nRate : rates)
            ASSERT_EQ(host.PlayFrom(ll, nRate), model.Play(ll, nRate, 3)) << "from " << ll << " at " << nRate;
        while (nNext < model.Size() && ll > model.PositionOf(nNext) + 10) ++nNext;
        const bool bNear = nNext % 32 == 0 || (ll + 8) % 32768 < 16;  // packets, blocks
        ll += bAll || bNear ? 1 : 131;
    }
}

TEST(TrickPlay, TriesAgainWhatCannotBeRead) {
    const ByteVector bytes = ReadTestData("ps_mpeg4.mpg");
    CHost host(bytes);
    for (const int nRate : {5, 15}) {
        host.nFailEvery = 11;
        const auto frames = host.PlayFrom(40000, nRate);
        host.nFailEvery = INT_MAX;
        EXPECT_EQ(frames, host.PlayFrom(40000, nRate)) << nRate;
    }
    const auto all = host.PlayFrom(0, 5);
    CTrickPlay trickPlay(host, 524288);
    trickPlay.SeekTo(0);
    host.frames.clear();
    for (const std::int64_t llReadable :
         {std::int64_t{0}, std::int64_t{200000}, std::int64_t{400001}, host.llEnd}) {
        host.llReadable = llReadable;
        host.Play(trickPlay, 5);
        EXPECT_GE(trickPlay.GetPosition(), llReadable - 65536);
    }
    EXPECT_EQ(host.frames, all);
    host.llReadable = 0;
    for (const int nRate : kRates) EXPECT_TRUE(host.PlayFrom(300000, nRate).empty());
}

TEST(TrickPlay, TakesDamagedAndShortStreamsAsTheyAre) {
    auto Positions = [](const ByteVector& bytes, int nRate) {
        CHost host(bytes);
        std::vector<std::array<std::int64_t, 3>> frames;  // position, bytes, bNoVideo
        for (const Frame& frame : host.PlayFrom(nRate < 0 ? host.llEnd : 0, nRate))
            frames.push_back({frame.info.llFilePos, std::ssize(frame.payload), frame.info.bNoVideo});
        return frames;
    };
    using List = std::vector<std::array<std::int64_t, 3>>;
    CProgramStreamBuilder b;
    b.Pes(0xE0, Stream("v5:3x1"));                                    // in a packet without a PTS: counts
    b.Bytes({0, 0, 1, 0xE0, 0, 0, 0x80, 0x80, 5, 1, 1, 1, 1, 1, 9});  // length 0, at 26
    b.Bytes({0, 0, 1, 0xE0, 0, 7, 0x80, 0x00, 5, 1, 1, 1, 1, 1, 9});  // shorter than its header
    b.Pes(0xE0, Stream("00 00 01 B6 00"), 6);                         // at 56
    b.Pes(0xE0, ByteVector(30000, 2)).Pes(0xE0, {}, 7).Fill(5000);
    EXPECT_EQ(Positions(b.Get(), 15), (List{{56, 30005, 0}}));
    EXPECT_EQ(Positions(b.Get(), 5), (List{{9, 3, 0}, {26, 0, 0}, {56, 30005, 0}}));
    EXPECT_EQ(Positions(b.Get(), -5), (List{{56, 30005, 0}}));
    b.Bytes({0, 0, 1, 0xE0, 0, 0, 0x80, 0x80});  // a header cut off
    EXPECT_EQ(Positions(b.Get(), -10), (List{{56, 30005, 0}}));
    for (const std::size_t n : {0, 3, 32767}) {
        ByteVector bytes = b.Get();
        bytes.resize(n);
        for (const int nRate : kRates) EXPECT_EQ(Positions(bytes, nRate), List{}) << n;
    }
}

}  // namespace
}  // namespace kest
