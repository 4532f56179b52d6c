// libFuzzer target: any bytes, as they are and behind tables, are parsed as a transport stream to their end.
#include "support/TransportStream.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nSize) {
    static kest::CTsRig rig(/*bRead=*/false);
    rig.SetSettings({.nVideoStream = nSize % 3 ? -1 : 0x101, .bDrain = nSize % 4 > 1});
    rig.Run({pData, nSize});
    kest::CTransportStreamBuilder b;
    b.Tables(nSize % 2 == 0).Add({pData, pData + nSize});
    rig.Run(b.Get(), kest::ETsTiming::Elementary);
    return 0;
}
