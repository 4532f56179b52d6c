// libFuzzer target: an elementary stream gives the same units however it is cut into parts, and all of its bytes
// when it is drained.
#include "support/CoreRunner.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nSize) {
    const kest::Bytes data(pData, nSize);
    const std::size_t nPart = nSize > 0 ? pData[0] + 1U : 1;
    if (kest::FrameUnits(data, nPart) != kest::FrameUnits(data, 1)) __builtin_trap();
    const kest::ByteVector drained = Join(kest::FrameUnits(data, nPart, /*bDrain=*/true));
    if (!std::equal(drained.begin(), drained.end(), data.begin(), data.end())) __builtin_trap();
    return 0;
}
