#include "host/OutputFile.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <optional>
#include <string>
#include <system_error>
#include <utility>

#include "host/CommandError.h"
#include "host/Interrupts.h"

namespace kest {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kBufferSize = std::size_t{256} * 1024;
constexpr int kInterruptLookMs = 50;  // how often a wait looks for an interrupt

void ThrowIfInterrupted() {
    if (IsInterrupted()) throw CCommandError(kExitInterrupted, "interrupted");
}

std::optional<struct stat> StatOf(const fs::path& path) {
    struct stat info {};
    const int nResult = path == "-" ? fstat(STDOUT_FILENO, &info) : stat(path.c_str(), &info);
    return nResult == 0 ? std::optional(info) : std::nullopt;
}

/// Where a chain of symbolic links ends, whether there is something or not.
fs::path FollowLinks(fs::path path) {
    constexpr int kMaxLinks = 40;
    std::error_code error;
    for (int i = 0; i < kMaxLinks && fs::is_symlink(fs::symlink_status(path, error)); ++i) {
        const fs::path next = fs::read_symlink(path, error);
        if (error) break;
        path = path.parent_path() / next;  // an absolute one stands for itself
    }
    return path;
}

/// Moves a file to a name that must be free.
int RenameToFree(const fs::path& from, const fs::path& to) {
    if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return 0;
    if (errno != EINVAL && errno != ENOSYS) return -1;
    if (link(from.c_str(), to.c_str()) != 0) return -1;  // the file system does not know the flag
    return unlink(from.c_str());
}

}  // namespace

COutputFile::COutputFile(const fs::path& path, bool bForce) : m_bForce(bForce), m_path(path) {
    m_buffer.reserve(kBufferSize);
    const auto info = StatOf(path);
    m_bMayBlock = info && !S_ISREG(info->st_mode);
    if (path == "-") {
        m_path = "standard output";
        m_hFile = STDOUT_FILENO;
        return;
    }
    if (m_bMayBlock) {
        OpenSpecial(S_ISFIFO(info->st_mode));
        return;
    }
    if (info && !bForce) {
        throw CCommandError(kExitBadOutput, path.string() + ": exists already; --force overwrites it");
    }
    m_target = FollowLinks(path);
    OpenTemporary(info.has_value());
    if (info) fchmod(m_hFile, info->st_mode & 07777);
}

COutputFile::~COutputFile() {
    if (m_hFile >= 0 && m_hFile != STDOUT_FILENO) close(m_hFile);
    if (!m_temporary.empty()) unlink(m_temporary.c_str());
}

/// A named pipe opens without waiting, so that an interrupt is seen while nobody reads it.
void COutputFile::OpenSpecial(bool bPipe) {
    for (;;) {
        m_hFile = open(m_path.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
        if (m_hFile >= 0) break;
        if (errno != EINTR && !(errno == ENXIO && bPipe)) Fail();
        ThrowIfInterrupted();
        poll(nullptr, 0, kInterruptLookMs);
    }
    fcntl(m_hFile, F_SETFL, 0);  // blocking again; opened here, so nobody else shares the mode
}

void COutputFile::OpenTemporary(bool bExists) {
    constexpr std::size_t kMaxStem = 200;  // leaves room for the rest of a name
    constexpr int kMaxTries = 100;         // leftovers of programs that were killed
    if (bExists && access(m_target.c_str(), W_OK) != 0) Fail();
    std::string strStem = ".";
    strStem.append(m_target.filename().string(), 0, kMaxStem);
    strStem.append(".part-").append(std::to_string(getpid()));
    for (int i = 0; i < kMaxTries && m_hFile < 0; ++i) {
        m_temporary = m_target.parent_path() / strStem;
        if (i > 0) m_temporary += std::to_string(-i);
        m_hFile = open(m_temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (m_hFile < 0 && errno != EEXIST) break;
    }
    if (m_hFile >= 0) return;
    m_temporary.clear();
    Fail();
}

void COutputFile::Write(std::span<const std::uint8_t> bytes) {
    ThrowIfInterrupted();
    m_nSize += bytes.size();
    while (!bytes.empty()) {
        const auto piece = bytes.first(std::min(bytes.size(), kBufferSize - m_buffer.size()));
        m_buffer.insert(m_buffer.end(), piece.begin(), piece.end());
        bytes = bytes.subspan(piece.size());
        if (m_buffer.size() == kBufferSize) WriteOut();
    }
}

/// Writes out the buffer. What may block, because somebody else has to read it, is written only when it takes
/// bytes and in pieces that it then takes at once: an interrupt may go to any thread and end no call of this
/// one.
void COutputFile::WriteOut() {
    std::span<const std::uint8_t> rest = m_buffer;
    while (!rest.empty()) {
        ThrowIfInterrupted();
        std::size_t nPiece = rest.size();
        if (m_bMayBlock) {
            pollfd ready{m_hFile, POLLOUT, 0};
            if (poll(&ready, 1, kInterruptLookMs) <= 0) continue;
            nPiece = std::min<std::size_t>(nPiece, PIPE_BUF);
        }
        const ssize_t nWritten = write(m_hFile, rest.data(), nPiece);
        if (nWritten < 0 && errno != EINTR && errno != EAGAIN) Fail();
        if (nWritten > 0) rest = rest.subspan(static_cast<std::size_t>(nWritten));
    }
    m_buffer.clear();
}

void COutputFile::Flush() {
    if (m_hFile < 0) return;
    WriteOut();
    const int hFile = std::exchange(m_hFile, -1);
    if (hFile != STDOUT_FILENO && close(hFile) != 0) Fail();
}

void COutputFile::Commit() {
    Flush();
    if (m_temporary.empty()) return;
    const int nResult =
        m_bForce ? std::rename(m_temporary.c_str(), m_target.c_str()) : RenameToFree(m_temporary, m_target);
    if (nResult != 0) Fail();
    m_temporary.clear();
}

void COutputFile::Fail() const {
    throw CCommandError(kExitBadOutput,
                        m_path.string() + ": " + std::error_code(errno, std::generic_category()).message());
}

bool AreSamePlace(const fs::path& a, const fs::path& b) {
    const auto infoA = StatOf(a), infoB = StatOf(b);
    if (infoA && infoB) {
        return !S_ISCHR(infoA->st_mode) && infoA->st_dev == infoB->st_dev && infoA->st_ino == infoB->st_ino;
    }
    auto Place = [](const fs::path& path) {
        std::error_code ignored;
        return fs::weakly_canonical(fs::absolute(FollowLinks(path), ignored), ignored);
    };
    return !infoA && !infoB && Place(a) == Place(b);
}

}  // namespace kest
