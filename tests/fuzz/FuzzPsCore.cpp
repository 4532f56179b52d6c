// libFuzzer target: the pull core ends any stream by itself, within its blocks.
#include "support/CoreRunner.h"
#include "support/MemoryReader.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nSize) {
    kest::CMemoryReader reader({pData, nSize});
    const kest::Frames frames = kest::RunPullCore(reader, static_cast<std::int64_t>(nSize));
    const bool bEnded = !frames.video.empty() && frames.video.back().info.bEndOfStream &&
                        !frames.audio.empty() && frames.audio.back().info.bEndOfStream;
    if (!bEnded) __builtin_trap();
    return 0;
}
