#include "demux/Mpeg2PsParser.h"

#include <gtest/gtest.h>

#include <limits>

#include "support/CaptureTexts.h"
#include "support/CoreRunner.h"

namespace kest {
namespace {

/// The frames that come of a stream.
std::string Parse(const std::string& strStream) {
    const ByteVector bytes =
        Stream(strStream + " 00 00 01 BE FF 00 *65280");  // no read ends at the end of the source
    return Describe(CParserRig(bytes).Run());
}

TEST(Mpeg2PsParser, AssemblesFrames) {
    const std::string strMap =
        "00 00 01 BC 00 0E E1 FF 00 00 00 04 03 C1 00 00 01 02 03 04 ";  // 0xC1 is audio
    const std::string strNext = "00 00 01 BC 00 0E 61 FF 00 00 00 04 03 C1 00 00 01 02 03 04 ";
    const std::string strSwap = "00 00 01 BC 00 0A E1 FF 00 00 00 00 01 02 03 04 ",
                      strB = " b1:8x1 b2:8x2 b3:";
    const std::string strPack = "00 00 01 BA 44 00 04 00 04 01 01 89 C3 FA FF 00 00 00 01 BB 00 03 00 00 01 ";
    const struct {
        std::string strStream;
        const char* pszFrames;
    } cases[] = {
        {strPack + "a:5x9 v8589934591/8589931589:100x1 v:50x2 d1:99x7 a777:10x3 v3002:7x4 a2937:20x5 v6005: "
                   "a5000:1x7",
         "v8589934591/8589931589!100x1,50x2 v3002:7x4 a777!10x3 a2937:20x5 "},
        {strB, ""},                                    // 0xC1 is not audio by default
        {strNext + strB, ""},                          // nor by a map that is not current
        {strMap + strB, "a1!8x1 a2:8x2 "},             // a current one does it
        {strNext + strSwap + strB, "a1!8x1 a2:8x2 "},  // or makes the one before current
        {strMap + "b1:1x1 b2:1x2 " + strSwap + "b3:1x3 b4:1x4",
         "a1!1x1 "},  // and the tables are swapped again
        {"00 00 01 BC 00 0E E1 FF 03 FB 00 04 03 C1 00 00 01 02 03 04" + strB, ""},  // descriptors too long
        {"00 00 01 BC 00 0E E1 FF 00 00 00 03 03 C1 00 00 01 02 03 04" + strB, ""},  // entries too short
        {"00 00 01 BC 00 0E E1 FF 00 00 00 04 03 C1 00 09 01 02 03 04" + strB, ""},  // an entry too long
        {"00 00 01 BC 00 10 E1 FF 00 00 00 06 03 C1 00 00 03 C2 01 02 03 04" + strB, ""},  // half an entry
        // timestamps count although no payload can be taken: of an unbounded packet, of one without payload
        {"v1:4x1 00 00 01 E0 00 00 80 80 05 21 00 01 0F A1 v:3x2 v3:3x3 v4:", "v1!4x1 v2000:3x2 v3:3x3 "},
        {"v1:4x1 00 00 01 E0 00 04 80 80 05 21 00 01 0F A1 v:3x2 v3:3x3 v4:", "v1!4x1 v2000:3x2 v3:3x3 "},
        {"v1:4x1 v2: v3:4x3 v4:4x4 v5:", "v1!4x1 v3!4x3 v4:4x4 "},
        // a header too short for its timestamps has none
        {"v1:4x1 00 00 01 E0 00 09 80 80 04 21 00 01 00 02 02 v2:", "v1!4x1,2x2 "},
        {"v1:4x1 00 00 01 E0 00 0A 80 C0 05 31 00 01 00 01 03 03 v2:", "v1!4x1,2x3 "},
        // a video's PTS and an audio's DTS may be the value that stands for none
        {"v1:4x1 v4294967295/5:4x2 v7/4294967295:4x3 v9:", "v1!4x1 v7/4294967295!4x3 "},
        {"a1:4x1 a4294967295/5:4x2 a7/4294967295:4x3 a9:", "a1!4x1 a4294967295/5:4x2 "},
        // cut to the block; a packet that does not fit the frame is left out whole
        {"a1:40000x3 a2:9x4 a3:", "a1!32768x3 a2:9x4 "},
        {"v1:65000x1 v:65000x1 v:65000x1 v:65000x1 v:65000x1 v:65000x1 v:65000x1 v:65000x1 v:4289x2 v:4288x3 "
         "v2:",
         "v1!520000x1,4288x3 "},
    };
    for (const auto& c : cases) {
        CCaptureTexts texts;
        EXPECT_EQ(Parse(c.strStream), c.pszFrames) << c.strStream;
        const bool bUsed = c.strStream.starts_with(strMap) || c.strStream.starts_with(strNext);
        EXPECT_EQ(texts.TraceTexts().find("0C") == 0, bUsed) << c.strStream;
    }
}

TEST(Mpeg2PsParser, ResynchronisesWhereverGarbageEnds) {
    for (const std::size_t n : {1u, 2u, 1019u, 1020u, 1021u, 1022u, 1023u, 1024u, 1025u, 3000u}) {
        for (const std::string strPat : {"", "47 40 00 10", "47 60 00 10", "47 E0 00 10", "47 50 00 10"}) {
            CCaptureTexts texts;
            const std::string strStream = "v1:4x1 *" + std::to_string(n) + " " + strPat + " v2:4x2 v3:";
            EXPECT_EQ(Parse(strStream), "v1!4x1 v2:4x2 ") << strStream;
            const bool bPat = !strPat.empty() && strPat[3] != '5';  // then the search begins anew behind it
            const std::size_t nIndex = bPat ? 3 : (n + (strPat.empty() ? 0 : 4) + 2) % 1024;
            const std::string strTrace = "offset is wrong skipped " + std::to_string(nIndex) + " bytes\n";
            EXPECT_EQ(texts.TraceTexts(), nIndex == 2 ? "" : strTrace) << strStream;
        }
    }
}

TEST(Mpeg2PsParser, KnowsPositionsAndTheEndCode) {
    const ByteVector bytes = Stream("00 v1:4x1 v2:20000x2 00 00 01 B9 *20000 v3: 00 00 01 BE FF 00 *65280");
    CParserRig rig(bytes);
    const Frames frames = rig.Run();
    ASSERT_EQ(frames.video.size(), 2u);
    EXPECT_EQ(frames.video[0].info.llFilePos, 1);
    EXPECT_EQ(frames.video[1].info.llFilePos, 1 + 18);
    EXPECT_TRUE(rig.m_parser.HasMetEndCode());
}

TEST(Mpeg2PsParser, ReadsTheEndOfASourceAsFarAsTheEndPositionAllows) {
    CProgramStreamBuilder
        b;  // packets of 1014 bytes; the last, partial 16384 bytes come in one read or not at all
    for (std::int64_t llPts = 0; b.Size() < 16384 + 6000; ++llPts) b.Pes(0xE0, ByteVector(1000, 1), llPts);
    const auto llSize = static_cast<std::int64_t>(b.Size());
    constexpr auto kMin = std::numeric_limits<std::int64_t>::min(),
                   kMax = std::numeric_limits<std::int64_t>::max();
    const struct {
        std::int64_t llBegin, llEnd;
        std::size_t nFrames;
    } cases[] = {{0, 0, 15},         {0, llSize, 21}, {0, 19384, 18},  {0, llSize + 100, 15},
                 {1014, llSize, 20}, {0, kMin, 15},   {0, kMax, 15},   {llSize, llSize, 0},
                 {-5, 0, 0},         {kMin, kMax, 0}, {kMax, kMin, 0}, {kMax - 16384, kMax, 0}};
    for (const auto& c : cases) {
        CParserRig rig(b.Get());
        rig.m_source.SetEnd(c.llEnd);
        rig.m_input.SeekTo(c.llBegin);
        EXPECT_EQ(rig.Run().video.size(), c.nFrames) << c.llBegin << " to " << c.llEnd;
    }
}

}  // namespace
}  // namespace kest
