#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <span>
#include <string>
#include <vector>

namespace kest {

/// A file that a command writes. Operations throw CCommandError when the output cannot be written or the user
/// interrupts the program. One thread at a time uses it.
///
/// A regular file has no name until `Commit`, where the file system can do that, and takes its place there:
/// until then nothing is there, or the file that was there before, and a program that is killed leaves
/// nothing behind. Other file systems get a hidden file beside the place, which is removed unless the program
/// is killed. A symbolic link is followed and stays. Devices, pipes and standard output are written to as
/// they are.
///
/// A file gets whole pages, many at a time. A device or pipe gets large spans of bytes as they come; small
/// ones are collected, for 20 ms at most while more bytes come, since somebody may be reading them.
///
/// Several outputs that belong together are first flushed, all of them, and then committed.
class COutputFile {
public:
    /// Waits for the reader of a named pipe.
    /// @param path    "-" is standard output.
    /// @param bForce  replace a file that exists; without it that is an error.
    COutputFile(const std::filesystem::path& path, bool bForce);
    ~COutputFile();
    COutputFile(const COutputFile&) = delete;
    COutputFile& operator=(const COutputFile&) = delete;

    /// Nothing can be written after `Flush`.
    void Write(std::span<const std::uint8_t> bytes);
    /// Writes out what was collected; more may follow.
    void WriteCollected();
    /// `WriteCollected`, for the last time.
    void Flush();
    /// `Flush`, and puts the file into its place.
    void Commit();
    /// Bytes given to `Write` so far.
    std::uint64_t GetSize() const { return m_nSize; }

private:
    using Bytes = std::span<const std::uint8_t>;

    void OpenStandardOutput();
    void OpenSpecial(bool bPipe);
    void OpenRegular(bool bExists);
    template <class Take>
    bool TakeTemporaryName(Take take);
    bool IsUnnamed() const { return !m_target.empty() && m_temporary.empty(); }
    void WriteOut(Bytes bytes);
    void TakePlace();
    [[noreturn]] void Fail() const;

    const bool m_bForce;
    std::filesystem::path m_path;        // as messages name it
    std::filesystem::path m_target;      // a regular file's place, links followed; empty once it is there
    std::filesystem::path m_temporary;   // the name that the regular file has until then, if any
    int m_hFile = -1;                    // open until Flush; a file without a name until Commit
    bool m_bLive = false;                // a pipe or device: somebody may be reading it
    bool m_bMayBlock = false;            // a write may wait for that reader
    std::vector<std::uint8_t> m_buffer;  // what was collected
    std::chrono::steady_clock::time_point m_lastWrite{};  // of what was collected, when live
    std::uint64_t m_nSize = 0;                            // see GetSize
};

/// Writes a text as a whole file, see COutputFile.
void WriteTextFile(const std::filesystem::path& path, bool bForce, const std::string& strText);

/// Both names lead to one and the same file, pipe or block device, "-" being standard output; for files that
/// do not exist yet: to one place. Character devices such as /dev/null take whatever is written to them.
bool AreSamePlace(const std::filesystem::path& a, const std::filesystem::path& b);

}  // namespace kest
