// What a host that has nothing but the declaration of the control interfaces finds in a new filter.
#pragma once

#include <cstring>
#include <initializer_list>
#include <stdexcept>
#include <string>

#include "control/KestDemux2Control.h"
#include "control/SwitchTable.h"
#include "platform/ComPtr.h"

namespace kest {

class CControlContract {
public:
    /// @param folder  where a dump file may be made, with a separator at its end; narrow text.
    CControlContract(IUnknown* pFilter, std::string strFolder) : m_strFolder(std::move(strFolder)) {
        Require(
            pFilter->QueryInterface(IID_IKestDemux2Control, reinterpret_cast<void**>(m_p.Put())) == S_OK &&
                pFilter->QueryInterface(IID_IKestDemux2Control2, reinterpret_cast<void**>(m_p2.Put())) ==
                    S_OK,
            "the interfaces");
    }

    /// Calls every method. Throws std::runtime_error with the name of the first that does not do what it should.
    void Check() {
        using I = IKestDemux2Control;
        CheckPair<std::uint32_t>("SendPort", &I::get_SendPort, &I::put_SendPort, 8100, {{70000, 70000}});
        CheckPair<std::uint32_t>("LocalPort", &I::get_LocalPort, &I::put_LocalPort, 5454, {{1, 1}});
        CheckPair<std::uint32_t>("DemuxOutput", &I::get_DemuxOutput, &I::put_DemuxOutput, 0,
                                 {{2, 2}, {77, 77}});
        CheckPair<std::uint32_t>("SendAddress", &I::get_SendAddress, &I::put_SendAddress, 0x070605EA,
                                 {{1, 1}});
        CheckPair<std::uint8_t>("Sending", &I::get_Sending, &I::put_Sending, 0, {{255, 1}, {0, 0}});
        CheckPair<std::uint8_t>("LocalView", &I::get_LocalView, &I::put_LocalView, 0, {{1, 1}, {0, 0}});
        CheckPair<std::uint8_t>("DisableDemux", &I::get_DisableDemux, &I::put_DisableDemux, 0,
                                {{0, 0}, {2, 1}});
        CheckPair<std::uint8_t>("EnableDump", &I::get_EnableDump, &I::put_EnableDump, 0, {{1, 1}, {0, 0}});
        CheckPair<std::uint8_t>("SingleStep", &I::get_EnableSingleStep, &I::put_EnableSingleStep, 0,
                                {{1, 1}, {0, 0}});
        CheckAddressText();
        CheckStatus();
        CheckDumpName();
        CheckOthers();
        CheckSwitches();
    }

private:
    static void Require(bool bTrue, const std::string& strWhat) {
        if (!bTrue) throw std::runtime_error("control interface: " + strWhat);
    }
    template <class T>
    using Get = HRESULT (STDMETHODCALLTYPE IKestDemux2Control::*)(T*);
    template <class T>
    using Put = HRESULT (STDMETHODCALLTYPE IKestDemux2Control::*)(T);

