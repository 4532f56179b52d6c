#include "filter/Source.h"

#include <limits>

namespace kest {

HRESULT CSource::Connect(IPin* pUpstream) {
    const HRESULT hr = m_PullPin.Connect(pUpstream, nullptr, false);
    m_bPushSource = !GetReader();
    return m_bPushSource ? S_OK : hr;
}

void CSource::Disconnect() {
    m_PullPin.Disconnect();
    m_bPushSource = true;
}

// The second probe decides on all but a program stream with MPEG-4 video.
int CSource::ClassifyStream(bool bAdmitAll) {
    const CComPtr<IAsyncReader> pReader = GetReader();
    m_Probe.SetReader(pReader.Get());
    int nClass = m_Probe.Probe();
    if (nClass != kClassProgramMpeg4) {
        nClass = m_Probe.Probe();
        if (!bAdmitAll && nClass != kClassProgramMpeg12) nClass = kClassNotRecognised;
    }
    m_Probe.SetReader(nullptr);  // the next connection brings its own
    return nClass;
}

// In two parts, neither of which overflows: the time in multiples of what makes a whole number of bytes at
// every bit rate, and the rest.
std::optional<std::int64_t> CSource::FindPosition(REFERENCE_TIME rt) const {
    constexpr std::int64_t kUnit = std::int64_t{8} * 10000000;
    constexpr std::int64_t kLastPosition = std::numeric_limits<std::int64_t>::max();
    const std::int64_t llBitRate = GetBitRate();
    if (llBitRate == 0) return std::nullopt;
    if (rt < 0) return 0;
    const std::int64_t llRest = rt % kUnit * llBitRate / kUnit;
    if (rt / kUnit > (kLastPosition - llRest) / llBitRate) return kLastPosition;
    return rt / kUnit * llBitRate + llRest;
}

}  // namespace kest
