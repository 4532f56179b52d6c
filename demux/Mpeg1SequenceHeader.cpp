#include "demux/Mpeg1SequenceHeader.h"

#include "demux/BitReader.h"

namespace kest {

Mpeg1SequenceFields ParseSequenceHeader(const Mpeg1SequenceHeader& header) {
    constexpr unsigned kStartCodeBits = 32, kPictureRateBits = 4, kMarkerBits = 1;
    constexpr std::uint32_t kBitRateUnit = 400, kVbvBufferUnit = 2048;
    Mpeg1SequenceFields fields;
    CBitReader bits(header);
    bits.Skip(kStartCodeBits);
    fields.horizontal_size = static_cast<std::uint16_t>(bits.Read(12));
    fields.vertical_size = static_cast<std::uint16_t>(bits.Read(12));
    fields.pel_aspect_ratio = static_cast<std::uint8_t>(bits.Read(4));
    bits.Skip(kPictureRateBits);
    fields.nBitRate = bits.Read(18) * kBitRateUnit;
    bits.Skip(kMarkerBits);
    fields.nVbvBufferSize = bits.Read(10) * kVbvBufferUnit;
    return fields;
}

void CSequenceHeaderCapture::Reset() {
    std::lock_guard lock(m_mutex);
    m_abSequenceHeader = kDefaultSequenceHeader;
    m_bSequenceHeaderChanged = false;
}

void CSequenceHeaderCapture::Capture(Bytes payload) {
    constexpr std::array<std::uint8_t, 4> kSequenceHeaderCode = {0x00, 0x00, 0x01, 0xB3};
    if (payload.size() < m_abSequenceHeader.size()) return;
    if (!std::equal(kSequenceHeaderCode.begin(), kSequenceHeaderCode.end(), payload.begin())) return;
    std::lock_guard lock(m_mutex);
    if (std::equal(m_abSequenceHeader.begin(), m_abSequenceHeader.end(), payload.begin())) return;
    std::copy_n(payload.begin(), m_abSequenceHeader.size(), m_abSequenceHeader.begin());
    m_bSequenceHeaderChanged = true;
}

Mpeg1SequenceHeader CSequenceHeaderCapture::Get() const {
    std::lock_guard lock(m_mutex);
    return m_abSequenceHeader;
}

bool CSequenceHeaderCapture::HasChanged() const {
    std::lock_guard lock(m_mutex);
    return m_bSequenceHeaderChanged;
}

}  // namespace kest
