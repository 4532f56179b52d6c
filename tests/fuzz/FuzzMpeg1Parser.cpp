// libFuzzer target: the parser of MPEG-1 system streams ends any stream by itself, within its blocks.
#include "support/CoreRunner.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nSize) {
    kest::CMpeg1Rig({pData, nSize}).Run();
    kest::CMpeg1Rig({pData, nSize}, {.nAudioStream = 0, .bDrain = true, .bAnyAudioHeader = nSize % 2 == 0})
        .Run();
    return 0;
}
