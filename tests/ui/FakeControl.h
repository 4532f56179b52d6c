#pragma once

#include <algorithm>
#include <string>

#include "control/KestDemux2Control.h"
#include "graph/Unknown.h"

namespace kest {

/// A filter of settings alone: it keeps what it is given and lists the calls that change something.
class CFakeControl : public CImplements<CUnknown, IKestDemux2Control> {
public:
    HRESULT NonDelegatingQueryInterface(REFIID riid, void** ppv) override {
        if (riid == IID_IKestDemux2Control) return GetInterface<IKestDemux2Control>(this, ppv);
        return CUnknown::NonDelegatingQueryInterface(riid, ppv);
    }

    SEND_SETTINGS settings;
    std::string strDumpFile;
    std::uint8_t bDump = 0;
    std::string strAddress = "234.5.6.7";  // what get_SendAddressText says
    std::string strCalls;  // the names of setters with their numbers, each with a blank behind it

    HRESULT STDMETHODCALLTYPE get_DemuxOutput(std::uint32_t* pn) override {
        return Get(pn, settings.nDemuxOutput);
    }
    HRESULT STDMETHODCALLTYPE get_SendPort(std::uint32_t* pn) override { return Get(pn, settings.nSendPort); }
    HRESULT STDMETHODCALLTYPE get_SendAddressText(char* psz) override { return GetText(psz, strAddress); }
    HRESULT STDMETHODCALLTYPE get_SendAddress(std::uint32_t* pn) override {
        return Get(pn, settings.dwSendAddr);
    }
    HRESULT STDMETHODCALLTYPE get_LocalView(std::uint8_t* pb) override {
        return Get(pb, settings.bLocalView);
    }
    HRESULT STDMETHODCALLTYPE get_LocalPort(std::uint32_t* pn) override {
        return Get(pn, settings.nLocalPort);
    }
    HRESULT STDMETHODCALLTYPE get_DisableDemux(std::uint8_t* pb) override {
        return Get(pb, settings.bDisableDemux);
    }
    HRESULT STDMETHODCALLTYPE get_Sending(std::uint8_t* pb) override { return Get(pb, settings.bSending); }
    HRESULT STDMETHODCALLTYPE get_EnableDump(std::uint8_t* pb) override { return Get(pb, bDump); }
    HRESULT STDMETHODCALLTYPE get_DumpFileName(char* psz) override { return GetText(psz, strDumpFile); }

    HRESULT STDMETHODCALLTYPE put_LocalPort(std::uint32_t n) override {
        return Put("LocalPort", settings.nLocalPort, n);
    }
    HRESULT STDMETHODCALLTYPE put_DisableDemux(std::uint8_t b) override {
        return Put("DisableDemux", settings.bDisableDemux, b);
    }
    HRESULT STDMETHODCALLTYPE put_EnableDump(std::uint8_t b) override { return Put("EnableDump", bDump, b); }
    HRESULT STDMETHODCALLTYPE put_DumpFileName(const char* psz) override {
        strDumpFile = psz;
        strCalls += "DumpFileName ";
        return E_FAIL;
    }
    HRESULT STDMETHODCALLTYPE put_Sending(std::uint8_t b) override {
        return Put("Sending", settings.bSending, b);
    }
    HRESULT STDMETHODCALLTYPE put_LocalView(std::uint8_t b) override {
        return Put("LocalView", settings.bLocalView, b);
    }
    HRESULT STDMETHODCALLTYPE put_SendPort(std::uint32_t n) override {
        return Put("SendPort", settings.nSendPort, n);
    }
    HRESULT STDMETHODCALLTYPE put_SendAddress(std::uint32_t n) override {
        return Put("SendAddress", settings.dwSendAddr, n);
    }
    HRESULT STDMETHODCALLTYPE put_DemuxOutput(std::uint32_t n) override {
        return Put("DemuxOutput", settings.nDemuxOutput, n);
    }
    HRESULT STDMETHODCALLTYPE ApplySendSettings() override { return strCalls += "Apply ", E_FAIL; }

    // What the page has no use for.
    HRESULT STDMETHODCALLTYPE Reserved1(std::uint32_t) override { return Unexpected(); }
    HRESULT STDMETHODCALLTYPE get_SharedStatus(SHARED_STATUS*) override { return Unexpected(); }
    HRESULT STDMETHODCALLTYPE get_RemoteStatus(SHARED_STATUS*) override { return Unexpected(); }
    HRESULT STDMETHODCALLTYPE put_SendAddressText(const char*) override { return Unexpected(); }
    HRESULT STDMETHODCALLTYPE Reserved2(std::uint32_t) override { return Unexpected(); }
    HRESULT STDMETHODCALLTYPE put_AudioMediaType(const AM_MEDIA_TYPE*) override { return Unexpected(); }
    HRESULT STDMETHODCALLTYPE put_EnableSingleStep(std::uint8_t) override { return Unexpected(); }
    HRESULT STDMETHODCALLTYPE put_Rate(double) override { return Unexpected(); }
    HRESULT STDMETHODCALLTYPE get_NeedReset(std::uint8_t*) override { return Unexpected(); }
    HRESULT STDMETHODCALLTYPE put_EnableReset(std::uint8_t) override { return Unexpected(); }
    HRESULT STDMETHODCALLTYPE get_BytesReceived(std::uint64_t*) override { return Unexpected(); }
    HRESULT STDMETHODCALLTYPE get_ThreadKilled(std::uint8_t*) override { return Unexpected(); }
    HRESULT STDMETHODCALLTYPE get_EnableSingleStep(std::uint8_t*) override { return Unexpected(); }

private:
    template <class T>
    static HRESULT Get(T* pTo, T value) {
        *pTo = value;
        return S_OK;
    }
    static HRESULT GetText(char* pszTo, const std::string& strText) {
        *std::ranges::copy(strText, pszTo).out = 0;
        return S_OK;
    }
    /// Every setter fails, which the page is to ignore.
    template <class T>
    HRESULT Put(const char* pszName, T& to, T value) {
        to = value;
        strCalls += pszName + (" " + std::to_string(value)) + " ";
        return E_FAIL;
    }
    HRESULT Unexpected() { return strCalls += "unexpected ", E_NOTIMPL; }
};

}  // namespace kest
