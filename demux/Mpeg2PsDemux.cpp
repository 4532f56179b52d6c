#include "demux/Mpeg2PsDemux.h"

#include "platform/DebugText.h"

namespace kest {
namespace {

constexpr DemuxSizes SizesWithBound(std::uint32_t nStopBoundMs) {
    return {.nRingSize = 2 * 1024 * 1024,
            .nMaxChunk = 65536,
            .nReadUnit = 1,
            .video = {.nMaxFrame = 524288, .nBlockSize = 524288, .nBlockCount = 6},
            .audio = {.nMaxFrame = 65536, .nBlockSize = 32768, .nBlockCount = 32},
            .nStopBoundMs = nStopBoundMs};
}

}  // namespace

KestMpeg2PsDemux::KestMpeg2PsDemux(std::uint32_t nStopBoundMs)
    : CDemuxWorker(SizesWithBound(nStopBoundMs)),
      m_parser(SetParser(std::make_unique<CMpeg2PsParser>(m_input, m_video, m_audio))) {}

void KestMpeg2PsDemux::Stop() {
    CDemuxWorker::Stop();
    Trace("Passed KestMpeg2PsDemux::Stop!!\n");
}

}  // namespace kest
