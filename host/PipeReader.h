#pragma once

#include <filesystem>
#include <system_error>
#include <vector>

#include "host/InputReader.h"

namespace kest {

/// A stream that is read once, as it comes: standard input, a named pipe, a terminal. Its beginning can be
/// fetched ahead for a probe, which reads it at any position; `ReadNext` gives it out first.
///
/// Nobody else should read the same pipe: a read that finds nothing there any more may wait without end.
class CPipeReader final : public CInputReader {
public:
    /// @param path   "-" is standard input, as the program was given it. A named pipe needs no writer yet.
    /// @return the reader, or none.
    static CComPtr<CPipeReader> Open(const std::filesystem::path& path, std::error_code& error);

    /// Waits for the first nBytes of the stream, or for as many as it has. For use before `ReadNext`.
    void FetchBeginning(std::size_t nBytes, const ShouldLeave& shouldLeave);

    /// Waits for the first byte; collects more as long as they come within kCheckMs and there is room.
    std::size_t ReadNext(std::span<BYTE> dest, const ShouldLeave& shouldLeave) override;
    void Rewind() override {}
    bool IsSeekable() const override { return false; }

    /// Of the beginning that was fetched, until `ReadNext`. E_INVALIDARG for a negative position or length.
    HRESULT STDMETHODCALLTYPE SyncRead(LONGLONG llPosition, LONG lLength, BYTE* pBuffer) override;
    /// Of the beginning.
    HRESULT STDMETHODCALLTYPE Length(LONGLONG* pTotal, LONGLONG* pAvailable) override;

private:
    explicit CPipeReader(int hPipe) : m_hPipe(hPipe) {}
    ~CPipeReader() override;

    bool AwaitBytes(int nMs) const;
    std::size_t ReadWhatIsThere(std::span<BYTE> dest);
    std::size_t Collect(std::span<BYTE> dest, const ShouldLeave& shouldLeave);

    const int m_hPipe;              // open for reading, owned
    std::vector<BYTE> m_beginning;  // fetched ahead
    std::size_t m_nGiven = 0;       // bytes of it that ReadNext has given out
    LONGLONG m_llPosition = 0;      // bytes read from the pipe
    bool m_bEnded = false;          // there is nothing more
};

}  // namespace kest
