#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <utility>

#include "platform/api/Types.h"

namespace kest {

/// A file that is written from its beginning to its end. One thread at a time. Results are 0 or the system's
/// error number.
class CFileWriter {
public:
    CFileWriter() = default;
    ~CFileWriter() { Close(); }
    CFileWriter(CFileWriter&& other) noexcept : m_hFile(std::exchange(other.m_hFile, kNone)) {}
    CFileWriter& operator=(CFileWriter&& other) noexcept {
        std::swap(m_hFile, other.m_hFile);
        return *this;
    }

    /// Makes the file, in the place of one that is there; closes the one that is open. On Windows nobody else can
    /// open it meanwhile. A file system without room for a new file's first byte is an error, and so is a pipe,
    /// whose reader would hold the writer up.
    /// @param strName  in the system's narrow text.
    DWORD Create(const std::string& strName);
    /// Appends all of the bytes.
    DWORD Write(std::span<const std::uint8_t> data);
    void Close();
    bool IsOpen() const { return m_hFile != kNone; }

private:
    static constexpr std::intptr_t kNone = -1;

    std::intptr_t m_hFile = kNone;  // the system's handle
};

}  // namespace kest
