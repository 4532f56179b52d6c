#include "demux/StreamTypeProbe.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>

#include "support/MemoryReader.h"
#include "support/ProgramStreamBuilder.h"

namespace kest {
namespace {

using Builder = CProgramStreamBuilder;

/// Transport packets, filled up, and five null packets behind them.
Builder Transport(const std::vector<const char*>& packets) {
    Builder b;
    for (std::size_t i = 0; i < packets.size(); ++i) b.Hex(packets[i]).Fill(188 * (i + 1) - b.Size());
    for (int i = 0; i < 5; ++i) b.Hex("47 1F FF 10").Fill(184);
    return b;
}

TEST(StreamTypeProbe, ClassifiesBlocks) {
    const auto Ps = [](const std::vector<Builder::MapEntry>& entries) {
        return Builder().Pack().Section(0xBB, 12).Map(entries).Fill(64);
    };
    const auto OneMap = [](const char* pszHex) { return Builder().Pack().Code(0xBC).Hex(pszHex).Fill(64); };
    const auto kPat = "47 40 00 10 00 00 B0 0D 00 01 C1 00 00 00 01 E1 00 01 02 03 04";
    const auto kNetworkPat = "47 40 00 10 00 00 B0 0D 00 01 C1 00 00 00 00 E1 00 01 02 03 04";
    const auto kVideo = "47 41 00 10 00 02 B0 14 00 01 C1 00 00 E1 00 F0 00 02 E1 00 F0 02 0A 0B";
    const struct {
        const char* pszName;
        Builder block;
        int nClass;
    } cases[] = {
        {"nothing", Builder(), 6},
        {"MPEG-1 pack", Builder().Hex("00 00 01 BA 21").Fill(64), 5},
        {"pack that is neither", Builder().Hex("00 00 01 BA 81").Fill(64), 6},
        {"pack too close to the end", Builder().Hex("00 00 01 BA 21").Fill(19), 6},
        {"pack just far enough from the end", Builder().Hex("00 00 01 BA 21").Fill(20), 5},
        {"MPEG-2 video", Ps({{0x02, 0xE0}}), 4},
        {"MPEG-1 video", Ps({{0x01, 0xE0}}), 4},
        {"audio with descriptors, then MPEG-4 video", Ps({{0x03, 0xC0, {1, 2, 3}}, {0x10, 0xE0}}), 2},
        {"first video decides", Ps({{0x02, 0xE0}, {0x10, 0xE1}}), 4},
        {"map without video", Ps({{0x03, 0xC0}}), 6},
        {"no map", Builder().Pack().Pes(0xE0, ByteVector(100, 7)).Fill(64), 6},
        {"second map has the video", Builder().Pack().Map({{0x03, 0xC0}}).Map({{0x10, 0xE0}}).Fill(64), 2},
        {"info outside its map", OneMap("00 0E E1 FF 00 08 00 00 00 00 00 00 00 00 00 04 02 E0 00 00"), 6},
        {"entries outside their map", OneMap("00 09 E1 FF 00 00 00 04 02 E0 00 00"), 6},
        {"an entry outside its map", OneMap("00 0E E1 FF 00 00 00 04 02 E0 00 05"), 6},
        {"no room for a CRC", OneMap("00 0A E1 FF 00 00 00 04 02 E0 00 00"), 4},
        {"no map, but MPEG-4 headers", Builder().Pack().Hex("00 00 01 00 00 00 01 20").Fill(64), 0},
        {"MPEG-4 elementary stream", Builder().Hex("00 00 01 00 00 00 01 20").Fill(3), 0},
        {"MPEG-4 headers too close to the end", Builder().Hex("00 00 01 00 00 00 01 20").Fill(2), 6},
        {"transport, audio and MPEG-2 video",
         Transport(
             {kPat, "47 41 00 10 00 02 B0 17 00 01 C1 00 00 E1 00 F0 00 03 E1 00 F0 00 02 E1 00 F0 00"}),
         3},
        {"MPEG-2 audio first",
         Transport(
             {kPat, "47 41 00 10 00 02 B0 17 00 01 C1 00 00 E1 00 F0 00 04 E1 00 F0 00 02 E1 00 F0 00"}),
         1},
        {"adaptation fields, program descriptors",
         Transport({"47 40 00 30 02 FF FF 00 00 B0 0D 00 01 C1 00 00 00 01 E1 00 01 02 03 04",
                    "47 41 00 30 00 00 02 B0 14 00 01 C1 00 00 E1 00 F0 02 0A 0B 10 E1 00 F0 00"}),
         1},
        {"network PID leaves the default", Transport({kNetworkPat, kVideo}), 6},
        {"map on the default PID",
         Transport({kNetworkPat, "47 40 02 10 00 02 B0 12 00 01 C1 00 00 E1 00 F0 00 02 E1 00 F0 00"}), 3},
        {"PAT too long", Transport({"47 40 00 10 00 00 B0 B7 00 01 C1 00 00 00 01 E1 00", kVideo}), 6},
        {"PAT too long with its adaptation field",
         Transport({"47 40 00 30 03 FF FF FF 00 00 B0 B4 00 01 C1 00 00 00 01 E1 00", kVideo}), 6},
        {"section too late in its packet", Transport({"47 40 02 30 B1"}), 6},
        {"transport without video",
         Transport({kPat, "47 41 00 10 00 02 B0 12 00 01 C1 00 00 E1 00 F0 00 06 E1 00 F0 00"}), 6},
    };
    for (const auto& c : cases) {
        const ByteVector& block = c.block.Get();
        EXPECT_EQ(CStreamTypeProbe().ClassifyHeader(block), c.nClass) << c.pszName;
        for (std::size_t n = 0; n < block.size();
             ++n) {  // under AddressSanitizer a read past the end is fatal
            CStreamTypeProbe().ClassifyHeader(ByteVector(block.begin(), block.begin() + static_cast<int>(n)));
        }
    }
}

TEST(StreamTypeProbe, NeedsAWholeFillingFromThePackHeaderOn) {
    const struct {
        std::size_t nBefore, nSize;
        int nClass;
    } cases[] = {{0, 32768, 4},     {0, 32767, 6},     {32748, 65536, 4}, {32764, 65536, 4},
                 {32764, 65531, 6}, {32765, 65536, 4}, {32767, 65536, 4}, {32767, 65535, 6},
                 {40000, 65536, 4}, {40000, 65535, 6}};
    for (const auto& c : cases) {
        Builder b = Builder().Fill(c.nBefore).Pack(25200).Map({{0x02, 0xE0}});
        CMemoryReader reader(b.Fill(c.nSize - b.Size()).Get());
        CStreamTypeProbe probe;
        probe.SetReader(&reader);
        EXPECT_EQ(probe.Probe(), c.nClass) << c.nBefore << " in " << c.nSize;
        EXPECT_EQ(probe.GetBitRate(), c.nClass == 4 ? 10080000u : 0u) << c.nBefore;
        EXPECT_EQ(*probe.GetMissing() == '\0', c.nClass == 4);
    }
}

/// Reports any length, says that every read has succeeded, and may have lost its bytes after the first.
struct CHostileReader : CMemoryReader {
    CHostileReader(Bytes bytes, LONGLONG ll, bool b) : CMemoryReader(bytes), llLength(ll), bForgets(b) {}
    HRESULT STDMETHODCALLTYPE Length(LONGLONG* pTotal, LONGLONG* pAvailable) override {
        *pTotal = *pAvailable = llLength;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE SyncRead(LONGLONG llPosition, LONG lLength, BYTE* pBuffer) override {
        CMemoryReader::SyncRead(llPosition, bForgets && nReads++ > 0 ? 0 : lLength, pBuffer);
        return S_OK;
    }
    const LONGLONG llLength;
    const bool bForgets;
    int nReads = 0;
};

TEST(StreamTypeProbe, EndsWhateverAReaderSays) {
    using Limits = std::numeric_limits<LONGLONG>;
    const ByteVector bytes = Builder().Pack().Map({{0x02, 0xE0}}).Fill(100).Get();
    for (const LONGLONG llLength : {Limits::min(), LONGLONG{-1}, LONGLONG{0}, LONGLONG{128}, Limits::max()}) {
        for (const bool bForgets : {false, true}) {
            CHostileReader reader(bytes, llLength, bForgets);
            CStreamTypeProbe probe;
            probe.SetReader(&reader);
            EXPECT_EQ(probe.Probe(), llLength > 0 && !bForgets ? 4 : 6) << llLength;
            EXPECT_EQ(probe.GetTotalLength(), std::max<LONGLONG>(llLength, 0));
        }
    }
}

TEST(StartCodeScanner, FindsCodesAcrossFillings) {
    Builder b;
    for (const std::size_t nPos : {100u, 32766u, 65533u}) b.Fill(nPos - b.Size()).Code(0xBA);
    CMemoryReader reader(b.Fill(3 * 32768 - b.Size()).Get());
    CStartCodeScanner scanner;
    scanner.SetReader(&reader);
    for (const std::int64_t llPos : {100, 32766, 65533}) {
        for (const std::uint32_t nCode : {0x000001BAu, 0xFFFFFFFFu}) {  // a code of all ones moves nothing
            ASSERT_EQ(scanner.FindStartCode(nCode), 1);
            EXPECT_EQ(scanner.GetPosition(), llPos);
        }
        scanner.SeekTo(llPos + 4);
    }
    EXPECT_EQ(scanner.FindStartCode(0x000001BA), -1);
}

}  // namespace
}  // namespace kest
