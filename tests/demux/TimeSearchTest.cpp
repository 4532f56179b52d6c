// The search by time, over a stream that is computed where it is read, however long, and over files.
#include "demux/TimeSearch.h"

#include <gtest/gtest.h>

#include <random>

#include "support/CoreRunner.h"
#include "support/TestData.h"

namespace kest {
namespace {

constexpr std::int64_t kCell = 40960, kTicks = 3600, kRange = std::int64_t{1} << 33;

/// A program stream of cells of 40960 bytes, 25 a second: a video packet with one picture, in coded order I B B P B B
/// with the anchors three pictures late, and an audio packet.
struct CVideoReader : CMemoryReader {
    CVideoReader() : CMemoryReader({}) {}

    std::int64_t Length() const { return nCells * kCell; }
    /// Of the picture in a cell, from time 0 on.
    std::int64_t TimeOf(std::int64_t n) const { return (n % 3 == 0 ? n + 4 : n + 1) * kTicks; }
    /// The last access point at or before a time, when each nEvery-th picture is one; else the beginning.
    AccessPoint Expect(std::int64_t llTime, std::int64_t nEvery) const {
        std::int64_t n = std::min(llTime / kTicks, nCells - 1) / nEvery * nEvery;
        while (n >= 0 && TimeOf(n) > llTime) n -= nEvery;
        return n < 0 ? AccessPoint{0, llFirst} : AccessPoint{n * kCell, Wrap(n, TimeOf(n))};
    }
    HRESULT STDMETHODCALLTYPE SyncRead(LONGLONG llPosition, LONG lLength, BYTE* pBuffer) override {
        if (++nReads == nFailAt || llPosition + lLength > Length()) return E_FAIL;
        for (LONGLONG ll = llPosition, nCount = 0; ll < llPosition + lLength; ll += nCount) {
            const ByteVector cell = MakeCell(ll / kCell);
            nCount = std::min(kCell - ll % kCell, llPosition + lLength - ll);
            std::copy_n(cell.begin() + ll % kCell, nCount, pBuffer + (ll - llPosition));
        }
        return S_OK;
    }
    std::int64_t Wrap(std::int64_t n, std::int64_t llTime) const {
        return (llTime + llFirst - (n < nJumpCell ? 0 : nJumpCell * kTicks + 900000)) & (kRange - 1);
    }
    ByteVector MakeCell(std::int64_t n) const {
        const int nType = n % nGroup == 0 ? 1 : n % 3 == 0 ? 2 : 3;
        const bool bHeader = n == 0 || (nHeaders > 0 && n % nHeaders == 0);
        ByteVector picture = {0, 0, 1, static_cast<std::uint8_t>(bHeader ? 0xB8 : 0xB2), 0, 8, 0, 0x40, 0, 0,
                              1, 0, 0};
        picture.push_back(static_cast<std::uint8_t>(nType << 3));
        picture.resize(40000, 0x55);
        std::optional<std::int64_t> llPts, llDts, llAudio;
        if (bTimed || n == 0) llPts = Wrap(n, TimeOf(n));
        if (bTimed && bDts) llDts = Wrap(n, (n + 1) * kTicks);
        if (bTimed) llAudio = Wrap(n, n * kTicks);
        CProgramStreamBuilder b;
        b.Pes(0xE0, picture, llPts, llDts).Pes(0xC0, ByteVector(100, 0x55), llAudio);
        return b.Section(0xBE, static_cast<std::size_t>(kCell) - b.Size() - 6).Get();
    }

