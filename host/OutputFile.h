#pragma once

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <span>

namespace kest {

/// A file that a command writes. Unless `Commit` is reached, a file that was made here is removed again, so
/// that nothing half-written is left behind. Operations throw CCommandError when the output cannot be
/// written.
class COutputFile {
public:
    /// @param path    "-" is standard output. Devices and pipes are written to as they are.
    /// @param bForce  overwrite a file that exists; without it that is an error.
    COutputFile(const std::filesystem::path& path, bool bForce);
    ~COutputFile();
    COutputFile(const COutputFile&) = delete;
    COutputFile& operator=(const COutputFile&) = delete;

    void Write(std::span<const std::uint8_t> bytes);
    /// Writes out what is buffered, closes the file and keeps it.
    void Commit();
    /// Bytes given to `Write` so far.
    std::uint64_t GetSize() const { return m_nSize; }

private:
    [[noreturn]] void Fail() const;

    std::filesystem::path m_path;  // as messages name it
    std::FILE* m_pFile = nullptr;  // open until Commit
    bool m_bRemove = false;        // made here: removed unless committed
    std::uint64_t m_nSize = 0;
};

}  // namespace kest
