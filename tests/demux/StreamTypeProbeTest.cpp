#include "demux/StreamTypeProbe.h"

#include <gtest/gtest.h>

#include <limits>

#include "support/MemoryReader.h"
#include "support/ProgramStreamBuilder.h"

namespace kest {
namespace {

const std::string kMp2Map = " 00 00 01 BC 00 0E E1 FF 00 00 00 04 02 E0 00 00 01 02 03 04 ";
const std::string kPat = "47 40 00 10 00 00 B0 0D 00 01 C1 00 00 00 01 E1 00 | ";
const std::string kNetworkPat = "47 40 00 10 00 00 B0 0D 00 01 C1 00 00 00 00 E1 00 | ";
const std::string kVideoPmt = "47 41 00 10 00 02 B0 14 00 01 C1 00 00 E1 00 F0 00 02 E1 00 F0 02 0A 0B";
const std::string kNulls = " | 47 1F FF 10 | 47 1F FF 10 | 47 1F FF 10 | 47 1F FF 10 | 47 1F FF 10 |";

TEST(StreamTypeProbe, ClassifiesBlocks) {
    const struct {
        int nClass;
        std::string strBlock;
    } cases[] = {
        {6, ""},
        {5, "00 00 01 BA 21 *64"},
        {6, "00 00 01 BA 81 *64"},  // neither of MPEG-1 nor of MPEG-2
        {6, "00 00 01 BA 21 *19"},  // too close to the end
        {5, "00 00 01 BA 21 *20"},
        {4, "pack" + kMp2Map + "*64"},
        {4, "pack 00 00 01 BC 00 0E E1 FF 00 00 00 04 01 E0 00 00 *64"},  // MPEG-1 video
        {4,
         "pack 00 00 01 BC 00 12 E1 FF 00 00 00 08 02 E0 00 00 10 E1 00 00 *64"},  // the first video decides
        {2, "pack 00 00 01 BC 00 14 E1 FF 00 00 00 0A 03 C0 00 02 01 02 10 E0 00 00 *64"},
        {6, "pack 00 00 01 BC 00 0E E1 FF 00 00 00 04 03 C0 00 00 *64"},  // no video
        {6, "pack v1:9x7 *64"},                                           // no map
        {4, "pack 00 00 01 BC 00 0E E1 FF 00 00 00 04 03 C0 00 00 01 02 03 04" + kMp2Map + "*64"},
        {6, "pack 00 00 01 BC 00 0E E1 FF 00 08 00 00 00 00 00 00 00 00 00 04 02 E0 00 00 *64"},  // info
        {6, "pack 00 00 01 BC 00 09 E1 FF 00 00 00 04 02 E0 00 00 *64"},  // entries too long
        {6, "pack 00 00 01 BC 00 0E E1 FF 00 00 00 04 02 E0 00 05 *64"},  // an entry too long
        {4, "pack 00 00 01 BC 00 0A E1 FF 00 00 00 04 02 E0 00 00 *64"},  // no room for a CRC
        {0, "pack 00 00 01 00 00 00 01 20 *64"},
        {0, "00 00 01 00 00 00 01 20 *3"},
        {6, "00 00 01 00 00 00 01 20 *2"},  // too close to the end
        {3,
         kPat + "47 41 00 10 00 02 B0 17 00 01 C1 00 00 E1 00 F0 00 03 E1 00 F0 00 02 E1 00 F0 00" + kNulls},
        {1,
         kPat + "47 41 00 10 00 02 B0 17 00 01 C1 00 00 E1 00 F0 00 04 E1 00 F0 00 02 E1 00 F0 00" + kNulls},
        {1,
         "47 40 00 30 02 FF FF 00 00 B0 0D 00 01 C1 00 00 00 01 E1 00 | "  // adaptation fields
         "47 41 00 30 00 00 02 B0 14 00 01 C1 00 00 E1 00 F0 02 0A 0B 10 E1 00 F0 00" +
             kNulls},
        {6, kPat + "47 41 00 10 00 02 B0 12 00 01 C1 00 00 E1 00 F0 00 06 E1 00 F0 00" + kNulls},  // no video
        {6, kNetworkPat + kVideoPmt + kNulls},
        {3, kNetworkPat + "47 40 02 10 00 02 B0 12 00 01 C1 00 00 E1 00 F0 00 02 E1 00 F0 00" + kNulls},
        {6, "47 40 00 10 00 00 B0 B7 00 01 C1 00 00 00 01 E1 00 | " + kVideoPmt + kNulls},  // PAT too long
        {6, "47 40 00 30 03 FF FF FF 00 00 B0 B4 00 01 C1 00 00 00 01 E1 00 | " + kVideoPmt + kNulls},
        {6, "47 40 02 30 B1 |" + kNulls},  // the section begins too late
    };
    for (const auto& c : cases) {
        const ByteVector block = Stream(c.strBlock);
        EXPECT_EQ(CStreamTypeProbe().ClassifyHeader(block), c.nClass) << c.strBlock;
        for (auto end = block.begin(); end != block.end();
             ++end) {  // AddressSanitizer sees a read past the end
            CStreamTypeProbe().ClassifyHeader(ByteVector(block.begin(), end));
        }
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

int Probe(IAsyncReader& reader) {
    CStreamTypeProbe probe;
    probe.SetReader(&reader);
    const int nClass = probe.Probe();
    EXPECT_EQ(probe.GetBitRate(), nClass == 4 ? 10080000u : 0u);
    EXPECT_EQ(*probe.GetMissing() == '\0', nClass == 4);
    EXPECT_GE(probe.GetTotalLength(), 0);
    return nClass;
}

TEST(StreamTypeProbe, ReadsTheBitRateOfWhateverItIsGiven) {
    const std::size_t cases[][3] = {
        // place of the pack header, size, class: a whole filling begins with the header
        {0, 32768, 4},     {0, 32767, 6},     {32748, 65536, 4}, {32764, 65536, 4}, {32764, 65531, 6},
        {32765, 65536, 4}, {32767, 65536, 4}, {32767, 65535, 6}, {40000, 65536, 4}, {40000, 65535, 6}};
    for (const auto& [nBefore, nSize, nClass] : cases) {
        ByteVector bytes = Stream("*" + std::to_string(nBefore) + " pack" + kMp2Map);
        bytes.resize(nSize);
        CMemoryReader reader(bytes);
        EXPECT_EQ(Probe(reader), static_cast<int>(nClass)) << nBefore << " in " << nSize;
    }
    using Limits = std::numeric_limits<LONGLONG>;
    const ByteVector bytes = Stream("pack" + kMp2Map + "*100");
    for (const LONGLONG llLength : {Limits::min(), LONGLONG{-1}, LONGLONG{0}, LONGLONG{128}, Limits::max()}) {
        for (const bool bForgets : {false, true}) {
            CHostileReader reader(bytes, llLength, bForgets);
            EXPECT_EQ(Probe(reader), llLength > 0 && !bForgets ? 4 : 6) << llLength;
        }
    }
}

}  // namespace
}  // namespace kest
