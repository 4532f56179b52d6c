// Big-endian fields of stream headers. The caller has checked that they lie inside `bytes`.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace kest {

/// A view of stream bytes.
using Bytes = std::span<const std::uint8_t>;

/// The 16-bit field at nIndex.
inline std::uint16_t Read16(Bytes bytes, std::size_t nIndex) {
    return static_cast<std::uint16_t>(bytes[nIndex] << 8 | bytes[nIndex + 1]);
}

/// The 24-bit field at nIndex.
inline std::uint32_t Read24(Bytes bytes, std::size_t nIndex) {
    return static_cast<std::uint32_t>(bytes[nIndex]) << 16 | Read16(bytes, nIndex + 1);
}

/// The bytes from nIndex on; none when it lies behind the end.
inline Bytes BytesFrom(Bytes bytes, std::size_t nIndex) {
    return bytes.subspan(nIndex < bytes.size() ? nIndex : bytes.size());
}

}  // namespace kest
