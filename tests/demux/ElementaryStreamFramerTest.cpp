#include "demux/ElementaryStreamFramer.h"

#include <gtest/gtest.h>

#include "support/CoreRunner.h"

namespace kest {
namespace {

std::vector<ByteVector> Payloads(const std::vector<Frame>& units) {
    std::vector<ByteVector> payloads;
    for (const Frame& unit : units) payloads.push_back(unit.payload);
    return payloads;
}

TEST(ElementaryStreamFramer, CutsInFrontOfTheStartCodeBehindAVop) {
    const std::string strHeaders = " 00 00 01 B0 01 00 00 01 B5 09", strVop = " 00 00 01 B6 ";
    const std::string strGroup = " 00 00 01 B3 00", strEnd = " 00 00 01 B7";
    const struct {
        std::string strStream;
        std::vector<std::string> units;
    } cases[] = {
        {strHeaders + strVop + "11" + strVop + "22 23" + strGroup + strVop + "33" + strGroup,
         {strHeaders + strVop + "11", strVop + "22 23", strGroup + strVop + "33"}},
        {strVop + "11" + strVop, {strVop + "11"}},               // a VOP comes first
        {"55" + strVop + "11" + strVop, {"55", strVop + "11"}},  // or what is none
        // a sequence end code is left out behind a VOP, and nowhere else
        {strVop + "11" + strEnd + strHeaders + strVop + "22" + strVop,
         {strVop + "11", strHeaders + strVop + "22"}},
        {strVop + "11" + strGroup + strEnd + strVop + "22" + strVop,
         {strVop + "11", strGroup + strEnd + strVop + "22"}},
        {strVop + "11" + strEnd + strVop + "22" + strVop, {strVop + "11", strVop + "22"}},
        // codes among zeros and inside one another
        {strVop + "00 00 00 00" + strVop + "00 00 01 00 00 01 B6 11" + strVop,
         {strVop + "00 00 00 00", strVop, "00 00 01 00 00 01 B6 11"}},
    };
    for (const auto& c : cases) {
        const ByteVector bytes = Stream(c.strStream);
        std::vector<ByteVector> expected;
        for (const std::string& strUnit : c.units) expected.push_back(Stream(strUnit));
        for (const std::size_t nPart :
             {std::size_t{1}, std::size_t{2}, std::size_t{3}, std::size_t{5}, bytes.size()}) {
            EXPECT_EQ(Payloads(FrameUnits(bytes, nPart)), expected) << c.strStream << ", " << nPart;
            EXPECT_EQ(Join(FrameUnits(bytes, nPart, /*bDrain=*/true)), bytes) << c.strStream << ", " << nPart;
        }
    }
    // a sequence end code belongs to its VOP, the last VOP to the stream
    EXPECT_EQ(Payloads(FrameUnits(Stream(strVop + "11" + strEnd + strVop + "22"), 9, true)),
              (std::vector<ByteVector>{Stream(strVop + "11" + strEnd), Stream(strVop + "22")}));
    const ByteVector large = Stream(strVop + "*600000" + strVop + "*600000");
    std::string strTimes;
    const std::vector<Frame> units = FrameUnits(large, 100000, true);
    for (const Frame& unit : units) strTimes += std::to_string(unit.info.llPts) + " ";
    EXPECT_EQ(Join(units), large);
    EXPECT_EQ(strTimes, "0 -1 0 -1 ");
}

TEST(ElementaryStreamFramer, LeavesOutWhatDoesNotFitAndCutsToTheBlock) {
    const ByteVector vop = Stream("00 00 01 B6 *9");
    CBlockMemFileEx queue(10, 4, sizeof(FRAME_INFO));
    CElementaryStreamFramer framer;
    queue.WOpen(), queue.ROpen();
    framer.Push(vop, queue);
    framer.Push(ByteVector(524288 - vop.size() + 1, 0x55), queue);  // one too many
    framer.Push(Stream("77 00 00 01 B6 01 00 00 01 B6"), queue);
    ASSERT_EQ(queue.GetPending(0), 2u);
    EXPECT_EQ(TakeFrame(queue, 0)->payload, Stream("00 00 01 B6 *6"));
    EXPECT_EQ(TakeFrame(queue, 0)->payload, Stream("00 00 01 B6 01"));
    framer.Reset();
    EXPECT_EQ(NumbersOf(framer.GetCounters()), (Numbers{2, 1, 4, 1, 524288 - vop.size() + 1 + 4}));
}

TEST(ElementaryStreamFramer, KeepsAUnitThatTheQueueDoesNotTake) {
    CBlockMemFileEx queue(100, 4, sizeof(FRAME_INFO));
    CElementaryStreamFramer framer;
    framer.Push(Stream("00 00 01 B6 01 00 00 01 B6 02 00 00 01 B6 03"), queue);  // closed: 02 and 03 are lost
    queue.WOpen(), queue.ROpen();
    framer.Push(Stream("04 00 00 01 B6 05 00 00 01 B6"), queue);
    EXPECT_EQ(TakeFrame(queue, 0)->payload, Stream("00 00 01 B6 01 00 00 01 B6 04"));
    framer.Reset();
    framer.Push(Stream("06 00 00 01 B6"), queue);
    EXPECT_EQ(TakeFrame(queue, 0)->payload, Stream("00 00 01 B6 05"));
    EXPECT_EQ(TakeFrame(queue, 0)->payload, Stream("06"));
}

}  // namespace
}  // namespace kest
