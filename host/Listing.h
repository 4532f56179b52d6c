#pragma once

#include <cstdint>
#include <mutex>
#include <span>
#include <string>

#include "host/OutputFile.h"

namespace kest {

/// The listing of a command on standard output, a line for each thing that comes. Lines may be printed from
/// several threads. Operations throw CCommandError when the output cannot be written.
class CListing {
public:
    /// @param bJson      lines are JSON objects: there is no heading.
    /// @param strHeading names of the columns; comes with the first line.
    CListing(bool bJson, const std::string& strHeading);

    bool IsJson() const { return m_bJson; }
    /// @param strLine  without the line's end.
    void Print(const std::string& strLine);
    /// Lets everybody see what has been printed.
    void Show();
    /// The listing is complete.
    void Commit() { m_output.Commit(); }

private:
    const bool m_bJson;
    std::mutex m_mutex;        // one line at a time
    std::string m_strHeading;  // until it has been printed
    COutputFile m_output{"-", false};
};

/// CRC-32 of a payload as eight hexadecimal digits.
std::string GetCrcText(std::span<const std::uint8_t> payload);

}  // namespace kest
