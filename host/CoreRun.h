#pragma once

#include <cstdint>
#include <functional>
#include <limits>
#include <span>

#include "demux/FrameInfo.h"
#include "demux/ParseSettings.h"
#include "demux/TsVideoClock.h"
#include "host/Input.h"
#include "host/Stream.h"

namespace kest {

/// Takes one record that the demuxer queued, with its payload. Called on a thread per stream; what it throws
/// ends the run.
using FrameHandler =
    std::function<void(EStream stream, const FRAME_INFO& info, std::span<const std::uint8_t> payload)>;

/// How an input is played.
struct CoreOptions {
    ParseSettings settings = {};        // of the demuxer
    ETsTiming timing = ETsTiming::Pes;  // where the timestamps of a transport stream's frames come from
    double dRate = 1.0;       // one that the demuxer takes; another than 1.0 for a program stream only
    std::int64_t llFrom = 0;  // byte to begin at, the same
    std::uint64_t nCount =
        std::numeric_limits<std::uint64_t>::max();  // frames after which it ends, at least 1
    bool bQuiet = false;                            // no progress is shown
};

/// Runs the demuxer of the input's class over the whole input, passes every record of both streams to the
/// handler, and returns when both streams have ended. Shows progress on a terminal.
///
/// A program stream's demuxer reads the input itself, and ends each stream with a record. To the others' the
/// input is pushed, with bDrain to its end; when it has taken what it can, it is stopped, and the frames that it then
/// queues are the last ones. At other rates than 1.0 streams do not end: there the run ends when nothing came for 500 ms and
/// nothing was left to scan.
///
/// Throws what the handler threw, and CCommandError when the user interrupted it, the input could not be read to
/// its end or the demuxer could not be run.
void RunCore(const Input& input, const CoreOptions& options, const FrameHandler& handler);

}  // namespace kest
