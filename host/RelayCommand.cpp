#include <algorithm>
#include <cinttypes>
#include <cstdio>

#include "host/CommandError.h"
#include "host/Commands.h"
#include "host/DemuxGraph.h"
#include "host/ProgramSwitches.h"
#include "host/StatusClient.h"

namespace kest {
namespace {

constexpr std::uint32_t kPostMs = 1000;  // for a record of somebody else that is in the way

/// Counts what leaves one output pin.
class CCounting final : public ISinkHandler {
public:
    void OnSample(IMediaSample& sample) override {
        ++m_nSamples;
        m_nBytes += GetPayload(sample).size();
    }
    void PrintSummary(EStream stream) const {
        std::fprintf(stderr, "%s: %" PRIu64 " samples, %" PRIu64 " bytes\n", GetStreamName(stream),
                     m_nSamples, m_nBytes);
    }

private:
    std::uint64_t m_nSamples = 0;
    std::uint64_t m_nBytes = 0;
};

/// Bytes a second; 0: as fast as they are taken.
double GetRate(const Input& input, double dSpeed) {
    if (dSpeed > 0 && input.nBitRate == 0) {
        throw CCommandError(kExitBadInput,
                            input.path.string() + ": the bit rate is not known; give --speed 0");
    }
    return dSpeed * input.nBitRate / 8;
}

/// Applies the filter's settings of forwarding as they are now. @return them.
SHARED_STATUS ApplySettings(CDemuxGraph& graph) {
    SHARED_STATUS status;
    graph.Require(graph.GetControl().ApplySendSettings(), "cannot apply the filter's settings");
    graph.Require(graph.GetControl().get_SharedStatus(&status), "cannot read the filter's settings");
    // Applying has also posted them. Nobody else who runs a filter is to take them.
    CStatusClient client;
    if (client.Open()) client.TakeBack();
    return status;
}

/// Sets the filter up to forward, before anything comes in.
void SetUp(CDemuxGraph& graph, const RelayOptions& options, const Destination& to) {
    IKestDemux2Control& control = graph.GetControl();
    constexpr const char* kWhat = "cannot change the filter's settings";
    constexpr const char* kNoStatus = "the filter's shared status cannot be made";
    graph.Require(control.put_SendAddress(to.dwAddr), kWhat);
    graph.Require(control.put_SendPort(to.nPort), kWhat);
    if (options.nLocalPort) graph.Require(control.put_LocalPort(*options.nLocalPort), kWhat);
    graph.Require(control.put_Sending(1), kWhat);
    graph.Require(control.put_LocalView(options.nLocalPort.has_value()), kWhat);
    if (!options.bDemux) graph.Require(control.put_DisableDemux(1), kNoStatus);
    SHARED_STATUS status = ApplySettings(graph);
    if (!options.nChunkKB) return;
    status.settings.nChunkKB = *options.nChunkKB;  // only a posted record can change it
    CStatusClient client;
    if (!client.Open()) graph.Require(E_FAIL, kNoStatus);
    if (!client.Post(status, kPostMs)) graph.Require(E_FAIL, "cannot set the size of datagrams");
}

/// Only while all datagrams have the same size is it known what the last one lacked.
/// @param settings  as they are at the end; others may have posted anything.
void PrintSent(const SEND_SETTINGS& settings, const RelayOptions& options) {
    const int nChunkKB = std::clamp(settings.nChunkKB, 1, kMaxChunkKB);
    if (nChunkKB != options.nChunkKB.value_or(SEND_SETTINGS{}.nChunkKB)) {
        std::fprintf(stderr,
                     "sent: %" PRIu64
                     " bytes in datagrams of several sizes; less than %d KiB of them left behind\n",
                     settings.llBytesSent, nChunkKB);
        return;
    }
    const std::uint64_t nTail = settings.llBytesSent % (static_cast<std::uint64_t>(nChunkKB) * 1024);
    std::fprintf(stderr, "sent: %" PRIu64 " bytes in datagrams of %d KiB; %" PRIu64 " bytes left behind\n",
                 settings.llBytesSent - nTail, nChunkKB, nTail);
}

}  // namespace

void RunRelay(const RelayOptions& options) {
    const auto to = ParseDestination(options.strTo);
    if (!to) throw CCommandError(kExitBadUsage, "--to: " + options.strTo + " is not an ADDRESS:PORT");
    const Input input = OpenInput(options.strFile, EAccess::FileOrPipe, !options.bPlain);
    CCounting video, audio;
    CDemuxGraph graph(input, CProgramSwitches(options, input), options.bDemux ? &video : nullptr,
                      options.bDemux ? &audio : nullptr,
                      {.strModule = options.strModule,
                       .dBytesPerSecond = GetRate(input, options.dSpeed),
                       .bQuiet = options.bQuiet});
    SetUp(graph, options, *to);
    graph.RunToEnd();
    const SEND_SETTINGS settings = ApplySettings(graph).settings;
    if (options.bQuiet) return;
    PrintSent(settings, options);
    if (!options.bDemux) return;
    video.PrintSummary(EStream::Video);
    audio.PrintSummary(EStream::Audio);
}

}  // namespace kest
