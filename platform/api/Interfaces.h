// The interfaces of the media graph, with the records and flags of their operations.
//
// On Windows they are the system's own; elsewhere the same names, identifiers, layouts and order of
// operations, and only those that the system uses.
#pragma once

#include "platform/api/AsyncReader.h"
#include "platform/api/MediaRecords.h"
#include "platform/api/ResultCodes.h"

#ifdef _WIN32
#include <control.h>
#include <ocidl.h>

#ifndef OATRUE
#define OATRUE (-1)
#endif
#else

// ---------------- records and flags

struct IAMovieSetup;
struct IBaseFilter;
struct IEnumFilters;
struct IEnumMediaTypes;
struct IEnumPins;
struct IFilterGraph;
struct IGraphConfigCallback;
struct IPin;
struct IPinConnection;
struct IQualityControl;
struct IReferenceClock;

enum FILTER_STATE { State_Stopped = 0, State_Paused = 1, State_Running = 2 };
enum PIN_DIRECTION { PINDIR_INPUT = 0, PINDIR_OUTPUT = 1 };

/// Describes a pin; the receiver releases `pFilter`.
struct PIN_INFO {
    IBaseFilter* pFilter;
    PIN_DIRECTION dir;
    WCHAR achName[128];
};

/// Describes a filter; the receiver releases `pGraph`.
struct FILTER_INFO {
    WCHAR achName[128];
    IFilterGraph* pGraph;
};

/// Number, size in bytes, alignment in bytes and prefix in bytes of an allocator's buffers.
struct ALLOCATOR_PROPERTIES {
    LONG cBuffers;
    LONG cbBuffer;
    LONG cbAlign;
    LONG cbPrefix;
};

/// Flag of IMemAllocator::GetBuffer: VFW_E_TIMEOUT instead of a wait.
constexpr DWORD AM_GBF_NOWAIT = 4;

enum QualityMessageType { Famine = 0, Flood = 1 };

/// A renderer's report on its supply: the share that it wants in thousandths, how late it is, and when (100 ns).
struct Quality {
    QualityMessageType Type;
    LONG Proportion;
    REFERENCE_TIME Late;
    REFERENCE_TIME TimeStamp;
};

enum AM_SEEKING_SEEKING_FLAGS {
    AM_SEEKING_NoPositioning = 0x0,
    AM_SEEKING_AbsolutePositioning = 0x1,
    AM_SEEKING_RelativePositioning = 0x2,
    AM_SEEKING_IncrementalPositioning = 0x3,
    AM_SEEKING_PositioningBitsMask = 0x3,
    AM_SEEKING_SeekToKeyFrame = 0x4
};

enum AM_SEEKING_SEEKING_CAPABILITIES {
    AM_SEEKING_CanSeekAbsolute = 0x1,
    AM_SEEKING_CanSeekForwards = 0x2,
    AM_SEEKING_CanSeekBackwards = 0x4,
    AM_SEEKING_CanGetStopPos = 0x10,
    AM_SEEKING_CanGetDuration = 0x20
};

constexpr DWORD AM_PIN_FLOW_CONTROL_BLOCK = 1;

/// From this merit on the host tries a filter before filters of normal merit.
constexpr DWORD MERIT_PREFERRED = 0x800000;

// What an advise signals: a handle in a number. platform/SystemEvent.h says what it is elsewhere than on Windows.
using HEVENT = DWORD_PTR;
using HSEMAPHORE = DWORD_PTR;

/// A counted array in task memory.
struct CAUUID {
    ULONG cElems;
    GUID* pElems;
};

// The automation types are only passed on.
struct ITypeInfo;
struct DISPPARAMS;
struct VARIANT;
struct EXCEPINFO;
using LCID = DWORD;
using DISPID = LONG;
constexpr LONG OATRUE = -1;

// ---------------- identifiers

