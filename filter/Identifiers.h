// The filter's own identifiers.
#pragma once

#include "platform/api/Types.h"

namespace kest {

/// The class of the filter.
constexpr CLSID kFilterClass = {0xF7DB4970, 0x3AB8, 0x8BC1, {0x2F, 0xD6, 0xD8, 0x23, 0x31, 0xF2, 0x00, 0x00}};

/// Subtype of MEDIATYPE_Stream: a program stream with MPEG-4 video.
constexpr GUID kSubtypeMpeg4ProgramStream = {
    0x8A701D7A, 0x458C, 0x4F66, {0x80, 0xF7, 0x49, 0xB8, 0x9D, 0xDE, 0xC2, 0xEA}};

}  // namespace kest
