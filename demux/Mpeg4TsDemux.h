#pragma once

#include "demux/DemuxWorker.h"
#include "demux/TsParseState.h"

namespace kest {

/// The demuxer of transport streams: the worker with a CTsParseState, in push operation. A ring of its own
/// has 2 MiB; queues of its own have 32 blocks of 262144 bytes (video) and of 32768 bytes (audio).
///
/// Each start is preceded by one of `UsePtsDtsTiming` and `UseElementaryTiming`; a run without one fails.
/// There is no bound for the end of the thread: while it waits for room in a queue that another made, `Stop`
/// waits for it; it is for the queue's owner to close or empty it before.
class KestMpeg4TsDemux final : public CDemuxWorker {
public:
    KestMpeg4TsDemux();
    ~KestMpeg4TsDemux() { EndThread(); }

    /// The timestamps of the frames in the next run are those of the PES packets. Before `Resume`.
    /// @return 0, or -1 when there is not enough memory.
    int UsePtsDtsTiming() { return m_parser.Prepare(ETsTiming::Pes); }
    /// They are those of the elementary streams.
    int UseElementaryTiming() { return m_parser.Prepare(ETsTiming::Elementary); }

private:
    using CDemuxWorker::Reset;  // a run of a transport stream has one beginning: stop and restart instead

    CTsParseState& m_parser;  // the worker's
};

}  // namespace kest