    /// A value: what it is at first, and what after each that is put.
    template <class T>
    void CheckPair(const char* pszName, Get<T> pfnGet, Put<T> pfnPut, T nFirst,
                   std::initializer_list<std::pair<T, T>> puts) {
        CheckValue<T>(pszName, pfnGet, nFirst);
        for (const auto& [nPut, nGot] : puts) {
            Require((m_p.Get()->*pfnPut)(nPut) == S_OK, pszName);
            CheckValue<T>(pszName, pfnGet, nGot);
        }
    }
    template <class T>
    void CheckValue(const char* pszName, Get<T> pfnGet, T nExpected) {
        T nValue{};
        Require((m_p.Get()->*pfnGet)(nullptr) == E_POINTER, pszName);
        Require((m_p.Get()->*pfnGet)(&nValue) == S_OK && nValue == nExpected,
                pszName + (' ' + std::to_string(nValue)));
    }
    void CheckAddressText() {
        const std::pair<const char*, const char*> texts[] = {
            {"10.1.2.3", "10.1.2.3"}, {"255.254.253.252", "255.254.253.252"}, {"nowhere", "255.255.255.255"}};
        for (const auto& [pszPut, pszGot] : texts) {
            char szText[kSendAddressTextSize + 1];
            std::memset(szText, '#', sizeof szText);
            Require(m_p->put_SendAddressText(pszPut) == S_OK && m_p->get_SendAddressText(szText) == S_OK,
                    pszPut);
            Require(std::string(szText) == pszGot && szText[kSendAddressTextSize] == '#', szText);
        }
        Require(
            m_p->put_SendAddressText(nullptr) == E_POINTER && m_p->get_SendAddressText(nullptr) == E_POINTER,
            "address text");
    }
    /// The settings of the checks before, and one that a post and a take bring back.
    void CheckStatus() {
        SHARED_STATUS own, remote{.nReserved = 5};
        Require(m_p->get_SharedStatus(&own) == S_OK && own == SHARED_STATUS{},
                "status before the first mode");
        Require(m_p->get_RemoteStatus(&remote) == S_OK && remote.nReserved == 5, "no record is posted");
        Require(m_p->ApplySendSettings() == S_OK && m_p->get_SharedStatus(&own) == S_OK, "ApplySendSettings");
        Require(own.nWorkingMode == 6 && own.settings.nSendPort == 70000 && own.settings.nChunkKB == 8,
                "status");
        Require(m_p->get_RemoteStatus(&remote) == S_OK && remote == own, "posted record");
        Require(m_p->put_DisableDemux(0) == S_OK && m_p->get_RemoteStatus(&remote) == E_FAIL, "taken away");
        Require(m_p->put_DisableDemux(1) == S_OK && m_p->get_RemoteStatus(&remote) == S_OK,
                "published again");
        Require(m_p->get_SharedStatus(nullptr) == E_POINTER && m_p->get_RemoteStatus(nullptr) == E_POINTER,
                "status");
    }
    void CheckDumpName() {
        char szName[kDumpFileNameSize];
        const std::string strGood = m_strFolder + "kest_control.dump";
        Require(m_p->get_DumpFileName(szName) == S_OK && !*szName, "no dump file");
        Require(m_p->put_DumpFileName(strGood.c_str()) == S_OK, "dump file");
        Require(m_p->put_DumpFileName("") == kInvalidName, "empty name");
        Require(m_p->put_DumpFileName(std::string(261, 'x').c_str()) == kNameTooLong, "long name");
        for (const std::string& strBad : {m_strFolder, m_strFolder + "none/x"}) {
            const auto nResult = static_cast<std::uint32_t>(m_p->put_DumpFileName(strBad.c_str()));
            Require((nResult & 0xFFFF0000) == 0x80070000 && (nResult & 0xFFFF) != 0, strBad);
        }
        Require(m_p->get_DumpFileName(szName) == S_OK && szName == strGood, "the file before stays");
        Require(m_p->put_DumpFileName(strGood.c_str()) == S_OK, "again, while it is open");
        Require(m_p->put_EnableDump(0) == S_OK && std::remove(szName) == 0, "closed");
        Require(m_p->put_DumpFileName(nullptr) == E_POINTER && m_p->get_DumpFileName(nullptr) == E_POINTER,
                "name");
    }
    void CheckOthers() {
        using I = IKestDemux2Control;
        CheckValue<std::uint8_t>("NeedReset", &I::get_NeedReset, 0);
        CheckValue<std::uint8_t>("ThreadKilled", &I::get_ThreadKilled, 0);
        CheckValue<std::uint64_t>("BytesReceived", &I::get_BytesReceived, 0);
        Require(m_p->put_EnableReset(1) == S_OK && m_p->Reserved1(1) == S_OK && m_p->Reserved2(1) == S_OK,
                "others");
        Require(m_p->put_Rate(1.0) == S_OK && m_p->put_AudioMediaType(nullptr) == E_POINTER, "others");
    }
    void CheckSwitches() {
        for (std::size_t i = 0; i < kSwitchTable.size(); ++i) {
            const auto nSwitch = static_cast<ESwitch>(i);
            const SwitchTraits& traits = kSwitchTable[i];
            const std::string strName(traits.strName);
            std::int32_t nValue = -1;
            Require(m_p2->get_Switch(nSwitch, &nValue) == S_OK && nValue == traits.nDefault, strName);
            Require(m_p2->put_Switch(nSwitch, traits.nLeast - 1) == E_INVALIDARG, strName);
            Require(m_p2->put_Switch(nSwitch, traits.nMost + 1) == E_INVALIDARG, strName);
            Require(m_p2->put_Switch(nSwitch, traits.nLeast) == S_OK, strName);
            Require(m_p2->get_Switch(nSwitch, &nValue) == S_OK && nValue == traits.nLeast, strName);
        }
        std::int32_t nValue = 0;
        const auto nNone = static_cast<ESwitch>(kSwitchTable.size());
        Require(
            m_p2->get_Switch(nNone, &nValue) == E_INVALIDARG && m_p2->put_Switch(nNone, 0) == E_INVALIDARG,
            "switch");
        Require(m_p2->get_Switch(ESwitch::AdmitAll, nullptr) == E_POINTER, "switch");
    }

    const std::string m_strFolder;      // see the constructor
    CComPtr<IKestDemux2Control> m_p;    // of the filter
    CComPtr<IKestDemux2Control2> m_p2;  // the same
};

}  // namespace kest
