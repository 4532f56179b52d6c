#include "host/PipeReader.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace kest {

// Non-blocking opens do not wait for a writer. What the program was given is shared with others: its mode stays,
// and reads are made when there is something.
CComPtr<CPipeReader> CPipeReader::Open(const std::filesystem::path& path, std::error_code& error) {
    error.clear();
    const int hPipe = path == "-" ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0)
                                  : open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
    if (hPipe >= 0) return CComPtr<CPipeReader>::Attach(new CPipeReader(hPipe));
    error.assign(errno, std::generic_category());
    return nullptr;
}

CPipeReader::~CPipeReader() { close(m_hPipe); }

void CPipeReader::FetchBeginning(std::size_t nBytes, const ShouldLeave& shouldLeave) {
    m_beginning.resize(nBytes);
    std::size_t nDone = 0;
    while (nDone < nBytes) {
        const std::size_t nRead = Collect(std::span(m_beginning).subspan(nDone), shouldLeave);
        if (nRead == 0) break;
        nDone += nRead;
    }
    m_beginning.resize(nDone);
}

std::size_t CPipeReader::ReadNext(std::span<BYTE> dest, const ShouldLeave& shouldLeave) {
    if (m_nGiven == m_beginning.size()) return Collect(dest, shouldLeave);
    const auto part =
        std::span(m_beginning).subspan(m_nGiven).first(std::min(dest.size(), m_beginning.size() - m_nGiven));
    std::ranges::copy(part, dest.begin());
    m_nGiven += part.size();
    if (m_nGiven == m_beginning.size()) {
        m_beginning = {};
        m_nGiven = 0;
    }
    return part.size();
}

std::size_t CPipeReader::Collect(std::span<BYTE> dest, const ShouldLeave& shouldLeave) {
    std::size_t nDone = 0;
    while (nDone < dest.size() && !m_bEnded && !shouldLeave()) {
        if (AwaitBytes(kCheckMs)) {
            nDone += ReadWhatIsThere(dest.subspan(nDone));
        } else if (nDone > 0) {
            break;
        }
    }
    return nDone;
}

/// Whether a read would not wait, for it finds bytes, the end or an error.
bool CPipeReader::AwaitBytes(int nMs) const {
    pollfd entry{m_hPipe, POLLIN, 0};
    return poll(&entry, 1, nMs) > 0;
}

std::size_t CPipeReader::ReadWhatIsThere(std::span<BYTE> dest) {
    const ssize_t nRead = read(m_hPipe, dest.data(), dest.size());
    if (nRead > 0) {
        m_llPosition += nRead;
        return static_cast<std::size_t>(nRead);
    }
    if (nRead < 0 && (errno == EINTR || errno == EAGAIN)) return 0;
    if (nRead < 0) NoteError(m_llPosition);
    m_bEnded = true;
    return 0;
}

HRESULT CPipeReader::SyncRead(LONGLONG llPosition, LONG lLength, BYTE* pBuffer) {
    if (llPosition < 0 || lLength < 0) return E_INVALIDARG;
    const auto nSize = static_cast<LONGLONG>(m_beginning.size());
    const LONGLONG llBegin = std::min(llPosition, nSize),
                   llCount = std::min<LONGLONG>(lLength, nSize - llBegin);
    std::copy_n(m_beginning.begin() + llBegin, llCount, pBuffer);
    return llCount == lLength ? S_OK : S_FALSE;
}

HRESULT CPipeReader::Length(LONGLONG* pTotal, LONGLONG* pAvailable) {
    if (!pTotal || !pAvailable) return E_POINTER;
    *pTotal = *pAvailable = static_cast<LONGLONG>(m_beginning.size());
    return S_OK;
}

}  // namespace kest
