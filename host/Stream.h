#pragma once

namespace kest {

/// The two streams that the demultiplexer separates.
enum class EStream { Video, Audio };

/// What listings call a stream: "video" or "audio".
constexpr const char* GetStreamName(EStream stream) { return stream == EStream::Video ? "video" : "audio"; }

}  // namespace kest
