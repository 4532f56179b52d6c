// IAsyncReader: how a pull source lets others read it.
#pragma once

#include "platform/api/Unknown.h"

#ifdef _WIN32
#include <strmif.h>
#else

struct IMemAllocator;
struct IMediaSample;
struct ALLOCATOR_PROPERTIES;

constexpr IID IID_IAsyncReader = {
    0x56A868AA, 0x0AD4, 0x11CE, {0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70}};

/// Reads a source of known length at any position. Positions and lengths are in bytes.
struct IAsyncReader : IUnknown {
    /// Agrees on the allocator of the samples that `Request` fills.
    virtual HRESULT STDMETHODCALLTYPE RequestAllocator(IMemAllocator* pPreferred,
                                                       ALLOCATOR_PROPERTIES* pProps,
                                                       IMemAllocator** ppActual) = 0;
    /// Queues a read; the sample's start and stop time are the byte range × 10000000.
    virtual HRESULT STDMETHODCALLTYPE Request(IMediaSample* pSample, DWORD_PTR dwUser) = 0;
    /// Waits for a queued read to end.
    virtual HRESULT STDMETHODCALLTYPE WaitForNext(DWORD dwTimeout, IMediaSample** ppSample,
                                                  DWORD_PTR* pdwUser) = 0;
    /// Reads one sample before it returns, aligned as the allocator requires.
    virtual HRESULT STDMETHODCALLTYPE SyncReadAligned(IMediaSample* pSample) = 0;
    /// Reads lLength bytes at llPosition into pBuffer. S_OK: all were read; S_FALSE: the source ended first, and
    /// the bytes up to its end were read; else an error.
    virtual HRESULT STDMETHODCALLTYPE SyncRead(LONGLONG llPosition, LONG lLength, BYTE* pBuffer) = 0;
    /// The total length, and the length that can be read now.
    virtual HRESULT STDMETHODCALLTYPE Length(LONGLONG* pTotal, LONGLONG* pAvailable) = 0;
    /// Ends queued reads and waits at once, until `EndFlush`.
    virtual HRESULT STDMETHODCALLTYPE BeginFlush() = 0;
    virtual HRESULT STDMETHODCALLTYPE EndFlush() = 0;
};

#endif
