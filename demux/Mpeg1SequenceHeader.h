#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <mutex>

#include "demux/BigEndian.h"

namespace kest {

/// An MPEG-1 video sequence header with both quantiser matrices (ISO/IEC 11172-2 2.4.2.3).
using Mpeg1SequenceHeader = std::array<std::uint8_t, 140>;

/// The one that stands for a stream whose own is not known: 352 x 240, pel_aspect_ratio 2, picture_rate 4,
/// 1500000 bit/s, vbv_buffer_size 20, constrained, the default intra matrix, a flat non-intra matrix.
inline constexpr Mpeg1SequenceHeader kDefaultSequenceHeader = [] {
    constexpr std::array<std::uint8_t, 76> kHead = {
        0x00, 0x00, 0x01, 0xb3, 0x16, 0x00, 0xf0, 0x24, 0x03, 0xa9, 0xa0, 0xa6, 0x10, 0x20, 0x20, 0x26,
        0x20, 0x26, 0x2c, 0x2c, 0x2c, 0x2c, 0x2c, 0x2c, 0x34, 0x30, 0x34, 0x36, 0x36, 0x36, 0x34, 0x34,
        0x34, 0x34, 0x36, 0x36, 0x36, 0x3a, 0x3a, 0x3a, 0x44, 0x44, 0x44, 0x3a, 0x3a, 0x3a, 0x36, 0x36,
        0x3a, 0x3a, 0x40, 0x40, 0x44, 0x44, 0x4a, 0x4c, 0x4a, 0x46, 0x46, 0x44, 0x46, 0x4c, 0x4c, 0x50,
        0x50, 0x50, 0x60, 0x60, 0x5c, 0x5c, 0x70, 0x70, 0x74, 0x8a, 0x8a, 0xa7};
    Mpeg1SequenceHeader header{};
    std::copy(kHead.begin(), kHead.end(), header.begin());
    std::fill(header.begin() + kHead.size(), header.end(), std::uint8_t{0x10});
    return header;
}();

/// What a sequence header says.
struct Mpeg1SequenceFields {
    std::uint16_t horizontal_size = 0;  // pixels
    std::uint16_t vertical_size = 0;    // pixels
    std::uint8_t pel_aspect_ratio = 0;  // code
    std::uint32_t nBitRate = 0;         // bit/s
    std::uint32_t nVbvBufferSize = 0;   // bytes

    friend bool operator==(const Mpeg1SequenceFields&, const Mpeg1SequenceFields&) = default;
};

/// Reads the fields in front of the matrices.
Mpeg1SequenceFields ParseSequenceHeader(const Mpeg1SequenceHeader& header);

/// The sequence header that a stream had last, kept by its demuxer for the video pin. `Reset` and `Capture`
/// belong to the demuxer, the rest may come from any thread.
class CSequenceHeaderCapture {
public:
    /// Back to the default header, unchanged.
    void Reset();
    /// Takes the header that the payload begins with, when it does and has all of its bytes. What stands there
    /// in the place of matrices that the stream does not have is taken with it.
    void Capture(Bytes payload);

    Mpeg1SequenceHeader Get() const;
    /// The stream has had a header that differed from the one before it.
    bool HasChanged() const;

private:
    mutable std::mutex m_mutex;                                       // guards the others
    Mpeg1SequenceHeader m_abSequenceHeader = kDefaultSequenceHeader;  // see Get
    bool m_bSequenceHeaderChanged = false;                            // see HasChanged
};

}  // namespace kest
