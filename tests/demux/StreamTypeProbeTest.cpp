#include "demux/StreamTypeProbe.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "support/MemoryReader.h"
#include "support/ProgramStreamBuilder.h"
#include "support/TestData.h"

namespace kest {
namespace {

using Builder = CProgramStreamBuilder;

int Classify(const ByteVector& bytes) { return CStreamTypeProbe().ClassifyHeader(bytes); }

/// A transport packet with a section (from its table_id on) behind an optional adaptation field.
ByteVector TsPacket(unsigned nPid, const ByteVector& section, int nAdaptation = -1) {
    ByteVector packet = {0x47, static_cast<std::uint8_t>(0x40 | nPid >> 8), static_cast<std::uint8_t>(nPid),
                         static_cast<std::uint8_t>(nAdaptation >= 0 ? 0x30 : 0x10)};
    if (nAdaptation >= 0) {
        packet.push_back(static_cast<std::uint8_t>(nAdaptation));
        packet.resize(packet.size() + static_cast<std::size_t>(nAdaptation), 0xFF);
    }
    packet.push_back(0);  // pointer_field
    packet.insert(packet.end(), section.begin(), section.end());
    packet.resize(188, 0xFF);
    return packet;
}

ByteVector Pat(unsigned nProgramNumber, unsigned nPmtPid, unsigned nSectionLength = 13) {
    return {0x00,
            static_cast<std::uint8_t>(0xB0 | nSectionLength >> 8),
            static_cast<std::uint8_t>(nSectionLength),
            0x00,
            0x01,
            0xC1,
            0x00,
            0x00,
            static_cast<std::uint8_t>(nProgramNumber >> 8),
            static_cast<std::uint8_t>(nProgramNumber),
            static_cast<std::uint8_t>(0xE0 | nPmtPid >> 8),
            static_cast<std::uint8_t>(nPmtPid),
            1,
            2,
            3,
            4};
}

/// A program map section; each stream type gets two bytes of descriptors.
ByteVector Pmt(const ByteVector& streamTypes) {
    const auto nLength = static_cast<std::uint8_t>(13 + 7 * streamTypes.size());
    ByteVector section = {0x02, 0xB0, nLength, 0x00, 0x01, 0xC1, 0x00, 0x00, 0xE1, 0x00, 0xF0, 0x00};
    for (std::uint8_t nType : streamTypes)
        section.insert(section.end(), {nType, 0xE1, 0x00, 0xF0, 0x02, 0x0A, 0x0B});
    section.insert(section.end(), {1, 2, 3, 4});
    return section;
}

ByteVector Transport(const std::vector<ByteVector>& packets) {
    ByteVector bytes;
    for (const ByteVector& packet : packets) bytes.insert(bytes.end(), packet.begin(), packet.end());
    for (int i = 0; i < 5; ++i) {
        const ByteVector null = TsPacket(0x1FFF, {});
        bytes.insert(bytes.end(), null.begin(), null.end());
    }
    return bytes;
}

TEST(StreamTypeProbe, ClassifiesBlocks) {
    const ByteVector es = {0, 0, 1, 0x00, 0, 0, 1, 0x20};
    const auto Ps = [](std::vector<Builder::MapEntry> entries) {
        return Builder().Pack().Section(0xBB, 12).Map(entries).Fill(64).Get();
    };
    const struct {
        const char* pszName;
        ByteVector bytes;
        int nClass;
    } cases[] = {
        {"nothing", {}, 6},
        {"MPEG-1 pack", Builder().Code(0xBA).Bytes({0x21}).Fill(64).Get(), 5},
        {"pack that is neither", Builder().Code(0xBA).Bytes({0x81}).Fill(64).Get(), 6},
        {"pack too close to the end", Builder().Code(0xBA).Bytes({0x21}).Fill(19).Get(), 6},
        {"pack just far enough from the end", Builder().Code(0xBA).Bytes({0x21}).Fill(20).Get(), 5},
        {"MPEG-2 video", Ps({{0x02, 0xE0}}), 4},
        {"MPEG-1 video", Ps({{0x01, 0xE0}}), 4},
        {"audio with descriptors, then MPEG-4 video", Ps({{0x03, 0xC0, {1, 2, 3}}, {0x10, 0xE0}}), 2},
        {"first video decides", Ps({{0x02, 0xE0}, {0x10, 0xE1}}), 4},
        {"map without video", Ps({{0x03, 0xC0}}), 6},
        {"no map", Builder().Pack().Pes(0xE0, ByteVector(100, 7)).Fill(64).Get(), 6},
        {"second map has the video", Builder().Pack().Map({{0x03, 0xC0}}).Map({{0x10, 0xE0}}).Fill(64).Get(),
         2},
        {"map whose info points outside it",
         Builder()
             .Pack()
             .Code(0xBC)
             .Word(14)
             .Bytes({0xE1, 0xFF})
             .Word(8)
             .Fill(8, 0)
             .Word(4)
             .Bytes({2, 0xE0, 0, 0})
             .Fill(64)
             .Get(),
         6},
        {"map whose entries point outside it",
         Builder()
             .Pack()
             .Code(0xBC)
             .Word(9)
             .Bytes({0xE1, 0xFF})
             .Word(0)
             .Word(4)
             .Bytes({2, 0xE0, 0, 0})
             .Fill(64)
             .Get(),
         6},
        {"map that ends with its entries, without a CRC",
         Builder().Pack().Code(0xBC).Word(10).Bytes({0xE1, 0xFF, 0, 0, 0, 4, 2, 0xE0, 0, 0}).Fill(64).Get(),
         4},
        {"map with an entry that points outside it",
         Builder().Pack().Code(0xBC).Word(14).Bytes({0xE1, 0xFF, 0, 0, 0, 4, 2, 0xE0, 0, 5}).Fill(64).Get(),
         6},
        {"no map, but MPEG-4 headers", Builder().Pack().Bytes(es).Fill(64).Get(), 0},
        {"MPEG-4 elementary stream", Builder().Bytes(es).Fill(3).Get(), 0},
        {"MPEG-4 headers too close to the end", Builder().Bytes(es).Fill(2).Get(), 6},
        {"transport, MPEG-2 video",
         Transport({TsPacket(0, Pat(1, 0x100)), TsPacket(0x100, Pmt({0x03, 0x02}))}), 3},
        {"transport, MPEG-2 audio first",
         Transport({TsPacket(0, Pat(1, 0x100)), TsPacket(0x100, Pmt({0x04, 0x02}))}), 1},
        {"transport, adaptation fields",
         Transport({TsPacket(0, Pat(1, 0x100), 7), TsPacket(0x100, Pmt({0x10}), 0)}), 1},
        {"network PID leaves the default",
         Transport({TsPacket(0, Pat(0, 0x100)), TsPacket(0x100, Pmt({0x02}))}), 6},
        {"map on the default PID", Transport({TsPacket(0, Pat(0, 0x100)), TsPacket(2, Pmt({0x02}))}), 3},
        {"PAT longer than its packet",
         Transport({TsPacket(0, Pat(1, 0x100, 183)), TsPacket(0x100, Pmt({0x02}))}), 6},
        {"PAT that fits without adaptation field only",
         Transport({TsPacket(0, Pat(1, 0x100, 180), 3), TsPacket(0x100, Pmt({0x02}))}), 6},
        {"section too late in its packet", Transport({TsPacket(2, Pmt({0x02}), 177)}), 6},
        {"transport without video", Transport({TsPacket(0, Pat(1, 0x100)), TsPacket(0x100, Pmt({0x06}))}), 6},
        {"too few packets", Transport({}), 6},
    };
    for (const auto& c : cases) EXPECT_EQ(Classify(c.bytes), c.nClass) << c.pszName;
}

TEST(StreamTypeProbe, NoPrefixOfAnyHeaderReadsPastItsEnd) {
    const ByteVector streams[] = {
        Builder().Pack().Map({{0x03, 0xC0, {1, 2}}, {0x02, 0xE0}}, true, {9, 9, 9}).Fill(40).Get(),
        Transport({TsPacket(0, Pat(1, 0x100), 20), TsPacket(0x100, Pmt({0x03, 0x02}))}),
    };
    for (const ByteVector& stream : streams) {
        for (std::size_t n = 0; n < stream.size(); ++n) {
            const ByteVector exact(stream.begin(), stream.begin() + static_cast<std::ptrdiff_t>(n));
            Classify(exact);  // under AddressSanitizer a read past the end is fatal
        }
    }
}

TEST(StreamTypeProbe, BitRateIsTheSameWhereverThePackHeaderLies) {
    for (const std::size_t nBefore :
         {0u, 32768u - 20u, 32768u - 4u, 32768u - 3u, 32768u - 1u, 32768u, 40000u}) {
        const ByteVector bytes = Builder().Fill(nBefore).Pack(25200).Map({{0x02, 0xE0}}).Fill(131072).Get();
        CMemoryReader reader(bytes);
        CStreamTypeProbe probe;
        probe.SetReader(&reader);
        EXPECT_EQ(probe.Probe(), 4) << nBefore;
        EXPECT_EQ(probe.GetBitRate(), 10080000u) << nBefore;
        EXPECT_EQ(probe.GetTotalLength(), static_cast<std::int64_t>(bytes.size()));
    }
}

TEST(StreamTypeProbe, ProgramStreamNeedsAWholeScanBuffer) {
    for (const std::size_t nSize : {32767u, 32768u}) {
        Builder builder;
        builder.Pack().Map({{0x02, 0xE0}});
        const ByteVector bytes = builder.Fill(nSize - builder.Size()).Get();
        CMemoryReader reader(bytes);
        CStreamTypeProbe probe;
        probe.SetReader(&reader);
        EXPECT_EQ(probe.Probe(), nSize < 32768 ? 6 : 4);
        EXPECT_EQ(*probe.GetMissing() != '\0', nSize < 32768);
    }
}

TEST(StartCodeScanner, FindsCodesAcrossFillings) {
    ByteVector bytes(3 * 32768, 0xFF);
    for (const std::size_t nPos : {100u, 32766u, 65533u})
        std::copy_n(ByteVector{0, 0, 1, 0xBA}.begin(), 4, bytes.begin() + static_cast<std::ptrdiff_t>(nPos));
    CMemoryReader reader(bytes);
    CStartCodeScanner scanner;
    scanner.SetReader(&reader);
    EXPECT_EQ(scanner.FindStartCode(0xFFFFFFFF), 1);
    for (const std::int64_t llPos : {100, 32766, 65533}) {
        ASSERT_EQ(scanner.FindStartCode(0x000001BA), 1);
        EXPECT_EQ(scanner.GetPosition(), llPos);
        ASSERT_EQ(scanner.FindStartCode(0xFFFFFFFF), 1);
        EXPECT_EQ(scanner.GetPosition(), llPos) << "a code of all ones moves nothing";
        scanner.SeekTo(llPos + 4);
    }
    EXPECT_EQ(scanner.FindStartCode(0x000001BA), -1);
}

TEST(StreamTypeProbe, ClassifiesRealStreams) {
    const struct {
        const char* pszFile;
        int nClass;
        std::uint32_t nBitRate;
    } cases[] = {
        {"ps_mpeg1.mpg", 4, 409600},
        {"ps_mpeg2.mpg", 4, 409600},
        {"ps_mpeg2_early_audio.mpg", 4, 409600},
        {"ps_mpeg4.mpg", 2, 409600},
        {"ps_mpeg2_packs.mpg", 4, 1800000},
        {"vob_mpeg2_nomap.mpg", 6, 0},
        {"sys_mpeg1.mpg", 5, 0},
        {"sys_mpeg1_vcd.mpg", 5, 0},
        {"ts_mpeg2.ts", 3, 0},
        {"ts_mpeg4.ts", 1, 0},
        {"es_mpeg4.m4v", 0, 0},
    };
    for (const auto& c : cases) {
        const ByteVector bytes = ReadTestData(c.pszFile);
        CMemoryReader reader(bytes);
        CStreamTypeProbe probe;
        probe.SetReader(&reader);
        EXPECT_EQ(probe.Probe(), c.nClass) << c.pszFile;
        EXPECT_EQ(probe.GetBitRate(), c.nBitRate) << c.pszFile;
    }
}

}  // namespace
}  // namespace kest
