// libFuzzer target: the program-stream parser ends any stream by itself, within its blocks, with extensions too.
#include "support/CoreRunner.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nSize) {
    const kest::Bytes data(pData, nSize);
    kest::CParserRig(data).Run();
    kest::CTestQueue video(500), audio(500);
    for (kest::CTestQueue* pQueue : {&video, &audio}) pQueue->RClose(0);  // nobody holds a writer up
    const std::int32_t nStream =
        nSize % 2 == 0 ? kest::kFirstKnownStream : kest::kAllStreams;
    kest::CParserRig rig(
        data, {.bAssumeMap = true, .nVideoStream = nStream, .nAudioStream = nStream, .bDrain = true}, &video,
        &audio);
    rig.Run();
    for (kest::CFrameOutput* pOutput : {&rig.m_video, &rig.m_audio}) {
        if (pOutput->GetCounters().nCut > 0 || pOutput->GetCounters().llBytesLost > 0) __builtin_trap();
    }
    return 0;
}
