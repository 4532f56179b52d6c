// libFuzzer target: any source is classified without a fault.
#include "demux/StreamTypeProbe.h"
#include "support/MemoryReader.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nSize) {
    kest::CMemoryReader reader({pData, nSize});
    kest::CStreamTypeProbe probe;
    probe.SetReader(&reader);
    const int nClass = probe.Probe();
    if (nClass < 0 || nClass > 6) __builtin_trap();
    return 0;
}
