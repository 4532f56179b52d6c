#include "filter/Source.h"

#include <algorithm>
#include <limits>

#include "demux/SourceAnalyzer.h"
#include "pins/Timeline.h"

namespace kest {

HRESULT CSource::Connect(IPin* pUpstream) {
    const HRESULT hr = m_PullPin.Connect(pUpstream, nullptr, false);
    m_bPushSource = !GetReader();
    return m_bPushSource ? S_OK : hr;
}

void CSource::Disconnect() {
    m_timeSearch.reset();
    m_bByTime = false;
    m_PullPin.Disconnect();
    m_bPushSource = true;
    m_description = {};
}

// The second probe decides on all but a program stream with MPEG-4 video.
int CSource::ClassifyStream(bool bAdmitAll, bool bAssumeMap) {
    const CComPtr<IAsyncReader> pReader = GetReader();
    m_Probe.SetReader(pReader.Get());
    int nClass = m_Probe.Probe();
    bool bAdmitted = nClass == kClassProgramMpeg4;
    if (!bAdmitted) {
        nClass = m_Probe.Probe();
        bAdmitted = bAdmitAll || nClass == kClassProgramMpeg12;
    }
    m_Probe.SetReader(nullptr);  // the next connection brings its own
    m_nBitRate = m_Probe.GetBitRate();
    // The headers of MPEG-4 video make a program stream without a map an elementary stream.
    if (bAssumeMap && (nClass == kClassNotRecognised || nClass == kClassMpeg4VideoEs)) {
        const SourceDescription description = CSourceAnalyzer::Describe(pReader.Get());
        if (description.container == EContainer::ProgramStream && !description.streams.empty()) {
            m_nBitRate = description.nMuxRate;
            return description.GetStreamClass();
        }
    }
    return bAdmitted ? nClass : kClassNotRecognised;
}

void CSource::Describe() { m_description = CSourceAnalyzer::Describe(GetReader().Get()); }

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

// ---------------- by time

void CSource::MeasureTime(std::int64_t llLength, EVideoCoding coding, std::uint8_t nVideoId) {
    const CComPtr<IAsyncReader> pReader = GetReader();
    if (m_bByTime && m_timeSearch && m_timeSearch->HasMeasured(llLength, coding, nVideoId)) return;
    m_timeSearch.reset();
    if (!m_bByTime || !pReader) return;
    m_timeSearch.emplace(pReader.Get(), llLength, coding, nVideoId);
    if (!m_timeSearch->Measure()) m_timeSearch.reset();
}

std::optional<TimeExtent> CSource::GetTimeExtent() const {
    return m_timeSearch ? m_timeSearch->GetExtent() : std::nullopt;
}

// Rounded up: a time that was made of a timestamp is that timestamp again.
std::optional<CSource::Place> CSource::FindPlace(REFERENCE_TIME rt) {
    if (const auto extent = GetTimeExtent()) {
        const std::int64_t llDuration = extent->llDuration;
        rt = std::clamp(rt, REFERENCE_TIME{0}, CTimeline::ToTime(llDuration));
        const std::int64_t llTime = std::min((rt * 9 + 999) / 1000, llDuration);
        if (const auto point = m_timeSearch->FindAccessPoint(llTime)) {
            const std::int64_t llAhead = llTime - extent->TimeOf(point->llTimestamp);
            return Place{point->llPosition, SeekTarget{point->llTimestamp + llAhead, rt}};
        }
    }
    if (const auto llPosition = FindPosition(rt)) return Place{*llPosition, std::nullopt};
    return std::nullopt;
}

}  // namespace kest
