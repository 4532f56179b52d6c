// The interfaces through which a host, the property page and tests set the filter up and watch it. This header
// and those that it includes are all that a host needs beside the platform's own.
#pragma once

#include <cstddef>
#include <cstdint>

#include "control/Counters.h"
#include "control/SharedStatus.h"
#include "platform/api/MediaRecords.h"
#include "platform/api/Unknown.h"

namespace kest {

/// IKestDemux2Control's identifier.
constexpr IID IID_IKestDemux2Control = {
    0x3FA94086, 0x7B2E, 0x446F, {0x9F, 0x25, 0xA0, 0xF4, 0x07, 0xFB, 0x6F, 0x02}};
/// IKestDemux2Control2's identifier.
constexpr IID IID_IKestDemux2Control2 = {
    0xDEF7673F, 0x03A9, 0x4AD1, {0xAE, 0xAC, 0xAB, 0xE0, 0xF2, 0x3C, 0xBA, 0x48}};

/// Bytes of the buffers for text that the two interfaces write to, the final zero included.
constexpr std::size_t kSendAddressTextSize = 16;
constexpr std::size_t kDumpFileNameSize = 260;

/// Results of the dump file's setters, as they are (no HRESULT of failure: the caller compares).
enum : HRESULT {
    kInvalidName = 123,  // empty, or it cannot be converted to or from the system's narrow text
    kNameTooLong = 206,  // IFileSinkFilter::SetFileName: more than 260 characters
};

/// The filter's settings and its state. Every method may be called from any thread, in every state of the
/// filter, and returns S_OK unless it says otherwise; E_POINTER for a null pointer. A flag is a byte, 0 or 1;
/// a setter takes any other value than 0 for 1.
///
/// The setters of ports and addresses change the record of settings alone: `ApplySendSettings` makes them take
/// effect and publishes the record. The flags take effect with the next sample that comes in or goes out.
/// Numbers are stored as they come.
struct IKestDemux2Control : IUnknown {
    /// The demux function, see EDemuxOutput.
    virtual HRESULT STDMETHODCALLTYPE get_DemuxOutput(std::uint32_t* pnOutput) = 0;
    /// UDP port of the destination.
    virtual HRESULT STDMETHODCALLTYPE get_SendPort(std::uint32_t* pnPort) = 0;
    /// The destination as dotted text. @param pszText  kSendAddressTextSize bytes.
    virtual HRESULT STDMETHODCALLTYPE get_SendAddressText(char* pszText) = 0;
    /// The destination's IPv4 address in network byte order.
    virtual HRESULT STDMETHODCALLTYPE get_SendAddress(std::uint32_t* pdwAddr) = 0;
    /// Does nothing; keeps its place.
    virtual HRESULT STDMETHODCALLTYPE Reserved1(std::uint32_t nUnused) = 0;
    /// Whether the input is forwarded to the local view, 127.0.0.1.
    virtual HRESULT STDMETHODCALLTYPE get_LocalView(std::uint8_t* pbOn) = 0;
    /// UDP port of the local view.
    virtual HRESULT STDMETHODCALLTYPE get_LocalPort(std::uint32_t* pnPort) = 0;
    /// Whether demultiplexing is off: what comes in is counted, dumped and forwarded only.
    virtual HRESULT STDMETHODCALLTYPE get_DisableDemux(std::uint8_t* pbOff) = 0;
    /// Whether the input is forwarded to the destination.
    virtual HRESULT STDMETHODCALLTYPE get_Sending(std::uint8_t* pbOn) = 0;
    /// The filter's own copy of the status that it publishes.
    virtual HRESULT STDMETHODCALLTYPE get_SharedStatus(SHARED_STATUS* pStatus) = 0;
    /// Takes a record that was posted under the shared name, by whatever process; without one, the buffer stays
    /// as it was. @return E_FAIL: no process has the name open.
    virtual HRESULT STDMETHODCALLTYPE get_RemoteStatus(SHARED_STATUS* pStatus) = 0;
    /// Whether what comes in is written to the dump file.
    virtual HRESULT STDMETHODCALLTYPE get_EnableDump(std::uint8_t* pbOn) = 0;
    /// The dump file's name in the system's narrow text (UTF-8 where there is no ANSI code page), cut to the
    /// buffer. @param pszName  kDumpFileNameSize bytes. @return kInvalidName: it cannot be converted.
    virtual HRESULT STDMETHODCALLTYPE get_DumpFileName(char* pszName) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_LocalPort(std::uint32_t nPort) = 0;
    /// Off also takes the published status away, on publishes it again.
    /// @return E_FAIL, with nothing changed: the status cannot be published.
    virtual HRESULT STDMETHODCALLTYPE put_DisableDemux(std::uint8_t bOff) = 0;
    /// Off also closes the dump file.
    virtual HRESULT STDMETHODCALLTYPE put_EnableDump(std::uint8_t bOn) = 0;
    /// Opens the dump file, in the place of the one that is open; what stands under the name is replaced. Dumping
    /// begins with put_EnableDump. @param pszName  as in get_DumpFileName, at most 260 characters.
    /// @return kInvalidName; HRESULT_FROM_WIN32 of the system's error (errno elsewhere than on Windows). What is not
    ///         0 leaves name and file as they were.
    virtual HRESULT STDMETHODCALLTYPE put_DumpFileName(const char* pszName) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_Sending(std::uint8_t bOn) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_LocalView(std::uint8_t bOn) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_SendPort(std::uint32_t nPort) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_SendAddress(std::uint32_t dwAddr) = 0;
    /// @param pszText  a dotted address; any other text stores 255.255.255.255.
    virtual HRESULT STDMETHODCALLTYPE put_SendAddressText(const char* pszText) = 0;
    /// Does nothing; keeps its place.
    virtual HRESULT STDMETHODCALLTYPE Reserved2(std::uint32_t nUnused) = 0;
    /// Takes effect when the filter next starts. @return S_FALSE, with nothing stored: an elementary stream.
    virtual HRESULT STDMETHODCALLTYPE put_DemuxOutput(std::uint32_t nOutput) = 0;
    /// The media type that the audio output pin offers. @return E_OUTOFMEMORY.
    virtual HRESULT STDMETHODCALLTYPE put_AudioMediaType(const AM_MEDIA_TYPE* pType) = 0;
    /// On releases one video sample and holds the next ones, one of which each further call releases; off
    /// releases a sample that waits.
    virtual HRESULT STDMETHODCALLTYPE put_EnableSingleStep(std::uint8_t bOn) = 0;
    /// The playback rate. @return E_INVALIDARG: none that can be played.
    virtual HRESULT STDMETHODCALLTYPE put_Rate(double dRate) = 0;
    /// Makes ports and addresses take effect and posts the status record under the shared name, unless one that
    /// nobody has taken stands there. The filter adopts the record itself with the next sample that comes in,
    /// flags included: set everything first, then apply.
    virtual HRESULT STDMETHODCALLTYPE ApplySendSettings() = 0;
    /// Whether the last decision found a reset necessary.
    virtual HRESULT STDMETHODCALLTYPE get_NeedReset(std::uint8_t* pbNeeded) = 0;
    /// Whether resets are carried out.
    virtual HRESULT STDMETHODCALLTYPE put_EnableReset(std::uint8_t bEnable) = 0;
    /// Bytes that have come in through the input pin since the filter was made.
    virtual HRESULT STDMETHODCALLTYPE get_BytesReceived(std::uint64_t* pllBytes) = 0;
    /// Whether a delivery thread had to be ended by force since the last stop.
    virtual HRESULT STDMETHODCALLTYPE get_ThreadKilled(std::uint8_t* pbKilled) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_EnableSingleStep(std::uint8_t* pbOn) = 0;

protected:
    ~IKestDemux2Control() = default;
};

/// Extensions: each is off or neutral in a new filter, so that a host that does not know of it sees no
/// difference. Values, defaults and the moment of effect: see kSwitchTable.
enum class ESwitch : std::uint32_t {
    AdmitAll,         // every stream class that the probe recognises is accepted
    PushStreamClass,  // class of the stream of an upstream pin that cannot be read; 6: it is not accepted
    AssumeMap,    // a program stream without a map is accepted: 0xE0 to 0xEF are video, 0xC0 to 0xDF audio
    VideoStream,  // stream_id or PID that is taken; 0: the first of a known type; -1: all ids of the kind in a
                  // program stream, the last that the map lists in a transport stream
    AudioStream,     // the same of the audio
    Drain,           // nothing is lost at either end of the input
    VideoBlockSize,  // bytes of a block in the video's queue, and with it of a sample and of the longest frame
    RobustTiming,    // one line of time for both streams through wraps, jumps and pauses
    SeekByTime,      // positions and duration of a program stream are those of its timestamps
    TrueTypes,       // the output pins offer what the stream's own headers say
    AnyAudioHeader,  // MPEG-1 system streams: the audio framing takes any valid header
    MpegKeyFrames,   // trick play finds the key frames of MPEG-1/2 video
};

/// The switches. A module that does not know a switch yet says so by its result, so that the identifier stays
/// when switches are added.
struct IKestDemux2Control2 : IUnknown {
    /// @return E_INVALIDARG: no such switch; E_POINTER.
    virtual HRESULT STDMETHODCALLTYPE get_Switch(ESwitch nSwitch, std::int32_t* pnValue) = 0;
    /// @return E_INVALIDARG: no such switch, or no such value of it.
    virtual HRESULT STDMETHODCALLTYPE put_Switch(ESwitch nSwitch, std::int32_t nValue) = 0;
    /// The counters; all zero without a connection. @return E_POINTER.
    virtual HRESULT STDMETHODCALLTYPE get_Counters(COUNTERS* pCounters) = 0;

protected:
    ~IKestDemux2Control2() = default;
};

}  // namespace kest
