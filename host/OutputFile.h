#pragma once

#include <cstdint>
#include <filesystem>
#include <span>
#include <vector>

namespace kest {

/// A file that a command writes. Operations throw CCommandError when the output cannot be written or the user
/// interrupts the program.
///
/// A regular file comes into being under another name beside its place and takes the place in `Commit`: until
/// then nothing is there, or the file that was there before; without `Commit` nothing is left behind. A
/// symbolic link is followed and stays. Devices, pipes and standard output are written to as they are.
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
    /// Writes out what is buffered and closes the file.
    void Flush();
    /// `Flush`, and puts the file into its place.
    void Commit();
    /// Bytes given to `Write` so far.
    std::uint64_t GetSize() const { return m_nSize; }

private:
    void OpenSpecial(bool bPipe);
    void OpenTemporary(bool bExists);
    void WriteOut();
    [[noreturn]] void Fail() const;

    const bool m_bForce;
    std::filesystem::path m_path;       // as messages name it
    std::filesystem::path m_target;     // a regular file: its place, links followed
    std::filesystem::path m_temporary;  // where it is written; empty when it is no regular file, or committed
    int m_hFile = -1;                   // open until Flush
    bool m_bMayBlock = false;           // a pipe or device: a write may wait for somebody else
    std::vector<std::uint8_t> m_buffer;
    std::uint64_t m_nSize = 0;
};

/// Both names lead to one and the same file, pipe or block device, "-" being standard output; for files that
/// do not exist yet: to one place. Character devices such as /dev/null take whatever is written to them.
bool AreSamePlace(const std::filesystem::path& a, const std::filesystem::path& b);

}  // namespace kest
