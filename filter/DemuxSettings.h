#pragma once

#include "control/SendSettings.h"
#include "platform/api/Unknown.h"

namespace kest {

/// IDemuxSettings' identifier; another one when SEND_SETTINGS changes, since hosts find old modules too.
constexpr IID kDemuxSettingsId = {
    0x107FDC08, 0x744F, 0x42AE, {0xA0, 0xE3, 0x89, 0xF9, 0x96, 0x12, 0xA1, 0xD4}};

/// The filter's settings as one record. Both methods wait for a state change that is under way.
struct IDemuxSettings : IUnknown {
    /// Copies the settings. @return E_POINTER.
    virtual HRESULT STDMETHODCALLTYPE get_SendSettings(SEND_SETTINGS* pSettings) = 0;
    /// Takes new settings; the demux function takes effect when the filter next starts.
    /// @return E_POINTER.
    virtual HRESULT STDMETHODCALLTYPE put_SendSettings(const SEND_SETTINGS* pSettings) = 0;

protected:
    ~IDemuxSettings() = default;
};

}  // namespace kest
