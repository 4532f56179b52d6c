#pragma once

#include <cstdint>

#include "demux/DemuxWorker.h"
#include "demux/Mpeg2PsParser.h"

namespace kest {

/// The demuxer of MPEG-2 program streams: the worker with a CMpeg2PsParser. A ring of its own has 2 MiB;
/// queues of its own have 6 blocks of 524288 bytes (video) and 32 blocks of 32768 bytes (audio).
class KestMpeg2PsDemux : public CDemuxWorker {
public:
    void Stop() override;

    /// An MPEG_program_end_code was met since the start or the last reset, be it that the thread has still to carry
    /// that out. Any thread.
    bool HasMetEndCode() const { return m_parser.HasMetEndCode() && !IsResetPending(); }

protected:
    /// @param nStopBoundMs  see DemuxSizes.
    explicit KestMpeg2PsDemux(std::uint32_t nStopBoundMs);
    ~KestMpeg2PsDemux() = default;

private:
    const CMpeg2PsParser& m_parser;  // the worker's
};

}  // namespace kest
