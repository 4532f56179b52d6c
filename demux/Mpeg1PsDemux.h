#pragma once

#include <cstdint>

#include "demux/DemuxWorker.h"
#include "demux/Mpeg1SystemParser.h"

namespace kest {

/// The demuxer of MPEG-1 system streams: the worker with a CMpeg1SystemParser. It parses what is pushed, in
/// whole 4096 bytes: the rest at the end of a stream is not parsed. A ring of its own has 2 MiB; queues of its
/// own have 32 blocks of 262144 bytes (video) and of 32768 bytes (audio).
///
/// `Stop` waits for the thread without limit: the readers of queues that are not its own must have been
/// closed, or go on reading.
class KestMpeg1PsDemux final : public CDemuxWorker {
public:
    KestMpeg1PsDemux();
    ~KestMpeg1PsDemux() { EndThread(); }

    /// The sequence header of the video, for the video pin's media type. Any thread.
    const CSequenceHeaderCapture& GetSequenceHeader() const { return m_parser.GetSequenceHeader(); }

private:
    const CMpeg1SystemParser& m_parser;  // the worker's
};

}  // namespace kest