constexpr IID IID_IDispatch = {0x00020400, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
constexpr IID IID_IClassFactory = {
    0x00000001, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
constexpr IID IID_IPersist = {0x0000010C, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
constexpr IID IID_IMediaFilter = {
    0x56A86899, 0x0AD4, 0x11CE, {0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70}};
constexpr IID IID_IBaseFilter = {
    0x56A86895, 0x0AD4, 0x11CE, {0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70}};
constexpr IID IID_IPin = {0x56A86891, 0x0AD4, 0x11CE, {0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70}};
constexpr IID IID_IEnumPins = {0x56A86892, 0x0AD4, 0x11CE, {0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70}};
constexpr IID IID_IEnumMediaTypes = {
    0x89C31040, 0x846B, 0x11CE, {0x97, 0xD3, 0x00, 0xAA, 0x00, 0x55, 0x59, 0x5A}};
constexpr IID IID_IMemInputPin = {
    0x56A8689D, 0x0AD4, 0x11CE, {0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70}};
constexpr IID IID_IMemAllocator = {
    0x56A8689C, 0x0AD4, 0x11CE, {0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70}};
constexpr IID IID_IMediaSample = {
    0x56A8689A, 0x0AD4, 0x11CE, {0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70}};
constexpr IID IID_IMediaSeeking = {
    0x36B73880, 0xC2C8, 0x11CF, {0x8B, 0x46, 0x00, 0x80, 0x5F, 0x6C, 0xEF, 0x60}};
constexpr IID IID_IMediaPosition = {
    0x56A868B2, 0x0AD4, 0x11CE, {0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70}};
constexpr IID IID_IReferenceClock = {
    0x56A86897, 0x0AD4, 0x11CE, {0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70}};
constexpr IID IID_IQualityControl = {
    0x56A868A5, 0x0AD4, 0x11CE, {0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70}};
constexpr IID IID_IPinFlowControl = {
    0xC56E9858, 0xDBF3, 0x4F6B, {0x81, 0x19, 0x38, 0x4A, 0xF2, 0x06, 0x0D, 0xEB}};
constexpr IID IID_IGraphConfig = {
    0x03A1EB8E, 0x32BF, 0x4245, {0x85, 0x02, 0x11, 0x4D, 0x08, 0xA9, 0xCB, 0x88}};
constexpr IID IID_IFilterGraph = {
    0x56A8689F, 0x0AD4, 0x11CE, {0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70}};
constexpr IID IID_IFileSinkFilter = {
    0xA2104830, 0x7C70, 0x11CF, {0x8B, 0xCE, 0x00, 0xAA, 0x00, 0xA3, 0xF1, 0xA6}};
constexpr IID IID_ISpecifyPropertyPages = {
    0xB196B28B, 0xBAB4, 0x101A, {0xB6, 0x9C, 0x00, 0xAA, 0x00, 0x34, 0x1D, 0x07}};
constexpr IID IID_IAMovieSetup = {
    0xA3D8CEC0, 0x7E5A, 0x11CF, {0xBB, 0xC5, 0x00, 0x80, 0x5F, 0x6C, 0xEF, 0x20}};

// ---------------- class objects

struct IClassFactory : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* pUnkOuter, REFIID riid, void** ppvObject) = 0;
    virtual HRESULT STDMETHODCALLTYPE LockServer(BOOL fLock) = 0;
};

// ---------------- filters

struct IPersist : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetClassID(CLSID* pClassID) = 0;
};

/// The states of a filter and its clock.
struct IMediaFilter : IPersist {
    virtual HRESULT STDMETHODCALLTYPE Stop() = 0;
    virtual HRESULT STDMETHODCALLTYPE Pause() = 0;
    /// @param tStart  reference time at which the stream time is 0.
    virtual HRESULT STDMETHODCALLTYPE Run(REFERENCE_TIME tStart) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetState(DWORD dwMilliSecsTimeout, FILTER_STATE* State) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetSyncSource(IReferenceClock* pClock) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetSyncSource(IReferenceClock** pClock) = 0;
};

struct IBaseFilter : IMediaFilter {
    virtual HRESULT STDMETHODCALLTYPE EnumPins(IEnumPins** ppEnum) = 0;
    virtual HRESULT STDMETHODCALLTYPE FindPin(LPCWSTR Id, IPin** ppPin) = 0;
    virtual HRESULT STDMETHODCALLTYPE QueryFilterInfo(FILTER_INFO* pInfo) = 0;
    /// Null: the filter leaves its graph.
    virtual HRESULT STDMETHODCALLTYPE JoinFilterGraph(IFilterGraph* pGraph, LPCWSTR pName) = 0;
    virtual HRESULT STDMETHODCALLTYPE QueryVendorInfo(LPWSTR* pVendorInfo) = 0;
};

