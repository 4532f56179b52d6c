// Damaged streams: whatever is broken, the core ends by itself, and every frame before the damage still comes
// out. With KEST_DAMAGE set to anything, every cut and every block is tried instead of a seeded choice.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <random>

#include "demux/StreamTypeProbe.h"
#include "support/CoreRunner.h"
#include "support/MemoryReader.h"
#include "support/TestData.h"

namespace kest {
namespace {

constexpr std::size_t kBlock = 4096;

std::size_t StepOf(std::size_t nSeeded) { return std::getenv("KEST_DAMAGE") ? 1 : nSeeded; }

Frames Demux(const ByteVector& bytes) {
    CMemoryReader reader(bytes);
    CStreamTypeProbe probe;
    probe.SetReader(&reader);
    probe.Probe();
    return RunPullCore(reader, static_cast<std::int64_t>(bytes.size()));
}

/// Every frame whose successor begins, with its header, before nDamage must be there as it was.
void ExpectUntouchedBefore(std::size_t nDamage, const std::vector<Frame>& whole,
                           const std::vector<Frame>& damaged) {
    constexpr std::int64_t kMargin = 2048;  // what a look of the resynchronisation needs behind the successor
    for (std::size_t i = 0; i + 2 < whole.size(); ++i) {
        if (whole[i + 1].info.llFilePos + kMargin > static_cast<std::int64_t>(nDamage)) return;
        ASSERT_LT(i, damaged.size());
        ASSERT_TRUE(damaged[i] == whole[i]) << "frame " << i;
    }
}

void ExpectSurvives(const ByteVector& bytes, std::size_t nDamage, const Frames& whole) {
    const Frames frames = Demux(bytes);
    ExpectUntouchedBefore(nDamage, whole.video, frames.video);
    ExpectUntouchedBefore(nDamage, whole.audio, frames.audio);
    ASSERT_FALSE(frames.video.empty());
    ASSERT_FALSE(frames.audio.empty());
    EXPECT_TRUE(frames.video.back().info.bEndOfStream);
    EXPECT_TRUE(frames.audio.back().info.bEndOfStream);
}

class Damage : public testing::TestWithParam<const char*> {
protected:
    const ByteVector m_bytes = ReadTestData(GetParam());
    const Frames m_whole = Demux(m_bytes);
    std::mt19937 m_random{20240229};
};

TEST_P(Damage, CutShort) {
    for (std::size_t nCut = 1; nCut <= 3000; nCut += StepOf(53)) {
        const std::size_t nSize = m_bytes.size() - nCut;
        ExpectSurvives(ByteVector(m_bytes.begin(), m_bytes.begin() + static_cast<std::ptrdiff_t>(nSize)),
                       nSize & ~std::size_t{16383}, m_whole);
    }
}

TEST_P(Damage, BlocksZeroedOrRandom) {
    for (std::size_t nBlock = 0; nBlock < m_bytes.size(); nBlock += kBlock * StepOf(13)) {
        const std::size_t nEnd = std::min(nBlock + kBlock, m_bytes.size());
        ByteVector bytes = m_bytes;
        std::fill(bytes.begin() + static_cast<std::ptrdiff_t>(nBlock),
                  bytes.begin() + static_cast<std::ptrdiff_t>(nEnd), 0);
        ExpectSurvives(bytes, nBlock, m_whole);
        for (std::size_t i = nBlock; i < nEnd; ++i) bytes[i] = static_cast<std::uint8_t>(m_random());
        ExpectSurvives(bytes, nBlock, m_whole);
    }
}

TEST_P(Damage, StartCodesShuffled) {
    std::vector<std::size_t> positions;  // of the byte behind each prefix
    for (std::size_t i = 3; i < m_bytes.size(); ++i) {
        if (m_bytes[i - 3] == 0 && m_bytes[i - 2] == 0 && m_bytes[i - 1] == 1) positions.push_back(i);
    }
    for (std::size_t i = 0; i < 64 / StepOf(8); ++i) {
        ByteVector codes;
        for (std::size_t nPos : positions) codes.push_back(m_bytes[nPos]);
        std::shuffle(codes.begin(), codes.end(), m_random);
        ByteVector bytes = m_bytes;
        for (std::size_t k = 0; k < positions.size(); ++k) bytes[positions[k]] = codes[k];
        ExpectSurvives(bytes, 0, m_whole);
    }
}

INSTANTIATE_TEST_SUITE_P(RealStreams, Damage,
                         testing::Values("ps_mpeg1.mpg", "ps_mpeg2.mpg", "ps_mpeg2_early_audio.mpg",
                                         "ps_mpeg4.mpg", "ps_mpeg2_packs.mpg"),
                         [](const auto& instance) {
                             std::string strName = instance.param;
                             return strName.substr(0, strName.find('.'));
                         });

}  // namespace
}  // namespace kest
