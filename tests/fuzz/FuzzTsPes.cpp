// libFuzzer target: the payloads of a video and an audio stream are assembled, split and timed in both ways. The
// first byte of 33 chooses the stream and whether a unit starts; the others are the payload.
#include "support/TransportStream.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nSize) {
    using kest::ETsTiming;
    constexpr std::size_t kRecord = 33;
    static kest::CTsRig rig(/*bRead=*/false);
    kest::CTransportStreamBuilder b;
    b.Tables(nSize % 2 == 0);
    for (kest::Bytes rest(pData, nSize); !rest.empty();) {
        const kest::Bytes record = rest.first(std::min(rest.size(), kRecord));
        b.Packet(record[0] & 1 ? b.kVideoPid : b.kAudioPid, record[0] & 2, record.subspan(1));
        rest = rest.subspan(record.size());
    }
    const kest::ByteVector bytes = b.Get();
    for (const bool bDrain : {false, true}) {
        rig.SetSettings({.bDrain = bDrain});
        for (const ETsTiming timing : {ETsTiming::Pes, ETsTiming::Elementary}) rig.Run(bytes, timing);
    }
    return 0;
}
