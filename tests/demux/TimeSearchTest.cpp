// The search by time, over a stream that is computed where it is read, however long, and over files.
#include "demux/TimeSearch.h"

#include <gtest/gtest.h>

#include <random>

#include "support/CoreRunner.h"
#include "support/TestData.h"

namespace kest {
namespace {

/// A program stream of cells of 40960 bytes: a video packet with one picture, in coded order I B B P B B with the
/// anchors two pictures late, and an audio packet. 25 pictures a second.
struct Video {
    std::int64_t nCells = 250000;  // 10 GB
    int nGroup = 15;               // pictures from one I picture to the next
    int nHeaderEvery =
        1;  // I pictures from one with a group_of_pictures_header to the next; 0: the first only
    std::int64_t llFirst = 90000;  // PTS of the first audio packet; the video begins a picture later
    std::int64_t nJumpCell = -1;   // where the timestamps begin anew
    bool bDts = true;
    bool bWithTimestamps = true;
};

constexpr std::int64_t kCell = 40960, kTicks = 3600, kRange = std::int64_t{1} << 33;

class CVideoReader : public CMemoryReader {
public:
    explicit CVideoReader(const Video& video) : CMemoryReader({}), m_video(video) {}

    std::int64_t Length() const { return m_video.nCells * kCell; }
    bool IsIntra(std::int64_t n) const { return n % m_video.nGroup == 0; }
    /// Of the picture in a cell, from time 0 on.
    std::int64_t TimeOf(std::int64_t n) const { return (n % 3 == 0 ? n + 3 : n) * kTicks + kTicks; }
    std::int64_t PtsOf(std::int64_t n) const { return Wrap(n, TimeOf(n)); }
    HRESULT STDMETHODCALLTYPE SyncRead(LONGLONG llPosition, LONG lLength, BYTE* pBuffer) override {
        ++nReads;
        llMost = std::max<std::int64_t>(llMost, lLength);
        if (nReads == nFailAt || llPosition + lLength > Length()) return E_FAIL;
        for (LONGLONG ll = llPosition; ll < llPosition + lLength;) {
            const ByteVector cell = MakeCell(ll / kCell);
            const LONGLONG nCount = std::min(kCell - ll % kCell, llPosition + lLength - ll);
            std::copy_n(cell.begin() + ll % kCell, nCount, pBuffer + (ll - llPosition));
            ll += nCount;
        }
        return S_OK;
    }

    int nReads = 0, nFailAt = -1;
    std::int64_t llMost = 0;

private:
    std::int64_t Wrap(std::int64_t n, std::int64_t llTime) const {
        if (m_video.nJumpCell >= 0 && n >= m_video.nJumpCell) llTime -= m_video.nJumpCell * kTicks + 900000;
        return (llTime + m_video.llFirst) & (kRange - 1);
    }
    ByteVector MakeCell(std::int64_t n) const {
        ByteVector picture;
        const bool bHeader =
            n == 0 || (m_video.nHeaderEvery > 0 && n % (m_video.nGroup * m_video.nHeaderEvery) == 0);
        if (bHeader) picture = {0, 0, 1, 0xB8, 0, 8, 0, 0x40};
        const int nType = IsIntra(n) ? 1 : n % 3 == 0 ? 2 : 3;
        for (const int nByte : {0, 0, 1, 0, 0, nType << 3, 0, 0, 0, 0, 1, 1})
            picture.push_back(static_cast<std::uint8_t>(nByte));
        picture.resize(40000, static_cast<std::uint8_t>(n | 1));
        CProgramStreamBuilder b;
        const bool bTimed = m_video.bWithTimestamps || n == 0;
        const std::optional<std::int64_t> llPts = bTimed ? std::optional(PtsOf(n)) : std::nullopt;
        std::optional<std::int64_t> llDts;
        if (bTimed && m_video.bDts) llDts = Wrap(n, n * kTicks + kTicks);
        b.Pes(0xE0, picture, llPts, llDts);
        b.Pes(0xC0, ByteVector(100, 0x55),
              m_video.bWithTimestamps ? std::optional(Wrap(n, n * kTicks)) : std::nullopt);
        return b.Section(0xBE, static_cast<std::size_t>(kCell) - b.Size() - 6).Get();
    }