struct IEnumPins : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE Next(ULONG cPins, IPin** ppPins, ULONG* pcFetched) = 0;
    virtual HRESULT STDMETHODCALLTYPE Skip(ULONG cPins) = 0;
    virtual HRESULT STDMETHODCALLTYPE Reset() = 0;
    virtual HRESULT STDMETHODCALLTYPE Clone(IEnumPins** ppEnum) = 0;
};

struct IAMovieSetup : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE Register() = 0;
    virtual HRESULT STDMETHODCALLTYPE Unregister() = 0;
};

struct ISpecifyPropertyPages : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetPages(CAUUID* pPages) = 0;
};

struct IFileSinkFilter : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE SetFileName(LPCOLESTR pszFileName, const AM_MEDIA_TYPE* pmt) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetCurFile(LPOLESTR* ppszFileName, AM_MEDIA_TYPE* pmt) = 0;
};

// ---------------- pins

struct IPin : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE Connect(IPin* pReceivePin, const AM_MEDIA_TYPE* pmt) = 0;
    virtual HRESULT STDMETHODCALLTYPE ReceiveConnection(IPin* pConnector, const AM_MEDIA_TYPE* pmt) = 0;
    virtual HRESULT STDMETHODCALLTYPE Disconnect() = 0;
    virtual HRESULT STDMETHODCALLTYPE ConnectedTo(IPin** pPin) = 0;
    virtual HRESULT STDMETHODCALLTYPE ConnectionMediaType(AM_MEDIA_TYPE* pmt) = 0;
    virtual HRESULT STDMETHODCALLTYPE QueryPinInfo(PIN_INFO* pInfo) = 0;
    virtual HRESULT STDMETHODCALLTYPE QueryDirection(PIN_DIRECTION* pPinDir) = 0;
    virtual HRESULT STDMETHODCALLTYPE QueryId(LPWSTR* Id) = 0;
    virtual HRESULT STDMETHODCALLTYPE QueryAccept(const AM_MEDIA_TYPE* pmt) = 0;
    virtual HRESULT STDMETHODCALLTYPE EnumMediaTypes(IEnumMediaTypes** ppEnum) = 0;
    virtual HRESULT STDMETHODCALLTYPE QueryInternalConnections(IPin** apPin, ULONG* nPin) = 0;
    virtual HRESULT STDMETHODCALLTYPE EndOfStream() = 0;
    virtual HRESULT STDMETHODCALLTYPE BeginFlush() = 0;
    virtual HRESULT STDMETHODCALLTYPE EndFlush() = 0;
    virtual HRESULT STDMETHODCALLTYPE NewSegment(REFERENCE_TIME tStart, REFERENCE_TIME tStop,
                                                 double dRate) = 0;
};

struct IEnumMediaTypes : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE Next(ULONG cMediaTypes, AM_MEDIA_TYPE** ppMediaTypes,
                                           ULONG* pcFetched) = 0;
    virtual HRESULT STDMETHODCALLTYPE Skip(ULONG cMediaTypes) = 0;
    virtual HRESULT STDMETHODCALLTYPE Reset() = 0;
    virtual HRESULT STDMETHODCALLTYPE Clone(IEnumMediaTypes** ppEnum) = 0;
};

struct IQualityControl : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE Notify(IBaseFilter* pSelf, Quality q) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetSink(IQualityControl* piqc) = 0;
};

struct IPinFlowControl : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE Block(DWORD dwBlockFlags, HANDLE hEvent) = 0;
};

// ---------------- samples

