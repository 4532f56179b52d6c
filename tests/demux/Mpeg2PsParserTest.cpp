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

// ---------------- extensions

TEST(Mpeg2PsParser, TakesTheStreamsThatAreChosenOrAssumed) {
    const std::string strAll = "b1:1x1 a1:1x2 w1:1x3 v1:1x4 b2:1x1 a2:1x2 w2:1x3 v2:1x4 ";
    const std::string strAudioMap = "00 00 01 BC 00 0E E1 FF 00 00 00 04 03 C2 00 00 01 02 03 04 ";
    const std::string strListed = "00 00 01 BC 00 12 E1 FF 00 00 00 08 02 E0 00 00 0F C1 00 00 01 02 03 04 ";
    // the payload of an ignored packet, which looks like two packets of the video
    const std::string strFalse =
        "v1:1x1 00 00 01 BD 00 1C 00 00 01 E0 00 09 80 80 05 21 00 01 00 15 07 00 00 01 E0 00 08 "
        "80 80 05 21 00 01 v2:1x2 ";
    constexpr std::int32_t kAll = kAllStreams, kFirst = kFirstKnownStream;
    const struct {
        bool bAssumeMap;
        std::int32_t nVideo, nAudio;
        std::string strStream;
        const char* pszFrames;
    } cases[] = {
        {false, kAll, kAll, strAll, "v1!1x4 v2:1x4 a1!1x2 a2:1x2 "},
        {true, kAll, kAll, strAll, "v1!1x3 v1:1x4 v2:1x3 v2:1x4 a1!1x1 a1:1x2 a2:1x1 a2:1x2 "},
        {true, kFirst, kFirst, strAll, "v1!1x3 v2:1x3 a1!1x1 a2:1x1 "},
        {false, kFirst, kFirst, strAll, "v1!1x4 v2:1x4 a1!1x2 a2:1x2 "},
        {true, 0xE0, 0xC0, strAll, "v1!1x4 v2:1x4 a1!1x2 a2:1x2 "},
        {false, 0xE1, 0xC1, strAll,
         "v1!1x3 v2:1x3 a1!1x1 a2:1x1 "},  // what was chosen by its id needs no map
        {true, 0xE2, 0x1FFF, strAll, ""},
        {true, kAll, kAll, strAudioMap + strAll,
         "v1!1x3 v1:1x4 v2:1x3 v2:1x4 a1!1x2 a2:1x2 "},            // a map that lists no video
        {true, kAll, 0xC1, strListed + strAll, "v1!1x4 v2:1x4 "},  // listed with a type that is not known
        {false, kAll, kAll, strFalse, "v1!1x1 v10:1x7 "},
        {true, kAll, kAll, strFalse, "v1!1x1 "},
    };
    for (const auto& c : cases) {
        const ParseSettings settings{
            .bAssumeMap = c.bAssumeMap, .nVideoStream = c.nVideo, .nAudioStream = c.nAudio};
        const ByteVector bytes = Stream(c.strStream + "v3: a3: b3: w3: 00 00 01 BE FF 00 *65280");
        EXPECT_EQ(Describe(ParseWith(settings, bytes)), c.pszFrames) << &c - cases;
    }
}

/// A stream that knows where the payload of each of its bytes went.
class CPayloadStream {
public:
    void Add(const std::string& strText) {
        const ByteVector bytes = Stream(strText);
        m_bytes.insert(m_bytes.end(), bytes.begin(), bytes.end());
    }
    /// Adds a packet with a payload of n bytes.
    void AddPacket(const std::string& strTimestamps, std::size_t n) {
        Add(strTimestamps + ":" + std::to_string(n) + "x0");
        for (std::size_t i = m_bytes.size() - n; i < m_bytes.size(); ++i) {
            m_bytes[i] = static_cast<std::uint8_t>(++m_nCount % 251);
            (strTimestamps[0] == 'v' ? m_video : m_audio).push_back(i);
        }
    }
    const ByteVector& Get() const { return m_bytes; }
    /// The payload of the video, or of the audio, in the first nSize bytes.
    ByteVector Payload(bool bVideo, std::size_t nSize) const {
        ByteVector payload;
        for (const std::size_t i : bVideo ? m_video : m_audio) {
            if (i < nSize) payload.push_back(m_bytes[i]);
        }
        return payload;
    }

private:
    ByteVector m_bytes;
    std::vector<std::size_t> m_video, m_audio;  // indices of the payload
    unsigned m_nCount = 0;
};

