// What the host does of itself: finds the filter for a file, decodes what comes out of it.
#include "Cases.h"
#include "ModuleGraph.h"

namespace kest {

std::string CheckIntelligentConnection(Arguments arguments) {
    CModuleGraph graph;
    Require(graph.BuildByHost(arguments[0]) == kFilterClass, "the host takes another filter for the file");
    graph.Run();
    graph.WaitForEnd();
    for (const EStream stream : kStreams) {
        Require(graph.GetRecorder().GetSamples(stream).size() > 1, "a rendered stream does not come");
    }
    return "found by its merit";
}

std::string CheckAudioDecoder(Arguments arguments) {
    CRef<IBaseFilter> pDecoder;
    if (FAILED(CoCreateInstance(CLSID_CMpegAudioCodec, nullptr, CLSCTX_INPROC_SERVER, __uuidof(IBaseFilter),
                                pDecoder.PutVoid()))) {
        return "no audio decoder";
    }
    CModuleGraph graph;
    graph.BuildWithDecoder(arguments[0], pDecoder);
    Require(graph.GetWaveFormat(EStream::Audio).wFormatTag == WAVE_FORMAT_PCM, "the sound is not PCM");
    graph.Run();
    graph.WaitForEnd();
    const std::vector<SampleRecord> pieces = graph.GetRecorder().GetSamples(EStream::Audio);
    Require(!pieces.empty() && pieces.front().nSize > 0, "the audio decoder gives nothing");
    return "audio decoder: " + std::to_string(pieces.size()) + " pieces";
}

}  // namespace kest
