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

constexpr std::size_t kBufferSize = std::size_t{256} * 1024;  // whole pages
constexpr std::size_t kLargeWrite = 8192;                     // bytes that are not worth collecting
constexpr auto kMaxAge = std::chrono::milliseconds(20);       // of what was collected for a reader
constexpr int kInterruptCheckMs = 50;                         // how often a wait checks for an interrupt

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

/// The name by which a process reaches one of its open files.
std::string DescriptorPath(int hFile) { return "/proc/self/fd/" + std::to_string(hFile); }

/// Gives an open file without a name one that must be free.
bool LinkToFree(int hFile, const fs::path& to) {
    return linkat(AT_FDCWD, DescriptorPath(hFile).c_str(), AT_FDCWD, to.c_str(), AT_SYMLINK_FOLLOW) == 0;
}

/// Creates a file without a name. @return -1 when the file system cannot, or could not name it later.
int OpenUnnamed(const fs::path& folder) {
    const int hFile = open(folder.c_str(), O_WRONLY | O_TMPFILE | O_CLOEXEC, 0666);
    if (hFile < 0 || access(DescriptorPath(hFile).c_str(), F_OK) == 0) return hFile;
    close(hFile);
    return -1;
}

}  // namespace

// ---------------- opening

COutputFile::COutputFile(const fs::path& path, bool bForce) : m_bForce(bForce), m_path(path) {
    m_buffer.reserve(kBufferSize);
    const auto info = StatOf(path);
    m_bLive = info && !S_ISREG(info->st_mode);
    if (path == "-") {
        OpenStandardOutput();
        return;
    }
    if (m_bLive) {
        OpenSpecial(S_ISFIFO(info->st_mode));
        return;
    }
    if (info && !bForce) {
        throw CCommandError(kExitBadOutput, path.string() + ": exists already; --force overwrites it");
    }
    m_target = FollowLinks(path);
    OpenRegular(info.has_value());
    if (info) fchmod(m_hFile, info->st_mode & 07777);
}

COutputFile::~COutputFile() {
    if (m_hFile >= 0 && m_hFile != STDOUT_FILENO) close(m_hFile);
    if (!m_temporary.empty()) unlink(m_temporary.c_str());
}

