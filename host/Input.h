#pragma once

#include <cstdint>
#include <filesystem>

#include "demux/StreamTypeProbe.h"
#include "platform/FileReader.h"

namespace kest {

/// A file that has been opened and probed.
struct Input {
    std::filesystem::path path;
    CComPtr<CFileReader> pReader;
    std::int64_t llLength = 0;          // bytes
    int nClass = kClassNotRecognised;   // EStreamClass
    std::uint32_t nBitRate = 0;         // bits per second; 0 when the stream does not tell
    std::uint8_t nVideoStreamType = 0;  // stream_type of a program stream's video
};

/// Opens and probes a file. Throws CCommandError when it cannot be read or is not recognised.
Input OpenInput(const std::filesystem::path& path);

/// Throws CCommandError unless the input is a program stream that the demux core takes.
void RequireProgramStream(const Input& input);

/// What a stream class is called.
const char* GetClassName(int nClass);

}  // namespace kest
