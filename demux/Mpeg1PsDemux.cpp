#include "demux/Mpeg1PsDemux.h"

namespace kest {
namespace {

constexpr DemuxSizes kSizes = {.nRingSize = 2 * 1024 * 1024,
                               .nMaxChunk = 32768,
                               .nReadUnit = 4096,
                               .video = {.nMaxFrame = 163840, .nBlockSize = 262144, .nBlockCount = 32},
                               .audio = {.nMaxFrame = 65536, .nBlockSize = 32768, .nBlockCount = 32},
                               .nStopBoundMs = kInfinite};

}  // namespace

KestMpeg1PsDemux::KestMpeg1PsDemux()
    : CDemuxWorker(kSizes),
      m_parser(SetParser(std::make_unique<CMpeg1SystemParser>(m_input, m_video, m_audio))) {}

}  // namespace kest