/// Others may share the mode of what the program was given, so it is opened anew to be written without
/// waiting. What cannot be opened anew (a socket, somebody else's pipe) is written to as it is.
void COutputFile::OpenStandardOutput() {
    m_path = "standard output";
    if (m_bLive) {
        m_hFile = open(DescriptorPath(STDOUT_FILENO).c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
    }
    if (m_hFile >= 0) return;
    m_hFile = STDOUT_FILENO;
    m_bMayBlock = m_bLive;
}

/// Opens and writes without waiting, so that an interrupt is seen while nobody reads.
void COutputFile::OpenSpecial(bool bPipe) {
    for (;;) {
        m_hFile = open(m_path.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
        if (m_hFile >= 0) return;
        if (errno != EINTR && !(errno == ENXIO && bPipe)) Fail();
        ThrowIfInterrupted();
        poll(nullptr, 0, kInterruptCheckMs);
    }
}

void COutputFile::OpenRegular(bool bExists) {
    if (bExists && access(m_target.c_str(), W_OK) != 0) Fail();
    const fs::path folder = m_target.parent_path();
    m_hFile = OpenUnnamed(folder.empty() ? "." : folder);
    if (m_hFile >= 0) return;
    const bool bNamed = TakeTemporaryName([this](const fs::path& path) {
        m_hFile = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        return m_hFile >= 0;
    });
    if (!bNamed) Fail();
}

/// Finds a free name beside the target.
/// @param take  makes a file of that name; false, with errno EEXIST when the name is not free.
template <class Take>
bool COutputFile::TakeTemporaryName(Take take) {
    constexpr std::size_t kMaxStem = 200;  // leaves room for the rest of a name
    constexpr int kMaxTries = 100;         // what programs that were killed have left behind
    std::string strStem = ".";
    strStem.append(m_target.filename().string(), 0, kMaxStem);
    strStem.append(".part-").append(std::to_string(getpid()));
    for (int i = 0; i < kMaxTries; ++i) {
        fs::path path = m_target.parent_path() / strStem;
        if (i > 0) path += std::to_string(-i);
        if (take(path)) {
            m_temporary = std::move(path);
            return true;
        }
        if (errno != EEXIST) break;
    }
    return false;
}

// ---------------- writing

void COutputFile::Write(Bytes bytes) {
    ThrowIfInterrupted();
    m_nSize += bytes.size();
    if (m_bLive && bytes.size() >= kLargeWrite) {
        WriteCollected();
        WriteOut(bytes);
        return;
    }
    while (!bytes.empty()) {
        const Bytes part = bytes.first(std::min(bytes.size(), kBufferSize - m_buffer.size()));
        m_buffer.insert(m_buffer.end(), part.begin(), part.end());
        bytes = bytes.subspan(part.size());
        if (m_buffer.size() == kBufferSize) WriteCollected();
    }
    if (m_bLive && std::chrono::steady_clock::now() - m_lastWrite > kMaxAge) WriteCollected();
}

void COutputFile::WriteCollected() {
    WriteOut(m_buffer);
    m_buffer.clear();
    if (m_bLive) m_lastWrite = std::chrono::steady_clock::now();
}

/// Waits for a reader in short turns, for an interrupt may go to any thread and so end no call of this one. A
/// write that may block is made when there is room, and of no more than that certainly takes.
void COutputFile::WriteOut(Bytes bytes) {
    pollfd room{m_hFile, POLLOUT, 0};
    while (!bytes.empty()) {
        ThrowIfInterrupted();
        if (m_bMayBlock && poll(&room, 1, kInterruptCheckMs) <= 0) continue;
        const std::size_t nMost = m_bMayBlock ? PIPE_BUF : bytes.size();
        const ssize_t nWritten = write(m_hFile, bytes.data(), std::min(bytes.size(), nMost));
        if (nWritten >= 0) {
            bytes = bytes.subspan(static_cast<std::size_t>(nWritten));
        } else if (errno == EAGAIN) {
            poll(&room, 1, kInterruptCheckMs);
        } else if (errno != EINTR) {
            Fail();
        }
    }
}

void COutputFile::Flush() {
    if (m_hFile < 0) return;
    WriteCollected();
    if (IsUnnamed()) return;  // it is there as long as it is open
    const int hFile = std::exchange(m_hFile, -1);
    if (hFile != STDOUT_FILENO && close(hFile) != 0) Fail();
}

// ---------------- taking its place

void COutputFile::Commit() {
    Flush();
    if (m_target.empty()) return;
    if (!IsUnnamed()) {
        TakePlace();
    } else if (!LinkToFree(m_hFile, m_target)) {
        if (errno != EEXIST || !m_bForce) Fail();
        if (!TakeTemporaryName([this](const fs::path& path) { return LinkToFree(m_hFile, path); })) Fail();
        TakePlace();
    }
    m_target.clear();
}

/// Moves the file from its temporary name to its place.
void COutputFile::TakePlace() {
    const int nResult =
        m_bForce ? std::rename(m_temporary.c_str(), m_target.c_str()) : RenameToFree(m_temporary, m_target);
    if (nResult != 0) Fail();
    m_temporary.clear();
}

void COutputFile::Fail() const {
    throw CCommandError(kExitBadOutput,
                        m_path.string() + ": " + std::error_code(errno, std::generic_category()).message());
}

void WriteTextFile(const fs::path& path, bool bForce, const std::string& strText) {
    COutputFile file(path, bForce);
    file.Write({reinterpret_cast<const std::uint8_t*>(strText.data()), strText.size()});
    file.Commit();
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