/// Payload at both ends, frames longer than a block, garbage, ignored packets.
CPayloadStream MakeStreamToDrain(std::size_t nFill) {
    CPayloadStream stream;
    if (nFill > 0) stream.Add("00 00 01 BE 3E 80 *16000 *" + std::to_string(nFill));
    stream.Add("pack 00 00 01 BB 00 03 00 00 01");
    for (const char* pszPacket : {"v", "a", "v1", "v", "v4/3", "a5"}) {
        stream.AddPacket(pszPacket, 41);
        stream.Add("d1:5x1 *3");
    }
    stream.AddPacket("v", 300);
    stream.AddPacket("a", 200);
    stream.Add("v7: 00 00 01 B9 pack 00 00 01 E0 00 05 84 00 02 FF FF");
    stream.AddPacket("a8", 1);
    stream.AddPacket("v9", 250);
    stream.AddPacket("v", 20);
    return stream;
}

// Faults: a tail that the search for start codes or the last block of a source leaves behind, a packet cut in its header
// or payload, a frame that does not fit its block, payload in front of the first timestamp.
TEST(Mpeg2PsParser, DrainsEveryByteWhereverTheStreamEnds) {
    for (const std::size_t nFill :
         {0u, 1u, 200u, 360u}) {  // the source's last whole block ends in different places
        const CPayloadStream stream = MakeStreamToDrain(nFill);
        const std::size_t nWhole = stream.Get().size(), nFirst = nFill > 0 ? 15900 : 0;
        for (std::size_t nSize = nFirst; nSize <= nWhole; ++nSize) {
            SCOPED_TRACE(std::to_string(nFill) + ", " + std::to_string(nSize) + " bytes");
            const Frames frames = ParseWith({.bDrain = true}, Bytes(stream.Get()).first(nSize), 100);
            ASSERT_EQ(Join(frames.video), stream.Payload(true, nSize));
            ASSERT_EQ(Join(frames.audio), stream.Payload(false, nSize));
        }
    }
}

TEST(Mpeg2PsParser, GivesDrainedFramesTheTimesThatTheyHave) {
    const struct {
        const char* pszStream;
        const char* pszFrames;
    } cases[] = {
        {"v:4x1 v1:4x2 v2:4x3", "v-1:4x1 v1!4x2 v2:4x3 "},                       // both ends
        {"v1:150x1 v:100x2 v2:1x3", "v1!100x1 v-1:50x1,50x2 v-1:50x2 v2:1x3 "},  // split, in mid-packet too
        {"v1:100x1 v2:100x2 a3:101x3", "v1!100x1 v2:100x2 a3!100x3 a-1:1x3 "},   // not at the end of a block
        {"v1:4x1 00 00 01 E0 00 00 80 80 05 21 00 01 0F A1 v:3x2 v3:3x3 ", "v1!4x1 v2000:3x2 v3:3x3 "},
        {"v4294967295:4x1 v5:1x2", "v4294967295!4x1 v5:1x2 "},  // a time like any other
        {"v1:4x1 00 00 01 E0 00 FF 80 80 05 21", "v1!4x1 "},    // cut in its header
        {"*5000 v1:4x1 *5000", "v1!4x1 "},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(Describe(ParseWith({.bDrain = true}, Stream(c.pszStream), 100)), c.pszFrames);
    }
}

// What comes before a timestamp is of use at the beginning of the input, and of none behind a jump.
TEST(Mpeg2PsParser, DropsUntimedPayloadBehindAJump) {
    const ByteVector bytes = Stream("v1:4x1 v:300x2 v2:4x3");
    CTestQueue video(100), audio(100);
    CParserRig rig(bytes, {.bDrain = true}, &video, &audio);
    rig.m_input.SeekTo(18);
    rig.m_parser.Reset();
    EXPECT_EQ(Describe(rig.Run()), "v2!4x3 ");
    EXPECT_EQ(rig.m_video.GetCounters().llBytesLost, 300u);
}

TEST(Mpeg2PsParser, CountsWhatBecomesOfTheInput) {
    const ByteVector bytes = Stream("pack v:4x1 v1:101x2 v2:4x3 *7 d1:5x1 a1:100x1 pack a2:4x2 *2000 v3:4x4");
    const struct {
        bool bDrain;
        Numbers parser, video, audio;
    } cases[] = {
        {false, {2, 3, 2, 1, 3, 7 + 15 + 1024}, {1, 1, 1, 1, 4}, {1, 0, 0, 0, 0}},
        {true, {2, 4, 2, 1, 2, 7 + 2000}, {5, 0, 0, 0, 0}, {2, 0, 0, 0, 0}},
    };
    for (const auto& c : cases) {
        CTestQueue video(100), audio(100);
        CParserRig rig(bytes, {.bDrain = c.bDrain}, &video, &audio);
        rig.Run();
        EXPECT_EQ(c.parser, NumbersOf(rig.m_parser.GetCounters()));
        EXPECT_EQ(c.video, NumbersOf(rig.m_video.GetCounters()));
        EXPECT_EQ(c.audio, NumbersOf(rig.m_audio.GetCounters()));
    }
}

}  // namespace
}  // namespace kest