    std::int64_t nCells = 250000;  // 10 GB
    int nGroup = 15;               // pictures from one I picture to the next
    int nHeaders = 15;  // pictures from one group_of_pictures_header to the next; 0: the first only
    std::int64_t llFirst = 90000;        // timestamp of the first audio packet
    std::int64_t nJumpCell = INT64_MAX;  // where the timestamps jump back to 10 s before the first
    bool bDts = true, bTimed = true;
    int nReads = 0, nFailAt = -1;
};

TEST(TimeSearch, FindsAccessPointsOfTenGigabytesInFewReads) {
    std::mt19937 random(1);
    for (int nCase = 0; nCase < 6; ++nCase) {
        SCOPED_TRACE(nCase);
        CVideoReader reader;
        if (nCase == 1) reader.bDts = false;
        if (nCase == 2) reader.llFirst = kRange - 90000 * 3600;  // wraps after an hour
        if (nCase == 3) reader.nGroup = reader.nHeaders = 300;   // 12 MB
        if (nCase == 4) reader.nHeaders = 30;                    // other I pictures than access points
        if (nCase == 5) reader.nHeaders = 0;                     // every I picture is one
        const int nEvery = reader.nHeaders > 0 ? reader.nHeaders : reader.nGroup;
        CTimeSearch search(&reader, reader.Length(), EVideoCoding::Mpeg12, 0);
        const std::int64_t llDuration = reader.TimeOf((reader.nCells - 1) / 3 * 3);
        EXPECT_EQ(search.Measure(), (TimeExtent{reader.llFirst, llDuration}));
        const int nMeasured = reader.nReads;
        for (int i = 0; i < 12; ++i) {
            std::int64_t llTime =
                i < 4 ? i * (llDuration / 3) : static_cast<std::int64_t>(random()) % llDuration;
            if (i >= 8)
                llTime = reader.TimeOf(llTime / kTicks / 300 * 300) - i % 2;  // of an I picture, and before
            reader.nReads = nMeasured;
            EXPECT_EQ(search.FindAccessPoint(llTime), reader.Expect(llTime, nEvery)) << llTime;
            EXPECT_LT(reader.nReads, 60);
        }
    }
}

// Against the frames that the demuxer makes of the files.
TEST(TimeSearch, AgreesWithTheFramesOfFiles) {
    for (const std::string strName :
         {"ps_mpeg1.mpg", "ps_mpeg4.mpg", "ps_mpeg2_packs.mpg", "ps_mpeg2_early_audio.mpg"}) {
        SCOPED_TRACE(strName);
        const bool bMpeg4 = strName == "ps_mpeg4.mpg";
        ByteVector bytes = ReadTestData(strName);
        CMemoryReader reader(bytes);
        CTimeSearch search(&reader, std::ssize(bytes), bMpeg4 ? EVideoCoding::Mpeg4 : EVideoCoding::Mpeg12,
                           0);
        const auto extent = search.Measure();
        ASSERT_TRUE(extent);
        AccessPoint expected{0, extent->llFirst};
        int nPoints = 0;
        for (const Frame& frame : CParserRig(bytes).Run().video) {
            const ByteVector code = {0, 0, 1, static_cast<std::uint8_t>(bMpeg4 ? 0xB6 : 0)};
            const auto found =
                std::search(frame.payload.begin(), frame.payload.end(), code.begin(), code.end());
            if (found == frame.payload.end() || (bMpeg4 ? found[4] >= 0x40 : (found[5] & 0x38) != 8))
                continue;
            const std::int64_t llTime = extent->TimeOf(frame.info.llPts);
            const AccessPoint point{frame.info.llFilePos, frame.info.llPts};
            EXPECT_EQ(search.FindAccessPoint(llTime - 1), llTime > 0 ? expected : point);
            EXPECT_EQ(search.FindAccessPoint(llTime), point);
            expected = point;
            ++nPoints;
        }
        EXPECT_GE(nPoints, 5);
    }
}

// The first picture that begins in a packet with timestamps or behind it has them, wherever its header lies.
TEST(TimeSearch, KnowsWhichPictureATimestampBelongsTo) {
    const ByteVector intra = {0, 0, 1, 0, 0, 8}, header = {0, 0, 1, 0xB3, 0, 0, 1, 0, 0, 8};
    CProgramStreamBuilder b;
    b.Fill(7, 0).Pes(0xE0, {9, 9, 9}, 100);                   // no picture begins here: position 7
    b.Pes(0xE0, {0, 0, 1, 0, 0, 16, 0, 0, 1, 0, 0, 8}, 200);  // at 24: the second is an I picture
    b.Pes(0xC0, {0, 0, 1, 0xE0, 0, 9, 0x80, 0x80, 5}, 250);   // a start code that is none
    const auto llSplit = std::ssize(b.Get());
    b.Pes(0xE0, {7, 7, 0, 0}, 300).Pes(0xC0, {}).Pes(0xE1, intra, 1).Pes(0xE0, {1, 0, 0, 8}).Pes(0xE0, intra);
    const auto llHeader = std::ssize(b.Get());
    b.Pes(0xE0, header, 400, 390).Pes(0xE0, {3, 0, 0, 1, 0xB8}, 500);
    const auto llLate = std::ssize(b.Get());  // the header was before the packet
    b.Pes(0xE0, {3, 4}, 600).Pes(0xE0, intra).Pes(0xE0, intra).Pes(0xE0, {0, 0, 1, 0, 0}, 700);
    CPsStretch stretch;
    stretch.Parse(b.Get(), 1000);
    EXPECT_EQ(stretch.FindPictures(EVideoCoding::Mpeg12),
              (std::vector<TimedPicture>{{1024, 200, false, false},
                                         {1000 + llSplit, 300, true, false},
                                         {1000 + llHeader, 400, true, true},
                                         {1000 + llLate, 600, true, false}}));
}

// Streams that jump back in time, cannot be read, have no times or no video: every search ends.
TEST(TimeSearch, EndsInStreamsThatMakeNoSense) {
    for (int nCase = 0; nCase < 14; ++nCase) {
        SCOPED_TRACE(nCase);
        CVideoReader reader;
        reader.nCells = 3000;
        if (nCase == 0) reader.nJumpCell = 1800;
        if (nCase == 1) reader.bTimed = false;
        if (nCase > 2) reader.nFailAt = nCase - 2;
        CTimeSearch search(&reader, reader.Length(), EVideoCoding::Mpeg12, nCase == 2 ? 0xE5 : 0);
        const auto extent = search.Measure();
        const auto point = search.FindAccessPoint(1700 * kTicks + 1);
        if (nCase == 0) {
            EXPECT_NEAR(static_cast<double>(extent->llDuration), 1800 * kTicks, 10 * kTicks)
                << "up to the jump";
            EXPECT_EQ(point, reader.Expect(1700 * kTicks + 1, 15));
        } else if (nCase == 2) {
            EXPECT_EQ(point->llTimestamp, 90000 + 1700 * kTicks) << "each audio packet is one";
        } else {
            EXPECT_FALSE(point);
        }
    }
}

}  // namespace
}  // namespace kest