    const Video m_video;
};

/// The last I picture at or before a time; without one the beginning.
AccessPoint Expected(const CVideoReader& reader, const Video& video, std::int64_t llTime, int nEvery) {
    const std::int64_t nStep = std::int64_t{video.nGroup} * nEvery;
    std::int64_t n = std::min(llTime / kTicks, video.nCells - 1) / nStep * nStep;
    while (n >= 0 && reader.TimeOf(n) > llTime) n -= nStep;
    return n < 0 ? AccessPoint{0, video.llFirst} : AccessPoint{n * kCell, reader.PtsOf(n)};
}

TEST(TimeSearch, FindsAccessPointsOfTenGigabytesInFewReads) {
    const struct {
        Video video;
        int nEvery;  // I pictures from one access point to the next
    } cases[] = {
        {{}, 1},
        {{.bDts = false}, 1},
        {{.llFirst = kRange - 90000 * 3600}, 1},  // wraps after an hour
        {{.nGroup = 300}, 1},                     // 12 MB
        {{.nGroup = 15, .nHeaderEvery = 2}, 2},
        {{.nGroup = 15, .nHeaderEvery = 0}, 1},
    };
    std::mt19937 random(1);
    for (const auto& row : cases) {
        CVideoReader reader(row.video);
        CTimeSearch search(&reader, reader.Length(), EVideoCoding::Mpeg12, 0);
        const std::int64_t llLast = (row.video.nCells - 1) / 3 * 3;
        const TimeExtent extent{row.video.llFirst, reader.TimeOf(llLast)};
        EXPECT_EQ(search.Measure(), extent);
        const int nMeasured = reader.nReads;
        for (int i = 0; i < 12; ++i) {
            std::int64_t llTime = static_cast<std::int64_t>(random()) % extent.llDuration;
            if (i < 4) llTime = i * (extent.llDuration / 3);
            if (i >= 8)
                llTime = reader.TimeOf(llTime / kTicks / 300 * 300) - i % 2;  // of an I picture, and before
            reader.nReads = nMeasured;
            EXPECT_EQ(search.FindAccessPoint(llTime), Expected(reader, row.video, llTime, row.nEvery))
                << llTime;
            EXPECT_LT(reader.nReads, 60);
        }
        EXPECT_LE(reader.llMost, 5 << 20);
    }
}

/// PTS and position of the I pictures of a file, from the frames that the demuxer makes of it.
std::vector<AccessPoint> IntraFrames(const ByteVector& bytes, bool bMpeg4) {
    std::vector<AccessPoint> points;
    ByteVector longer = bytes;
    longer.resize(bytes.size() + 100000);  // the parser leaves the end of a source unread
    for (const Frame& frame : CParserRig(longer).Run().video) {
        const ByteVector code = {0, 0, 1, static_cast<std::uint8_t>(bMpeg4 ? 0xB6 : 0)};
        const auto found = std::search(frame.payload.begin(), frame.payload.end(), code.begin(), code.end());
        if (found == frame.payload.end()) continue;
        if (bMpeg4 ? found[4] < 0x40 : (found[5] & 0x38) == 8)
            points.push_back({frame.info.llFilePos, frame.info.llPts});
    }
    return points;
}

TEST(TimeSearch, AgreesWithTheFramesOfFiles) {
    for (const std::string strName :
         {"ps_mpeg1.mpg", "ps_mpeg2.mpg", "ps_mpeg4.mpg", "ps_mpeg2_packs.mpg", "ps_mpeg2_early_audio.mpg"}) {
        SCOPED_TRACE(strName);
        const ByteVector bytes = ReadTestData(strName);
        const bool bMpeg4 = strName == "ps_mpeg4.mpg";
        CMemoryReader reader(bytes);
        CTimeSearch search(&reader, std::ssize(bytes), bMpeg4 ? EVideoCoding::Mpeg4 : EVideoCoding::Mpeg12,
                           0);
        const auto extent = search.Measure();
        ASSERT_TRUE(extent);
        EXPECT_NEAR(static_cast<double>(extent->llDuration), 3 * 90000, 20000);
        const auto points = IntraFrames(bytes, bMpeg4);
        ASSERT_GE(points.size(), 5u);
        AccessPoint expected{0, extent->llFirst};
        for (const AccessPoint& point : points) {
            const std::int64_t llTime = extent->TimeOf(point.llTimestamp);

            if (llTime > 0) {
                EXPECT_EQ(search.FindAccessPoint(llTime - 1), expected) << llTime;
            }
            expected = point;
            EXPECT_EQ(search.FindAccessPoint(llTime), expected) << llTime;
        }
    }
}

// The first picture that begins in a packet with timestamps or behind it has them, wherever its header lies.
TEST(TimeSearch, KnowsWhichPictureATimestampBelongsTo) {
    const auto I = [](int nType) { return ByteVector{0, 0, 1, 0, 0, static_cast<std::uint8_t>(nType << 3)}; };
    CProgramStreamBuilder b;
    b.Fill(7, 0).Pes(0xE0, {9, 9, 9}, 100);  // no picture begins here
    ByteVector two = I(2), header = {0, 0, 1, 0xB3};
    for (const ByteVector& more : {I(1), header}) two.insert(two.end(), more.begin(), more.end());
    const auto llTwo = std::ssize(b.Get());
    b.Pes(0xE0, two, 200).Pes(0xC0, {0, 0, 1, 0xE0, 0, 9, 0x80, 0x80, 5}, 250);  // the second is an I picture
    const auto llSplit = std::ssize(b.Get());
    b.Pes(0xE0, {7, 7, 0, 0}, 300).Pes(0xC0, {}).Pes(0xE1, I(1), 1).Pes(0xE0, {1, 0, 0, 8}).Pes(0xE0, I(1));
    const auto llHeader = std::ssize(b.Get());
    header.insert(header.end(), two.begin() + 6, two.begin() + 12);
    b.Pes(0xE0, header, 400, 390).Pes(0xE0, {3, 0, 0, 1, 0xB8}, 500);
    const auto llLate = std::ssize(b.Get());  // the header was before the packet
    b.Pes(0xE0, {3, 4}, 600).Pes(0xE0, I(1)).Pes(0xE0, I(2)).Pes(0xE0, {0, 0, 1, 0, 0}, 700);
    CPsStretch stretch;
    stretch.Parse(b.Get(), 1000);
    EXPECT_EQ(stretch.GetVideoId(), 0xE0);
    EXPECT_EQ(stretch.GetAudio().size(), 2u);
    EXPECT_EQ(stretch.FindPictures(EVideoCoding::Mpeg12),
              (std::vector<TimedPicture>{{1000 + llTwo, 200, false, false},
                                         {1000 + llSplit, 300, true, false},
                                         {1000 + llHeader, 400, true, true},
                                         {1000 + llLate, 600, true, false}}));
}

// Streams that jump back in time, end in mid-air, cannot be read or have no times: every search ends.
TEST(TimeSearch, EndsInStreamsThatMakeNoSense) {
    const Video jump{.nCells = 5000, .nJumpCell = 3000};
    CVideoReader reader(jump);
    CTimeSearch search(&reader, reader.Length(), EVideoCoding::Mpeg12, 0);
    const auto extent = search.Measure();
    ASSERT_TRUE(extent);
    EXPECT_NEAR(static_cast<double>(extent->llDuration), 3000 * kTicks, 10 * kTicks) << "up to the jump";
    EXPECT_EQ(search.FindAccessPoint(2500 * kTicks), Expected(reader, jump, 2500 * kTicks, 1));

    for (int nFailAt = 1; nFailAt < 12; ++nFailAt) {
        CVideoReader failing({.nCells = 500});
        failing.nFailAt = nFailAt;
        CTimeSearch fails(&failing, failing.Length(), EVideoCoding::Mpeg12, 0);
        EXPECT_FALSE(fails.Measure() && fails.FindAccessPoint(4000000) && failing.nReads >= nFailAt)
            << nFailAt;
    }
    CVideoReader untimed({.nCells = 500, .bWithTimestamps = false});
    CTimeSearch noTimes(&untimed, untimed.Length(), EVideoCoding::Mpeg12, 0);
    EXPECT_FALSE(noTimes.Measure());
    EXPECT_FALSE(noTimes.FindAccessPoint(0));

    CVideoReader noVideo({.nCells = 500});
    CTimeSearch audioAlone(&noVideo, noVideo.Length(), EVideoCoding::Mpeg12, 0xE5);
    EXPECT_TRUE(audioAlone.Measure());
    EXPECT_EQ(audioAlone.FindAccessPoint(100 * kTicks + 1)->llTimestamp, 90000 + 100 * kTicks);

    std::mt19937 random(7);
    ByteVector bytes = ReadTestData("ps_mpeg2_packs.mpg");
    for (int nRound = 0; nRound < 30; ++nRound) {
        for (int i = 0; i < 2000; ++i)
            bytes[random() % bytes.size()] = static_cast<std::uint8_t>(random() % 3);
        CMemoryReader damaged(bytes);
        CTimeSearch over(&damaged, std::ssize(bytes), EVideoCoding::Mpeg12, 0);
        over.Measure();
        for (int i = 0; i < 5; ++i) {
            const auto point = over.FindAccessPoint(static_cast<std::int64_t>(random() % 300000));
            EXPECT_LT(point ? point->llPosition : 0, std::ssize(bytes));
        }
    }
}

}  // namespace
}  // namespace kest
