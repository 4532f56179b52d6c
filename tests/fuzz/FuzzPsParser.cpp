// libFuzzer target: the program-stream parser ends any stream by itself, within its blocks.
#include "support/CoreRunner.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nSize) {
    kest::CParserRig({pData, nSize}).Run();
    return 0;
}
