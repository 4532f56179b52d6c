#include "demux/Mpeg4TsDemux.h"

namespace kest {
namespace {

constexpr DemuxSizes kSizes = {
    .nRingSize = 2 * 1024 * 1024,
    .nMaxChunk = 32768,
    .nReadUnit = 1,
    .video = {.nMaxFrame = CPesBuffer::kLeastCapacity, .nBlockSize = 262144, .nBlockCount = 32},
    .audio = {.nMaxFrame = CPesBuffer::kLeastCapacity, .nBlockSize = 32768, .nBlockCount = 32},
    .nStopBoundMs = kInfinite};

}  // namespace

KestMpeg4TsDemux::KestMpeg4TsDemux()
    : CDemuxWorker(kSizes), m_parser(SetParser(std::make_unique<CTsParseState>(m_input, m_video, m_audio))) {}

}  // namespace kest
