#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "platform/api/Types.h"

namespace kest {

/// A file that is written from its beginning to its end. One thread at a time. Results are 0 or the system's
/// error number.
class CFileWriter {
public:
    CFileWriter() = default;
    ~CFileWriter() { Close(); }
    CFileWriter(CFileWriter&& other) noexcept;
    CFileWriter& operator=(CFileWriter&& other) noexcept;

    /// Makes the file, in the place of one that is there; closes the one that is open. On Windows nobody else can
    /// open it meanwhile. A file system without room for a byte is found out here. Writing to a pipe does not
    /// wait: what it does not take is an error.
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
