#pragma once

#include <cstdint>
#include <filesystem>

#include "demux/SourceDescription.h"
#include "demux/StreamTypeProbe.h"
#include "host/InputReader.h"

namespace kest {

/// A file or pipe that has been opened and probed.
struct Input {
    std::filesystem::path path;  // /dev/stdin: standard input
    CComPtr<CInputReader> pReader;
    std::int64_t llLength = 0;          // bytes; 0 of a pipe
    int nClass = kClassNotRecognised;   // EStreamClass
    std::uint32_t nBitRate = 0;         // bits per second; 0 when it is not known
    std::uint8_t nVideoStreamType = 0;  // stream_type of a program stream's video
    SourceDescription description;      // by its own headers; only of an input that was opened with bDescribe
};

/// What a command can take.
enum class EAccess {
    File,        // what can be read at any position
    FileOrPipe,  // also a pipe or standard input, which can only be delivered
};

/// Opens and probes a file or pipe. Waits for the beginning of what comes through a pipe. Throws
/// CCommandError when it cannot be read or is not recognised, or the user interrupts the program.
/// @param path       "-": standard input.
/// @param bDescribe  it is described as well, and recognised by that where the probe does not: program streams
///                   without a program stream map. Its bit rate is then the measured one, where it can be.
Input OpenInput(const std::filesystem::path& path, EAccess access, bool bDescribe = false);
/// The same with a description, for those who want no more: also for a stream that the filter does not take, which
/// has class 6.
Input DescribeInput(const std::filesystem::path& path, EAccess access);

/// Whether the input is an MPEG-2 program stream, whose demuxer reads it itself.
bool IsProgramStream(const Input& input);

/// Throws CCommandError when a read of the input has failed so far, or the file has become shorter: the demuxer
/// took that for the end. To be called after a run, before its outputs are committed.
void CheckReadErrors(const Input& input);

/// The input's name with another extension. Throws CCommandError when that would lie among the system's
/// devices.
std::filesystem::path DefaultOutput(const Input& input, const char* pszExtension);

/// What a stream class is called.
const char* GetClassName(int nClass);

}  // namespace kest
