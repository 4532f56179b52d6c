#pragma once

#include <optional>

#include "demux/BigEndian.h"
#include "demux/SourceDescription.h"

namespace kest {

/// What a video elementary stream is by its headers.
struct VideoHeaders {
    ECodec codec = ECodec::Unknown;
    VideoFormat format;
};

/// Finds the first whole set of headers in a video elementary stream, wherever it begins: an MPEG-1 or MPEG-2
/// sequence header with the extensions behind it, or an MPEG-4 video object layer. What cannot be a header by its
/// fields is passed over. The set is whole when another start code follows it.
/// @return nothing when there is none.
std::optional<VideoHeaders> FindVideoHeaders(Bytes bytes);

}  // namespace kest
