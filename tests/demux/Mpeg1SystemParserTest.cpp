#include "demux/Mpeg1SystemParser.h"

#include <gtest/gtest.h>

#include <map>

#include "demux/Mpeg1PsDemux.h"
#include "support/CaptureTexts.h"
#include "support/CoreRunner.h"
#include "support/TestThreads.h"

namespace kest {
namespace {

TEST(Mpeg1SystemParser, AssemblesFramesOfTheVideo) {
    const std::string strPack = "00 00 01 BA 21 00 01 00 01 80 61 A9 ", strNext = " V7:1x1";
    const struct {
        std::string strStream;
        const char* pszFrames;
        const char* pszTraces = "";
    } cases[] = {
        {strPack + "00 00 01 BB 00 03 00 00 01 V5/4:4x1 V:3x2 V6:2x3 00 00 01 B9" + strNext,
         "v5/4:4x1,3x2 v6:2x3 "},
        // all video streams are one; other streams are skipped
        {"V5:4x1 00 00 01 EF 00 02 0F 02 00 00 01 BC 00 00 00 00 01 BD 00 03 00 00 01 00 00 01 BE 00 01 0F "
         "00 00 01 BF 00 01 00 00 00 01 F3 00 01 00 00 00 01 B8 00 01 00" +
             strNext,
         "v5:4x1,1x2 ",
         "reserved stream!!\nprivate stream1!!\npadding stream!!\nprivate stream2!!\nreserved data stream\n"},
        // timestamps are the low 32 bits, signed; all ones is none, for the video when it is both
        {"V2147483647:1x1 V2147483648/4294967297:1x2 V8589934590/8:1x3 V8589934591:1x4 V:2x4 "
         "V4294967295/9:1x5" +
             strNext,
         "v2147483647:1x1 v-2147483648/1:1x2 v-2/8:1x3 v-1/9:1x5 "},
        // those of a packet without payload count for the payload before it
        {"V5:4x1 V6: V8:2x2" + strNext, "v6:4x1 v8:2x2 "},
        {"V:4x1 V5:1x2" + strNext, "v5:1x2 "},  // nothing is a frame before the first
        // stuffing bytes and the size of the decoder's buffer; no more than once; other beginnings are a byte
        {"00 00 01 E0 00 0B FF FF FF 60 2E 21 00 01 00 0B 01 00 00 01 E0 00 06 40 01 40 02 02 02 00 00 01 E0 "
         "00 02 9F 03 00 00 01 E0 00 05 60 01 FF 04 04" +
             strNext,
         "v5:1x1,3x2,1x3,2x4 "},
        {"V5:1x1 00 00 01 E0 00 03 FF FF FF FF 0F V:1x2" + strNext, "v5:1x1,1x2 "},  // longer than the packet
        // garbage, of a length that is traced
        {"V5:4x1 FF V:1x2 00 V:1x3 00 00 FF 01 V:1x4" + strNext, "v5:4x1,1x2,1x3,1x4 ",
         "start code is wrong 5\nstart code is wrong 5\nstart code is wrong 8\n"},
        // no room: what the frame has is dropped, and the payload is searched for a start code
        {"V5:65000x1 V:65000x1 V:33841x1 V6:1x2" + strNext, "v5 v6:1x2 ", "start code is wrong 33845\n"},
        {"V5:65000x1 V:65000x1 V:33840x1 " + strNext, "v5:163840x1 "},
    };
    for (const auto& c : cases) {
        CCaptureTexts texts;
        const ByteVector bytes =
            Stream(c.strStream + " 00 00 01 B8 FF 00 *65280");  // no read ends at the end of the source
        EXPECT_EQ(Describe(CMpeg1Rig(bytes).Run()), c.pszFrames) << c.strStream;
        EXPECT_EQ(texts.TraceTexts(), c.pszTraces) << c.strStream;
    }
}

TEST(Mpeg1SystemParser, KeepsTheLastSequenceHeader) {
    const ByteVector known(kDefaultSequenceHeader.begin(), kDefaultSequenceHeader.end());
    ByteVector large = known;
    large[5] = 0x01, large[6] = 0x20;  // 352 x 288
    const ByteVector cutShort(large.begin(), large.end() - 1);
    const struct {
        std::vector<ByteVector> payloads;
        bool bChanged;
        ByteVector header;
    } cases[] = {{{known, known}, false, known},
                 {{known, large, large}, true, large},
                 {{large, known}, true, known},
                 {{cutShort}, false, known},
                 {{ByteVector(200, 1)}, false, known}};
    for (const auto& c : cases) {
        CProgramStreamBuilder b;
        for (const ByteVector& payload : c.payloads) b.Mpeg1Packet(0xE0, payload, {}, {});
        CMpeg1Rig rig(b.Get());
        rig.Run();
        const CSequenceHeaderCapture& capture = rig.m_parser.GetSequenceHeader();
        EXPECT_EQ(capture.HasChanged(), c.bChanged);
        const Mpeg1SequenceHeader header = capture.Get();
        EXPECT_EQ(ByteVector(header.begin(), header.end()), c.header);
        const Mpeg1SequenceFields fields{352, static_cast<std::uint16_t>(c.header == large ? 288 : 240), 2,
                                         1500000, 40960};
        EXPECT_EQ(ParseSequenceHeader(header), fields);
        rig.m_parser.Reset();
        EXPECT_FALSE(capture.HasChanged());
        EXPECT_EQ(capture.Get(), kDefaultSequenceHeader);
    }
}

/// Blocks that come of payloads with the timestamps 1, 2, ...: timestamp and size of each. In a payload, h94
/// is an audio frame of layer II, 32 kbit/s and 48000 Hz with 94 bytes behind its header, 96 would be right;
/// 20 are as many bytes that are none; other letters are other headers.
template <class Framer>
std::string CutAudio(const std::vector<std::string>& payloads, bool bDrain = false) {
    const std::map<char, ByteVector> headers = {
        {'h', {0xFF, 0xFD, 0x14, 0x00}},  // 48000 Hz, 96 bytes
        {'i', {0xFF, 0xFD, 0x18, 0x00}},  // 32000 Hz, 144 bytes
        {'l', {0xFF, 0xFF, 0x34, 0x00}},  // layer I, 48000 Hz, 96 bytes
        {'m', {0xFF, 0xFB, 0x14, 0x00}},  // layer III, 96 bytes
        {'p', {0xFF, 0xFD, 0x12, 0x00}},  // 44100 Hz with a padding slot
        {'q', {0xFF, 0xFD, 0x10, 0x00}},  // 44100 Hz without
        {'r', {0xFF, 0xFD, 0x15, 0x00}},  // 48000 Hz with the private bit
        {'o', {0xFF, 0xFD, 0x14, 0x04}},  // an original
        {'x', {0xFF, 0xFD, 0xF4, 0x00}},  // no bit rate
        {'f', {0xFF, 0xFD, 0x04, 0x00}},  // free format: no length
        {'k', {0xFF, 0xFD, 0x14, 0xCC}},  // mono, with copyright, an original
        {'s', {0xFF, 0xF5, 0x14, 0x00}},  // 24000 Hz, 48 bytes
    };
    CFrameOutput output({65536, 32768, 16});
    output.Attach(nullptr);
    output.OpenSides();
    Framer framer(output);
    framer.Reset();
    framer.SetDrain(bDrain);
    std::int64_t llPts = 0;
    for (const std::string& strPayload : payloads) {
        ByteVector payload;
        std::istringstream words(strPayload);
        for (std::string word; words >> word;) {
            const auto header = headers.find(word[0]);
            const bool bHeader = header != headers.end();
            if (bHeader) payload.insert(payload.end(), header->second.begin(), header->second.end());
            payload.resize(payload.size() + std::stoul(word.substr(bHeader ? 1 : 0)));
        }
        framer.Push(payload, ++llPts);
    }
    if (bDrain) framer.Flush();
    std::string text;
    while (const auto block = TakeFrame(output.GetQueue(), 0)) {
        EXPECT_EQ(block->info.llPts, block->info.llDts);
        text += std::to_string(block->info.llPts) + ":" + std::to_string(block->payload.size()) + " ";
    }
    return text;
}

TEST(Mpeg1AudioFramer, CutsAtHeaders) {
    const struct {
        std::vector<std::string> payloads;
        const char* pszBlocks;
    } cases[] = {
        // the second payload confirms the length: what there is up to its first header has its timestamp
        {{"h92 h92", "h92 h92", "h92", "h92"}, "2:192 2:192 3:96 "},
        {{"h92 h40", "52 h92 h10", "82 h20", "72 h92"}, "2:192 2:192 3:96 "},
        {{"10 h92", "i92", "h92", "h92"}, "3:202 3:96 "},        // another length does not
        {{"10", "", "h92", "20", "h92", "h92"}, "5:126 5:96 "},  // no header: nothing is settled
        {{"q92", "o92", "x92", "h92", "h92"}, "5:384 "},         // nor with those that are none
        {{"f92", "h92", "f92", "h92"}, "3:192 3:96 "},
        // without a header to cut at, every payload is a block
        {{"p92", "p92", "p50", "r92", "", "p92"}, "2:192 2:54 3:96 4:0 5:96 "},
        // a header too early is passed over unless it is the last before an audio frame is full
        {{"h92", "h92", "90 h6", "16 h46 h16 h92", "h92"}, "2:96 2:186 3:76 4:116 "},
        {{"h92", "h92", "90 h6", "78 h92", "h92"}, "2:96 2:186 3:88 4:96 "},
        {{"h92", "h92", "90 h6", "10 h68 h92", "h92"}, "2:96 2:186 3:20 4:168 "},
        {{"h92", "h92", "92", "h3"}, "2:96 2:188 3:0 "},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(CutAudio<CMpeg1AudioFramer>(c.payloads), c.pszBlocks) << testing::PrintToString(c.payloads);
    }
}

TEST(MpegAudioCutter, FollowsAnyHeaders) {
    const struct {
        std::vector<std::string> payloads;
        const char* pszBlocks;  // when draining; of these, untimed ones and the last are missing otherwise
    } cases[] = {
        {{"k92 k92", "k92 k92", "k92"}, "1:192 2:192 3:96 "},
        {{"k92 k40", "52 k92 k10", "82 k20", "72 k92"}, "1:192 2:192 3:96 4:96 "},  // over payloads
        {{"q100 p101", "q100 p101"}, "1:209 2:209 "},                               // padding slots
        {{"s44 s44", "m92", "l28 l28"}, "1:96 2:96 3:64 "},  // half the rate, layers III and I
        {{"10 k92", "k92", "80"}, "-1:10 1:96 2:96 3:80 "},  // what is no frame belongs to the one before
        {{"k92 k50 k92", "k92"}, "1:246 2:96 "},             // a frame is cut short
        {{"k92 k92", "20", "30 k92", "k92"}, "1:192 2:50 3:96 4:96 "},
        {{"k92 k90 k2", "k92"}, "1:196 2:96 "},  // a header that is none is not in its place
    };
    for (const auto& c : cases) {
        EXPECT_EQ(CutAudio<CMpegAudioCutter>(c.payloads, true), c.pszBlocks)
            << testing::PrintToString(c.payloads);
    }
    EXPECT_EQ(CutAudio<CMpegAudioCutter>({"10", "f20", "k92", "k92"}, true), "1:10 2:24 3:96 4:96 ");
    EXPECT_EQ(CutAudio<CMpegAudioCutter>({"10", "f20", "5 k92", "k92"}), "3:96 ");
}

/// The payloads of the packets of one kind, as far as the stream goes. @param nMask, nId  its stream ids.
ByteVector ExtractPayload(Bytes bytes, int nMask, int nId) {
    ByteVector payload;
    for (std::size_t i = 0; i + 4 <= bytes.size();) {
        if (Read24(bytes, i) != 1) {
            ++i;
            continue;
        }
        const int nCode = bytes[i + 3];
        i += 4;
        if (nCode == 0xBA) i += 8;
        if (nCode == 0xB9 || nCode == 0xBA || i + 2 > bytes.size()) continue;
        const std::size_t nEnd = std::min(bytes.size(), i + 2 + Read16(bytes, i));
        std::size_t n = i + 2;
        while (n < nEnd && bytes[n] == 0xFF) ++n;
        if (n < nEnd && bytes[n] >> 6 == 1) n += 2;
        if (n < nEnd) n += bytes[n] >> 4 == 2 ? 5 : bytes[n] >> 4 == 3 ? 10 : 1;
        if ((nCode & nMask) == nId) {
            for (; n < nEnd; ++n) payload.push_back(bytes[n]);
        }
        i = nEnd;
    }
    return payload;
}

TEST(Mpeg1SystemParser, DrainsTheWholePayloadOfAnyBeginningOfAStream) {
    CProgramStreamBuilder b;
    ByteVector audio(20, 0x22);
    for (int i = 0; i < 20; ++i) {  // mono, 44100 Hz
        const auto nThird = static_cast<std::uint8_t>(i % 2 ? 0x10 : 0x12);
        audio.insert(audio.end(), {0xFF, 0xFD, nThird, 0xC4});
        audio.resize(audio.size() + (i % 2 ? 100 : 101), 0x33);
    }
    b.Bytes(Stream(
        "FF 00 V:9x2 V:2x3 00 00 01 BE 00 03 00 00 01 00 00 01 E0 00 09 FF FF 60 2E 21 00 01 00 0B 07"));
    for (std::size_t n = 0; n < audio.size(); n += 150) {
        const Bytes part = Bytes(audio).subspan(n, std::min<std::size_t>(150, audio.size() - n));
        std::optional<std::int64_t> llPts;
        if (n / 150 % 3 == 1) llPts = static_cast<std::int64_t>(n);
        b.Mpeg1Packet(0xC0, {part.begin(), part.end()}, llPts, {}).Bytes(Stream("00 FF V:7x4 V5/4:11x5"));
    }
    b.Bytes(Stream("V7: 00 00 01 B9"));
    const ByteVector small = b.Get();
    const ByteVector large =
        Stream("V5:9x1 V:65000x1 V:65000x2 V:65000x3 V:9x4 V6:9x5 A:65000x3 A7:65000x1 A:65000x2");
    for (const bool bAny : {false, true}) {
        const ParseSettings settings{.bDrain = true, .bAnyAudioHeader = bAny};
        for (const auto& [bytes, nStep] :
             {std::pair(&small, std::size_t{1}), std::pair(&large, std::size_t{9973})}) {
            for (std::size_t n = 0; n < bytes->size() + nStep; n += nStep) {
                const Bytes part = Bytes(*bytes).first(std::min(n, bytes->size()));
                const Frames frames = CMpeg1Rig(part, settings).Run();
                ASSERT_EQ(Join(frames.video), ExtractPayload(part, 0xF0, 0xE0)) << n << bAny;
                ASSERT_EQ(Join(frames.audio), ExtractPayload(part, 0xE0, 0xC0)) << n << bAny;
            }
        }
    }
    EXPECT_EQ(Describe(CMpeg1Rig(Stream("V:2x1 V5:4x1 V:4x2 V7/6:1x3 V:1x4"), {.bDrain = true}).Run()),
              "v-1:2x1 v5:4x1,4x2 v7/6:1x3,1x4 ");
}

TEST(Mpeg1SystemParser, TakesTheChosenStreams) {
    const ByteVector bytes = Stream("00 00 01 E2 00 06 21 00 01 00 0B 08 V5:1x1 B6:1x2 A7:1x3 B9:1x4 V9:1x5");
    const struct {
        std::int32_t nVideo, nAudio;
        const char* pszFrames;
    } cases[] = {{-1, -1, "v5:1x8 v5:1x1 v9:1x5 a6:1x2 a7:1x3 a9:1x4 "},
                 {0, 0, "v5:1x8 a6:1x2 a9:1x4 "},
                 {0xE0, 0xC0, "v5:1x1 v9:1x5 a7:1x3 "},
                 {0xE5, 0xC5, ""}};
    for (const auto& c : cases) {
        const ParseSettings settings{.nVideoStream = c.nVideo, .nAudioStream = c.nAudio, .bDrain = true};
        EXPECT_EQ(Describe(CMpeg1Rig(bytes, settings).Run()), c.pszFrames) << c.nVideo;
    }
}

TEST(Mpeg1SystemParser, CountsWhatBecomesOfTheInput) {
    const ByteVector bytes = Stream(
        "00 00 01 BA *8 V:4x1 V5:4x2 A:3x1 FF FF 00 00 01 BD 00 01 00 00 00 01 BE 00 01 0F A7:2x1 "
        "V:65000x1 V:65000x1 V:33841x1 V6:1x2 V7:2x3 A8:5x1 A9:6x1");
    const struct {
        bool bDrain;
        Numbers parser, video, audio;
    } cases[] = {
        {false, {1, 7, 4, 1, 2, 2 + 33841}, {1, 0, 0, 3, 4 + 130004 + 2}, {0, 0, 0, 1, 3 + 2 + 5 + 6}},
        {true, {1, 7, 4, 1, 1, 2}, {4, 0, 0, 0, 0}, {4, 0, 0, 0, 0}},
    };
    for (const auto& c : cases) {
        CMpeg1Rig rig(bytes, {.bDrain = c.bDrain});
        rig.Run();
        rig.m_parser.End();
        EXPECT_EQ(NumbersOf(rig.m_parser.GetCounters()), c.parser);
        EXPECT_EQ(NumbersOf(rig.m_video.GetCounters()), c.video);
        EXPECT_EQ(NumbersOf(rig.m_audio.GetCounters()), c.audio);
    }
}

TEST(Mpeg1PsDemux, ParsesWholeBlocksAndStartsAnew) {
    CProgramStreamBuilder b;  // packets of 1024 bytes
    for (int i = 0; i < 1000; ++i) b.Mpeg1Packet(0xE0, ByteVector(1013, 1), i, {});
    const ByteVector& bytes = b.Get();
    KestMpeg1PsDemux core;
    EXPECT_EQ(core.Open(nullptr, nullptr, nullptr), 0);
    for (int i = 0; i < 3; ++i) {
        std::int64_t llNext = 0;
        auto TakeAll = [&] {
            while (const auto frame = TakeFrame(core.GetVideoQueue(), 30))
                EXPECT_EQ(frame->info.llPts, llNext++);
            return llNext;
        };
        core.SetSettings({.bDrain = i == 1});
        core.Resume();
        core.PushData(Bytes(bytes).first(8191));
        EXPECT_EQ(TakeAll(), 3);
        core.PushData(Bytes(bytes).subspan(8191, 4098));
        EXPECT_EQ(TakeAll(), 11);
        if (i == 1) {  // to the end, which the settings of this run ask for
            core.EndInput();
            EXPECT_EQ(TakeAll(), 12);
            EXPECT_TRUE(core.HasTakenAll());
        }
        core.Reset();
        core.PushData(bytes);
        ASSERT_TRUE(Eventually([&] { return core.GetVideoQueue().GetFreeBlocks() == 0; }));
        core.Stop();  // its own queue is full
        EXPECT_EQ(core.GetExitCode(), 0);
        core.Restart();
    }
}

}  // namespace
}  // namespace kest
