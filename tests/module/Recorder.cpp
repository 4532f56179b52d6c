#include "Recorder.h"

#include <algorithm>
#include <chrono>
#include <span>

namespace kest {
namespace {

constexpr REFERENCE_TIME kLead = 5'000'000;  // 100 ns that a stream may be ahead
constexpr auto kPatience = std::chrono::milliseconds(300);

std::uint32_t GetCrc32(std::span<const BYTE> bytes) {
    std::uint32_t nCrc = 0xFFFFFFFF;
    for (const BYTE byte : bytes) {
        nCrc ^= byte;
        for (int i = 0; i < 8; ++i) nCrc = (nCrc >> 1) ^ (nCrc & 1 ? 0xEDB88320 : 0);
    }
    return ~nCrc;
}

SampleRecord Describe(IMediaSample& sample) {
    SampleRecord record{};
    BYTE* pBytes = nullptr;
    record.bTimed = SUCCEEDED(sample.GetTime(&record.rtStart, &record.rtStop));
    record.nSize = sample.GetActualDataLength();
    if (SUCCEEDED(sample.GetPointer(&pBytes))) {
        record.nCrc = GetCrc32({pBytes, static_cast<std::size_t>(record.nSize)});
    }
    record.bSyncPoint = sample.IsSyncPoint() == S_OK;
    record.bDiscontinuity = sample.IsDiscontinuity() == S_OK;
    record.bPreroll = sample.IsPreroll() == S_OK;
    return record;
}

}  // namespace

std::string SampleRecord::ToJson(EStream stream) const {
    const auto Time = [this](REFERENCE_TIME rt) { return bTimed ? std::to_string(rt) : "null"; };
    const auto Flag = [](bool b) { return b ? "true" : "false"; };
    std::array<char, 9> szCrc{};
    std::snprintf(szCrc.data(), szCrc.size(), "%08x", nCrc);
    return std::string(R"({"pin":")") + (stream == EStream::Audio ? "audio" : "video") +
           R"(","event":"sample","start":)" + Time(rtStart) + R"(,"stop":)" + Time(rtStop) + R"(,"size":)" +
           std::to_string(nSize) + R"(,"crc32":")" + szCrc.data() + R"(","syncPoint":)" + Flag(bSyncPoint) +
           R"(,"discontinuity":)" + Flag(bDiscontinuity) + R"(,"preroll":)" + Flag(bPreroll) + "}";
}

HRESULT CRecorder::CCallback::QueryInterface(REFIID riid, void** ppv) {
    if (!ppv) return E_POINTER;
    const bool bKnown = riid == __uuidof(IUnknown) || riid == __uuidof(ISampleGrabberCB);
    *ppv = bKnown ? this : nullptr;
    return bKnown ? S_OK : E_NOINTERFACE;
}

HRESULT CRecorder::CCallback::SampleCB(double, IMediaSample* pSample) {
    m_recorder.OnSample(m_stream, Describe(*pSample));
    return S_OK;
}

void CRecorder::Begin() {
    std::lock_guard lock(m_mutex);
    m_aTracks = {};
    ++m_nBeginning;
    m_changed.notify_all();
}

void CRecorder::SetPacing(bool bOn) {
    std::lock_guard lock(m_mutex);
    m_bPacing = bOn;
    m_changed.notify_all();
}

std::vector<SampleRecord> CRecorder::GetSamples(EStream stream) const {
    std::lock_guard lock(m_mutex);
    return m_aTracks[Index(stream)].samples;
}

bool CRecorder::WaitForBoth(std::size_t nCount, DWORD nTimeoutMs) const {
    std::unique_lock lock(m_mutex);
    return m_changed.wait_for(lock, std::chrono::milliseconds(nTimeoutMs), [&] {
        return std::ranges::all_of(m_aTracks,
                                   [&](const Track& each) { return each.samples.size() >= nCount; });
    });
}

void CRecorder::OnSample(EStream stream, const SampleRecord& sample) {
    std::unique_lock lock(m_mutex);
    m_aTracks[Index(stream)].samples.push_back(sample);
    m_changed.notify_all();
    if (sample.bTimed) KeepAbreast(stream, sample.rtStart, lock);
}

void CRecorder::KeepAbreast(EStream stream, REFERENCE_TIME rtStart, std::unique_lock<std::mutex>& lock) {
    Track& own = m_aTracks[Index(stream)];
    Track& other = m_aTracks[1 - Index(stream)];
    own.rtLatest = rtStart;
    own.bBegun = own.bAwaited = true;
    const bool bAbreast = m_changed.wait_for(lock, kPatience, [&, nBeginning = m_nBeginning] {
        return !m_bPacing || nBeginning != m_nBeginning || !other.bAwaited ||
               (other.bBegun && rtStart - other.rtLatest <= kLead);
    });
    if (!bAbreast) other.bAwaited = false;
}

}  // namespace kest
