// libFuzzer target: any source is classified and described without a fault, and what is described can be printed.
#include "demux/SourceAnalyzer.h"
#include "demux/StreamTypeProbe.h"
#include "support/MemoryReader.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nSize) {
    kest::CMemoryReader reader({pData, nSize});
    kest::CStreamTypeProbe probe;
    probe.SetReader(&reader);
    const int nClass = probe.Probe();
    if (nClass < 0 || nClass > 6) __builtin_trap();

    const kest::SourceDescription description = kest::CSourceAnalyzer::Describe(&reader);
    for (const kest::StreamDescription& stream : description.streams) {
        const kest::VideoFormat& video = stream.video;
        if (video.abHeader.size() > 4096 || (video.IsKnown() && video.nHeight == 0)) __builtin_trap();
        if (stream.audio.IsKnown() && (stream.audio.nChannels == 0 || stream.audio.nLayer > 3))
            __builtin_trap();
        if (stream.GetDuration() < -1 || stream.llLastPts >= std::int64_t{1} << 33) __builtin_trap();
    }
    if (description.GetDuration() < -1 || description.GetStreamClass() > 6) __builtin_trap();
    return 0;
}
