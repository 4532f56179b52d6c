#pragma once

#include <cstdint>
#include <span>

namespace kest {

/// What a stream input asks of its source.
struct FetchRequest {
    std::span<std::uint8_t> room;  // where the bytes are to go; at least nMissing and at least 65536 bytes
    std::int64_t llPosition;       // offset in the source of the first of them
    std::uint32_t nMissing;        // bytes without which the parser cannot go on, at least 1
    std::uint32_t nWanted;         // bytes that the parser asked for: those missing and those that it has
};

/// Where a stream input's bytes come from.
class CByteSource {
public:
    /// Brings bytes of the stream, fewer than are missing or more, waiting for them if need be.
    /// @return their number; 0 when there are none to be had for this request.
    virtual std::uint32_t Fetch(const FetchRequest& request) = 0;

protected:
    ~CByteSource() = default;
};

}  // namespace kest
