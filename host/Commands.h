// The commands of the program. Each takes its options, prints its result and throws CCommandError when it
// cannot do its work.
#pragma once

#include <optional>
#include <string>

namespace kest {

struct ProbeOptions {
    std::string strFile;
    bool bJson = false;
};
/// Prints what the probe says of a file: class, name, bit rate, length, estimated duration.
void RunProbe(const ProbeOptions& options);

struct FramesOptions {
    std::string strFile;
    bool bJson = false;
};
/// Lists every record that the demux core queues, the two end-of-stream records included. In order within
/// each stream; the streams interleave as it comes.
void RunFrames(const FramesOptions& options);

struct SamplesOptions {
    std::string strFile;
    bool bJson = false;
    std::optional<double> dSeek;  // media time to begin at, seconds
    std::string strModule;        // module of the demultiplexer; empty: see LoadDemuxModule
};
/// Lists every sample and every announcement that leaves the output pins, with its times. In order within
/// each pin; the pins interleave as it comes.
void RunSamples(const SamplesOptions& options);

struct DemuxOptions {
    std::string strFile;
    std::string strVideo;  // output name, "-" for standard output; empty: derived from the input's name
    std::string strAudio;
    bool bForce = false;    // overwrite files that exist
    std::string strModule;  // as above
};
/// Writes the payloads of the two elementary streams into a file each.
void RunDemux(const DemuxOptions& options);

/// Has the demultiplexer's module enter itself into the user's list of modules.
/// @param strModule  its file; empty: see LoadDemuxModule.
void RunRegister(const std::string& strModule);
/// Has it take itself out; takes the entry of a file out that is not there any more.
void RunUnregister(const std::string& strModule);

}  // namespace kest
