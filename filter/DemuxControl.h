#pragma once

#include "control/KestDemux2Control.h"
#include "filter/DemuxPath.h"
#include "filter/DumpFile.h"
#include "filter/Intake.h"
#include "filter/ResetFlags.h"
#include "filter/SingleStep.h"
#include "filter/StatusPublisher.h"
#include "filter/Switches.h"
#include "graph/Unknown.h"
#include "net/UdpSender.h"
#include "pins/AudioOutputPin.h"

namespace kest {

/// What the filter offers as IKestDemux2Control, IKestDemux2Control2 and ISpecifyPropertyPages: each method
/// hands its value to the part of the filter that owns it. Aggregated with the filter.
class CDemuxControl final
    : public CImplements<CUnknown, IKestDemux2Control, IKestDemux2Control2, ISpecifyPropertyPages> {
public:
    /// The parts of the filter; they outlive this object.
    struct Parts {
        IDemuxFilterSite& site;
        CUdpSender& sender;
        CStatusPublisher& publisher;
        CDumpFile& dump;
        CSingleStep& singleStep;
        CSwitches& switches;
        ResetFlags& resets;
        const CIntake& intake;
        const CDemuxPath& path;
        CKestDemux2AudioOutputPin& audioPin;
    };
    CDemuxControl(IUnknown* pOuter, const Parts& parts) : CImplements(pOuter), m_parts(parts) {}

    HRESULT NonDelegatingQueryInterface(REFIID riid, void** ppv) override;

    // IKestDemux2Control
    HRESULT STDMETHODCALLTYPE get_DemuxOutput(std::uint32_t* pnOutput) override;
    HRESULT STDMETHODCALLTYPE get_SendPort(std::uint32_t* pnPort) override;
    HRESULT STDMETHODCALLTYPE get_SendAddressText(char* pszText) override;
    HRESULT STDMETHODCALLTYPE get_SendAddress(std::uint32_t* pdwAddr) override;
    HRESULT STDMETHODCALLTYPE Reserved1(std::uint32_t) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE get_LocalView(std::uint8_t* pbOn) override;
    HRESULT STDMETHODCALLTYPE get_LocalPort(std::uint32_t* pnPort) override;
    HRESULT STDMETHODCALLTYPE get_DisableDemux(std::uint8_t* pbOff) override;
    HRESULT STDMETHODCALLTYPE get_Sending(std::uint8_t* pbOn) override;
    HRESULT STDMETHODCALLTYPE get_SharedStatus(SHARED_STATUS* pStatus) override;
    HRESULT STDMETHODCALLTYPE get_RemoteStatus(SHARED_STATUS* pStatus) override;
    HRESULT STDMETHODCALLTYPE get_EnableDump(std::uint8_t* pbOn) override;
    HRESULT STDMETHODCALLTYPE get_DumpFileName(char* pszName) override;
    HRESULT STDMETHODCALLTYPE put_LocalPort(std::uint32_t nPort) override;
    HRESULT STDMETHODCALLTYPE put_DisableDemux(std::uint8_t bOff) override;
    HRESULT STDMETHODCALLTYPE put_EnableDump(std::uint8_t bOn) override;
    HRESULT STDMETHODCALLTYPE put_DumpFileName(const char* pszName) override;
    HRESULT STDMETHODCALLTYPE put_Sending(std::uint8_t bOn) override;
    HRESULT STDMETHODCALLTYPE put_LocalView(std::uint8_t bOn) override;
    HRESULT STDMETHODCALLTYPE put_SendPort(std::uint32_t nPort) override;
    HRESULT STDMETHODCALLTYPE put_SendAddress(std::uint32_t dwAddr) override;
    HRESULT STDMETHODCALLTYPE put_SendAddressText(const char* pszText) override;
    HRESULT STDMETHODCALLTYPE Reserved2(std::uint32_t) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE put_DemuxOutput(std::uint32_t nOutput) override;
    HRESULT STDMETHODCALLTYPE put_AudioMediaType(const AM_MEDIA_TYPE* pType) override;
    HRESULT STDMETHODCALLTYPE put_EnableSingleStep(std::uint8_t bOn) override;
    HRESULT STDMETHODCALLTYPE put_Rate(double dRate) override;
    HRESULT STDMETHODCALLTYPE ApplySendSettings() override;
    HRESULT STDMETHODCALLTYPE get_NeedReset(std::uint8_t* pbNeeded) override;
    HRESULT STDMETHODCALLTYPE put_EnableReset(std::uint8_t bEnable) override;
    HRESULT STDMETHODCALLTYPE get_BytesReceived(std::uint64_t* pllBytes) override;
    HRESULT STDMETHODCALLTYPE get_ThreadKilled(std::uint8_t* pbKilled) override;
    HRESULT STDMETHODCALLTYPE get_EnableSingleStep(std::uint8_t* pbOn) override;

    // IKestDemux2Control2
    HRESULT STDMETHODCALLTYPE get_Switch(ESwitch nSwitch, std::int32_t* pnValue) override;
    HRESULT STDMETHODCALLTYPE put_Switch(ESwitch nSwitch, std::int32_t nValue) override;

    HRESULT STDMETHODCALLTYPE get_Counters(COUNTERS* pCounters) override;

    /// The property page, where the system has dialogs; the list is freed with CoTaskMemFree.
    /// @return E_OUTOFMEMORY; E_POINTER.
    HRESULT STDMETHODCALLTYPE GetPages(CAUUID* pPages) override;

private:
    template <class T>
    HRESULT GetSetting(T SEND_SETTINGS::*pField, T* pValue) const;
    template <class T>
    HRESULT PutSetting(T SEND_SETTINGS::*pField, T value);

    const Parts m_parts;
};

}  // namespace kest
