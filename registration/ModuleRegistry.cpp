#include "registration/ModuleRegistry.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <stdexcept>
#include <string_view>

namespace kest {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kModuleKey = "module ";
constexpr std::string_view kClassKey = "class ";
constexpr std::string_view kNotInPaths{"\n\r\0", 3};
constexpr std::size_t kMaxListSize = std::size_t{1} << 20;  // bytes

[[noreturn]] void Fail(const char* pszWhat, const fs::path& path, int nError) {
    throw fs::filesystem_error(pszWhat, path, std::error_code(nError, std::generic_category()));
}

fs::path FindDataFolder() {
    const char* pszData = std::getenv("XDG_DATA_HOME");
    if (pszData && fs::path(pszData).is_absolute()) return pszData;
    const char* pszHome = std::getenv("HOME");
    if (pszHome && fs::path(pszHome).is_absolute()) return fs::path(pszHome) / ".local/share";
    throw std::runtime_error("neither XDG_DATA_HOME nor HOME names a folder");
}

/// An open file or folder.
class CDescriptor {
public:
    CDescriptor(const fs::path& path, int nFlags, mode_t nMode = 0)
        : m_path(path), m_nHandle(open(path.c_str(), nFlags | O_CLOEXEC, nMode)) {}
    CDescriptor(const CDescriptor&) = delete;
    CDescriptor& operator=(const CDescriptor&) = delete;
    ~CDescriptor() {
        if (IsOpen()) close(m_nHandle);
    }
    bool IsOpen() const { return m_nHandle >= 0; }

    void Lock() {
        while (flock(m_nHandle, LOCK_EX) != 0) {
            if (errno != EINTR) Fail("cannot be locked", m_path, errno);
        }
    }
    std::string ReadAll() {
        std::string strText;
        for (std::array<char, 4096> buffer;;) {
            const ssize_t nRead = read(m_nHandle, buffer.data(), buffer.size());
            if (nRead == 0) return strText;
            if (strText.size() > kMaxListSize) Fail("cannot be read", m_path, EFBIG);
            if (nRead > 0) {
                strText.append(buffer.data(), static_cast<std::size_t>(nRead));
            } else if (errno != EINTR) {
                Fail("cannot be read", m_path, errno);
            }
        }
    }
    /// Writes the text, through to the disk.
    void WriteAll(std::string_view text) {
        while (!text.empty()) {
            const ssize_t nWritten = write(m_nHandle, text.data(), text.size());
            if (nWritten >= 0) {
                text.remove_prefix(static_cast<std::size_t>(nWritten));
            } else if (errno != EINTR) {
                Fail("cannot be written", m_path, errno);
            }
        }
        if (fsync(m_nHandle) != 0) Fail("cannot be written", m_path, errno);
    }

private:
    const fs::path m_path;
    const int m_nHandle;
};

}  // namespace

std::string FormatGuid(const GUID& guid) {
    std::array<char, 39> szText{};
    const std::uint8_t* p = guid.Data4;
    std::snprintf(szText.data(), szText.size(), "{%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}",
                  guid.Data1, guid.Data2, guid.Data3, p[0], p[1], p[2], p[3], p[4], p[5], p[6], p[7]);
    return szText.data();
}

CModuleRegistry::CModuleRegistry() : m_file(FindDataFolder() / "kestdemux2" / "modules") {}

void CModuleRegistry::Add(const fs::path& module, const std::string& strText) {
    if (!module.is_absolute() || module.native().find_first_of(kNotInPaths) != std::string::npos) {
        Fail("cannot be entered", module, EINVAL);
    }
    fs::create_directories(m_file.parent_path());
    Change([&](Content& content) {
        std::erase_if(content.entries, [&](const Entry& entry) { return entry.module == module; });
        content.entries.push_back({module, strText});
    });
}

bool CModuleRegistry::Remove(const fs::path& module) {
    if (!fs::exists(m_file)) return false;
    bool bFound = false;
    Change([&](Content& content) {
        bFound = std::erase_if(content.entries, [&](const Entry& e) { return e.module == module; }) > 0;
    });
    return bFound;
}

std::vector<fs::path> CModuleRegistry::Find(REFCLSID clsid) const {
    const std::string strWanted = '\n' + std::string(kClassKey) + FormatGuid(clsid);
    std::vector<fs::path> modules;
    const Content content = Read();
    for (const Entry& entry : content.entries) {
        const bool bHasClass = ('\n' + entry.strText).find(strWanted) != std::string::npos;
        const bool bIsPath = entry.module.native().find_first_of(kNotInPaths) == std::string::npos;
        if (bHasClass && bIsPath && entry.module.is_absolute()) modules.push_back(entry.module);
    }
    std::ranges::reverse(modules);
    return modules;
}

/// Without a file the list is empty.
CModuleRegistry::Content CModuleRegistry::Read() const {
    CDescriptor file(m_file, O_RDONLY | O_NONBLOCK);  // a pipe in its place is not waited for
    if (!file.IsOpen() && errno == ENOENT) return {};
    if (!file.IsOpen()) Fail("cannot be read", m_file, errno);
    Content content;
    std::istringstream lines(file.ReadAll());
    for (std::string strLine; std::getline(lines, strLine);) {
        if (strLine.ends_with('\r')) strLine.pop_back();
        if (strLine.starts_with(kModuleKey)) {
            content.entries.push_back({strLine.substr(kModuleKey.size()), {}});
        } else {
            (content.entries.empty() ? content.strHead : content.entries.back().strText) += strLine + '\n';
        }
    }
    return content;
}

void CModuleRegistry::Change(const std::function<void(Content&)>& change) const {
    CDescriptor folder(m_file.parent_path(), O_RDONLY | O_DIRECTORY);
    if (!folder.IsOpen()) Fail("cannot be opened", m_file.parent_path(), errno);
    folder.Lock();
    Content content = Read();
    change(content);
    if (content.entries.empty() && content.strHead.empty()) {
        fs::remove(m_file);
    } else {
        Write(content);
    }
}

/// The new file is complete before it replaces the old one, or the target of a link there.
void CModuleRegistry::Write(const Content& content) const {
    std::string strText = content.strHead;
    for (const Entry& entry : content.entries) {
        strText += std::string(kModuleKey) + entry.module.native() + '\n' + entry.strText;
    }
    const fs::path file = fs::weakly_canonical(m_file);
    const fs::path fresh = fs::path(file).concat(".new");
    try {
        CDescriptor freshFile(fresh, O_WRONLY | O_CREAT | O_TRUNC, 0666);
        if (!freshFile.IsOpen()) Fail("cannot be written", fresh, errno);
        freshFile.WriteAll(strText);
        fs::rename(fresh, file);
    } catch (...) {
        std::error_code ignored;
        if (fs::is_regular_file(fresh, ignored)) fs::remove(fresh, ignored);
        throw;
    }
}

}  // namespace kest
