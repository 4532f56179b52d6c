#include "filter/DemuxControl.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "control/Identifiers.h"
#include "graph/Guard.h"
#include "platform/Socket.h"
#include "platform/Text.h"

namespace kest {
namespace {

/// Stores a value for the caller, if there is a place for it.
template <class T>
HRESULT Give(T* pTo, const T& value) {
    if (!pTo) return E_POINTER;
    *pTo = value;
    return S_OK;
}

HRESULT GiveFlag(std::uint8_t* pbTo, bool bValue) { return Give(pbTo, std::uint8_t{bValue}); }

/// Copies text, cut to the buffer and always terminated.
void CopyNarrow(const std::string& strFrom, char* pszTo, std::size_t nSize) {
    const std::size_t nLength = std::min(strFrom.size(), nSize - 1);
    std::memcpy(pszTo, strFrom.data(), nLength);
    pszTo[nLength] = '\0';
}

}  // namespace

HRESULT CDemuxControl::NonDelegatingQueryInterface(REFIID riid, void** ppv) {
    if (riid == IID_IKestDemux2Control) return GetInterface(static_cast<IKestDemux2Control*>(this), ppv);
    if (riid == IID_IKestDemux2Control2) return GetInterface(static_cast<IKestDemux2Control2*>(this), ppv);
    if (riid == IID_ISpecifyPropertyPages)
        return GetInterface(static_cast<ISpecifyPropertyPages*>(this), ppv);
    return CUnknown::NonDelegatingQueryInterface(riid, ppv);
}

// ---------------- the record of settings

template <class T>
HRESULT CDemuxControl::GetSetting(T SEND_SETTINGS::*pField, T* pValue) const {
    return Give(pValue, m_parts.sender.GetSettingsPtr()->Get(pField));
}

template <class T>
HRESULT CDemuxControl::PutSetting(T SEND_SETTINGS::*pField, T value) {
    m_parts.sender.GetSettingsPtr()->Set(pField, value);
    return S_OK;
}

HRESULT CDemuxControl::get_DemuxOutput(std::uint32_t* pnOutput) {
    return GetSetting(&SEND_SETTINGS::nDemuxOutput, pnOutput);
}
HRESULT CDemuxControl::get_SendPort(std::uint32_t* pnPort) {
    return GetSetting(&SEND_SETTINGS::nSendPort, pnPort);
}
HRESULT CDemuxControl::get_SendAddress(std::uint32_t* pdwAddr) {
    return GetSetting(&SEND_SETTINGS::dwSendAddr, pdwAddr);
}
HRESULT CDemuxControl::get_LocalView(std::uint8_t* pbOn) {
    return GetSetting(&SEND_SETTINGS::bLocalView, pbOn);
}
HRESULT CDemuxControl::get_LocalPort(std::uint32_t* pnPort) {
    return GetSetting(&SEND_SETTINGS::nLocalPort, pnPort);
}
HRESULT CDemuxControl::get_DisableDemux(std::uint8_t* pbOff) {
    return GetSetting(&SEND_SETTINGS::bDisableDemux, pbOff);
}
HRESULT CDemuxControl::get_Sending(std::uint8_t* pbOn) { return GetSetting(&SEND_SETTINGS::bSending, pbOn); }

HRESULT CDemuxControl::put_LocalPort(std::uint32_t nPort) {
    return PutSetting(&SEND_SETTINGS::nLocalPort, nPort);
}
HRESULT CDemuxControl::put_Sending(std::uint8_t bOn) {
    return PutSetting(&SEND_SETTINGS::bSending, std::uint8_t{bOn != 0});
}
HRESULT CDemuxControl::put_LocalView(std::uint8_t bOn) {
    return PutSetting(&SEND_SETTINGS::bLocalView, std::uint8_t{bOn != 0});
}
HRESULT CDemuxControl::put_SendPort(std::uint32_t nPort) {
    return PutSetting(&SEND_SETTINGS::nSendPort, nPort);
}
HRESULT CDemuxControl::put_SendAddress(std::uint32_t dwAddr) {
    return PutSetting(&SEND_SETTINGS::dwSendAddr, dwAddr);
}

HRESULT CDemuxControl::get_SendAddressText(char* pszText) {
    if (!pszText) return E_POINTER;
    FormatAddress(m_parts.sender.GetSettingsPtr()->Get(&SEND_SETTINGS::dwSendAddr),
                  std::span<char, kSendAddressTextSize>(pszText, kSendAddressTextSize));
    return S_OK;
}

HRESULT CDemuxControl::put_SendAddressText(const char* pszText) {
    return pszText ? put_SendAddress(ParseAddress(pszText)) : E_POINTER;
}

HRESULT CDemuxControl::put_DemuxOutput(std::uint32_t nOutput) {
    if (m_parts.site.GetWorkingMode() == EWorkingMode::Mpeg4VideoEs) return S_FALSE;
    return PutSetting(&SEND_SETTINGS::nDemuxOutput, nOutput);
}

HRESULT CDemuxControl::put_DisableDemux(std::uint8_t bOff) {
    return Guard([&] {
        if (!bOff) {
            m_parts.publisher.Close();
        } else if (!m_parts.publisher.Open()) {
            return E_FAIL;
        }
        return PutSetting(&SEND_SETTINGS::bDisableDemux, std::uint8_t{bOff != 0});
    });
}

HRESULT CDemuxControl::ApplySendSettings() {
    return Guard([this] {
        m_parts.sender.UpdateAddresses();
        m_parts.publisher.Post(static_cast<std::uint32_t>(m_parts.site.GetWorkingMode()),
                               m_parts.sender.GetSettingsPtr()->Get());
        return S_OK;
    });
}

// ---------------- the published status

HRESULT CDemuxControl::get_SharedStatus(SHARED_STATUS* pStatus) {
    return Give(pStatus, m_parts.publisher.Get());
}

HRESULT CDemuxControl::get_RemoteStatus(SHARED_STATUS* pStatus) {
    if (!pStatus) return E_POINTER;
    return Guard([&] { return m_parts.publisher.TakeRemote(*pStatus) ? S_OK : E_FAIL; });
}

// ---------------- the dump file

HRESULT CDemuxControl::get_EnableDump(std::uint8_t* pbOn) { return GiveFlag(pbOn, m_parts.dump.IsEnabled()); }

HRESULT CDemuxControl::put_EnableDump(std::uint8_t bOn) {
    m_parts.dump.Enable(bOn != 0);
    if (!bOn) m_parts.dump.CloseDumpFile();
    return S_OK;
}

HRESULT CDemuxControl::get_DumpFileName(char* pszName) {
    if (!pszName) return E_POINTER;
    return Guard([&]() -> HRESULT {
        const auto strName = ToNarrow(m_parts.dump.GetName());
        if (!strName) return kInvalidName;
        CopyNarrow(*strName, pszName, kDumpFileNameSize);
        return S_OK;
    });
}

HRESULT CDemuxControl::put_DumpFileName(const char* pszName) {
    if (!pszName) return E_POINTER;
    return Guard([&]() -> HRESULT {
        const auto strName = ToWide(pszName);
        const HRESULT hr = strName ? m_parts.dump.Open(*strName) : kInvalidName;
        return hr == kNameTooLong ? kInvalidName : hr;
    });
}

// ---------------- playing

HRESULT CDemuxControl::put_AudioMediaType(const AM_MEDIA_TYPE* pType) {
    if (!pType) return E_POINTER;
    return Guard([&] { return m_parts.audioPin.SetOfferedType(*pType); });
}

HRESULT CDemuxControl::put_EnableSingleStep(std::uint8_t bOn) {
    return Guard([&] {
        m_parts.singleStep.Enable(bOn != 0);
        return S_OK;
    });
}

HRESULT CDemuxControl::get_EnableSingleStep(std::uint8_t* pbOn) {
    return GiveFlag(pbOn, m_parts.singleStep.IsEnabled());
}

HRESULT CDemuxControl::put_Rate(double dRate) {
    return Guard([&] { return m_parts.site.RateHook(dRate); });
}

HRESULT CDemuxControl::get_NeedReset(std::uint8_t* pbNeeded) {
    return GiveFlag(pbNeeded, m_parts.resets.m_bNeedReset);
}

HRESULT CDemuxControl::put_EnableReset(std::uint8_t bEnable) {
    m_parts.resets.m_bEnableReset = bEnable != 0;
    return S_OK;
}

HRESULT CDemuxControl::get_ThreadKilled(std::uint8_t* pbKilled) {
    return GiveFlag(pbKilled, m_parts.resets.m_bThreadKilled);
}

HRESULT CDemuxControl::get_BytesReceived(std::uint64_t* pllBytes) {
    return Give(pllBytes, m_parts.intake.GetBytesReceived());
}

// ---------------- switches

HRESULT CDemuxControl::get_Switch(ESwitch nSwitch, std::int32_t* pnValue) {
    if (static_cast<std::size_t>(nSwitch) >= kSwitchTable.size()) return E_INVALIDARG;
    return Give(pnValue, m_parts.switches.Get(nSwitch));
}

HRESULT CDemuxControl::put_Switch(ESwitch nSwitch, std::int32_t nValue) {
    const auto nIndex = static_cast<std::size_t>(nSwitch);
    if (nIndex >= kSwitchTable.size()) return E_INVALIDARG;
    if (nValue < kSwitchTable[nIndex].nLeast || nValue > kSwitchTable[nIndex].nMost) return E_INVALIDARG;
    m_parts.switches.Set(nSwitch, nValue);
    return S_OK;
}

HRESULT CDemuxControl::get_Counters(COUNTERS* pCounters) {
    return pCounters ? Give(pCounters, m_parts.path.GetCounters()) : E_POINTER;
}

// ---------------- property page

HRESULT CDemuxControl::GetPages(CAUUID* pPages) {
    if (!pPages) return E_POINTER;
    *pPages = {};
    if (!kHasDialogs) return S_OK;
    pPages->pElems = static_cast<GUID*>(CoTaskMemAlloc(sizeof(GUID)));
    if (!pPages->pElems) return E_OUTOFMEMORY;
    pPages->cElems = 1;
    *pPages->pElems = kPropertyPageClass;
    return S_OK;
}

}  // namespace kest