struct IMediaSample : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetPointer(BYTE** ppBuffer) = 0;
    virtual LONG STDMETHODCALLTYPE GetSize() = 0;
    virtual HRESULT STDMETHODCALLTYPE GetTime(REFERENCE_TIME* pTimeStart, REFERENCE_TIME* pTimeEnd) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetTime(REFERENCE_TIME* pTimeStart, REFERENCE_TIME* pTimeEnd) = 0;
    virtual HRESULT STDMETHODCALLTYPE IsSyncPoint() = 0;
    virtual HRESULT STDMETHODCALLTYPE SetSyncPoint(BOOL bIsSyncPoint) = 0;
    virtual HRESULT STDMETHODCALLTYPE IsPreroll() = 0;
    virtual HRESULT STDMETHODCALLTYPE SetPreroll(BOOL bIsPreroll) = 0;
    virtual LONG STDMETHODCALLTYPE GetActualDataLength() = 0;
    virtual HRESULT STDMETHODCALLTYPE SetActualDataLength(LONG nLength) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetMediaType(AM_MEDIA_TYPE** ppMediaType) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetMediaType(AM_MEDIA_TYPE* pMediaType) = 0;
    virtual HRESULT STDMETHODCALLTYPE IsDiscontinuity() = 0;
    virtual HRESULT STDMETHODCALLTYPE SetDiscontinuity(BOOL bDiscontinuity) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetMediaTime(LONGLONG* pTimeStart, LONGLONG* pTimeEnd) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetMediaTime(LONGLONG* pTimeStart, LONGLONG* pTimeEnd) = 0;
};

struct IMemAllocator : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE SetProperties(ALLOCATOR_PROPERTIES* pRequest,
                                                    ALLOCATOR_PROPERTIES* pActual) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetProperties(ALLOCATOR_PROPERTIES* pProps) = 0;
    virtual HRESULT STDMETHODCALLTYPE Commit() = 0;
    virtual HRESULT STDMETHODCALLTYPE Decommit() = 0;
    virtual HRESULT STDMETHODCALLTYPE GetBuffer(IMediaSample** ppBuffer, REFERENCE_TIME* pStartTime,
                                                REFERENCE_TIME* pEndTime, DWORD dwFlags) = 0;
    virtual HRESULT STDMETHODCALLTYPE ReleaseBuffer(IMediaSample* pBuffer) = 0;
};

struct IMemInputPin : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetAllocator(IMemAllocator** ppAllocator) = 0;
    virtual HRESULT STDMETHODCALLTYPE NotifyAllocator(IMemAllocator* pAllocator, BOOL bReadOnly) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetAllocatorRequirements(ALLOCATOR_PROPERTIES* pProps) = 0;
    virtual HRESULT STDMETHODCALLTYPE Receive(IMediaSample* pSample) = 0;
    virtual HRESULT STDMETHODCALLTYPE ReceiveMultiple(IMediaSample** pSamples, LONG nSamples,
                                                      LONG* nSamplesProcessed) = 0;
    virtual HRESULT STDMETHODCALLTYPE ReceiveCanBlock() = 0;
};

// ---------------- clock and seeking

struct IReferenceClock : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetTime(REFERENCE_TIME* pTime) = 0;
    virtual HRESULT STDMETHODCALLTYPE AdviseTime(REFERENCE_TIME baseTime, REFERENCE_TIME streamTime,
                                                 HEVENT hEvent, DWORD_PTR* pdwAdviseCookie) = 0;
    virtual HRESULT STDMETHODCALLTYPE AdvisePeriodic(REFERENCE_TIME startTime, REFERENCE_TIME periodTime,
                                                     HSEMAPHORE hSemaphore, DWORD_PTR* pdwAdviseCookie) = 0;
    virtual HRESULT STDMETHODCALLTYPE Unadvise(DWORD_PTR dwAdviseCookie) = 0;
};

struct IMediaSeeking : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetCapabilities(DWORD* pCapabilities) = 0;
    virtual HRESULT STDMETHODCALLTYPE CheckCapabilities(DWORD* pCapabilities) = 0;
    virtual HRESULT STDMETHODCALLTYPE IsFormatSupported(const GUID* pFormat) = 0;
    virtual HRESULT STDMETHODCALLTYPE QueryPreferredFormat(GUID* pFormat) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetTimeFormat(GUID* pFormat) = 0;
    virtual HRESULT STDMETHODCALLTYPE IsUsingTimeFormat(const GUID* pFormat) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetTimeFormat(const GUID* pFormat) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetDuration(LONGLONG* pDuration) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetStopPosition(LONGLONG* pStop) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetCurrentPosition(LONGLONG* pCurrent) = 0;
    virtual HRESULT STDMETHODCALLTYPE ConvertTimeFormat(LONGLONG* pTarget, const GUID* pTargetFormat,
                                                        LONGLONG Source, const GUID* pSourceFormat) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetPositions(LONGLONG* pCurrent, DWORD dwCurrentFlags, LONGLONG* pStop,
                                                   DWORD dwStopFlags) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetPositions(LONGLONG* pCurrent, LONGLONG* pStop) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetAvailable(LONGLONG* pEarliest, LONGLONG* pLatest) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetRate(double dRate) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetRate(double* pdRate) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetPreroll(LONGLONG* pllPreroll) = 0;
};

struct IDispatch : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* pctinfo) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT iTInfo, LCID lcid, ITypeInfo** ppTInfo) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID riid, LPOLESTR* rgszNames, UINT cNames, LCID lcid,
                                                    DISPID* rgDispId) = 0;
    virtual HRESULT STDMETHODCALLTYPE Invoke(DISPID dispIdMember, REFIID riid, LCID lcid, WORD wFlags,
                                             DISPPARAMS* pDispParams, VARIANT* pVarResult,
                                             EXCEPINFO* pExcepInfo, UINT* puArgErr) = 0;
};

struct IMediaPosition : IDispatch {
    virtual HRESULT STDMETHODCALLTYPE get_Duration(REFTIME* plength) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_CurrentPosition(REFTIME llTime) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_CurrentPosition(REFTIME* pllTime) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_StopTime(REFTIME* pllTime) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_StopTime(REFTIME llTime) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_PrerollTime(REFTIME* pllTime) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_PrerollTime(REFTIME llTime) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_Rate(double dRate) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Rate(double* pdRate) = 0;
    virtual HRESULT STDMETHODCALLTYPE CanSeekForward(LONG* pCanSeekForward) = 0;
    virtual HRESULT STDMETHODCALLTYPE CanSeekBackward(LONG* pCanSeekBackward) = 0;
};

// ---------------- the graph

struct IFilterGraph : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE AddFilter(IBaseFilter* pFilter, LPCWSTR pName) = 0;
    virtual HRESULT STDMETHODCALLTYPE RemoveFilter(IBaseFilter* pFilter) = 0;
    virtual HRESULT STDMETHODCALLTYPE EnumFilters(IEnumFilters** ppEnum) = 0;
    virtual HRESULT STDMETHODCALLTYPE FindFilterByName(LPCWSTR pName, IBaseFilter** ppFilter) = 0;
    virtual HRESULT STDMETHODCALLTYPE ConnectDirect(IPin* ppinOut, IPin* ppinIn,
                                                    const AM_MEDIA_TYPE* pmt) = 0;
    virtual HRESULT STDMETHODCALLTYPE Reconnect(IPin* ppin) = 0;
    virtual HRESULT STDMETHODCALLTYPE Disconnect(IPin* ppin) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetDefaultSyncSource() = 0;
};

/// Changes to a graph that is not stopped.
struct IGraphConfig : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE Reconnect(IPin* pOutputPin, IPin* pInputPin,
                                                const AM_MEDIA_TYPE* pmtFirstConnection,
                                                IBaseFilter* pUsingFilter, HANDLE hAbortEvent,
                                                DWORD dwFlags) = 0;
    virtual HRESULT STDMETHODCALLTYPE Reconfigure(IGraphConfigCallback* pCallback, PVOID pvContext,
                                                  DWORD dwFlags, HANDLE hAbortEvent) = 0;
    virtual HRESULT STDMETHODCALLTYPE AddFilterToCache(IBaseFilter* pFilter) = 0;
    virtual HRESULT STDMETHODCALLTYPE EnumCacheFilter(IEnumFilters** pEnum) = 0;
    virtual HRESULT STDMETHODCALLTYPE RemoveFilterFromCache(IBaseFilter* pFilter) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetStartTime(REFERENCE_TIME* prtStart) = 0;
    virtual HRESULT STDMETHODCALLTYPE PushThroughData(IPin* pOutputPin, IPinConnection* pConnection,
                                                      HANDLE hEventAbort) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetFilterFlags(IBaseFilter* pFilter, DWORD dwFlags) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetFilterFlags(IBaseFilter* pFilter, DWORD* pdwFlags) = 0;
    virtual HRESULT STDMETHODCALLTYPE RemoveFilterEx(IBaseFilter* pFilter, DWORD Flags) = 0;
};

#endif
