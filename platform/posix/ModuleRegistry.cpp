#include "platform/posix/ModuleRegistry.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <ranges>
#include <sstream>
#include <stdexcept>
#include <string_view>

namespace kest {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kModuleKey = "module ";
constexpr std::string_view kClassKey = "class ";

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

/// Holds the lock of a folder, among threads and processes.
class CFolderLock {
public:
    explicit CFolderLock(const fs::path& folder)
        : m_hFolder(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
        if (m_hFolder < 0) Fail("cannot be opened", folder, errno);
        while (flock(m_hFolder, LOCK_EX) != 0) {
            if (errno == EINTR) continue;
            const int nError = errno;
            close(m_hFolder);
            Fail("cannot be locked", folder, nError);
        }
    }
    CFolderLock(const CFolderLock&) = delete;
    CFolderLock& operator=(const CFolderLock&) = delete;
    ~CFolderLock() { close(m_hFolder); }

private:
    const int m_hFolder;
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
    if (!module.is_absolute() || module.native().find('\n') != std::string::npos) {
        Fail("cannot be entered", module, EINVAL);
    }
    fs::create_directories(m_file.parent_path());
    Change([&](Entries& entries) {
        std::erase_if(entries, [&](const Entry& entry) { return entry.module == module; });
        entries.push_back({module, strText});
    });
}

void CModuleRegistry::Remove(const fs::path& module) {
    if (!fs::exists(m_file)) return;
    Change([&](Entries& entries) {
        std::erase_if(entries, [&](const Entry& entry) { return entry.module == module; });
    });
}

std::vector<fs::path> CModuleRegistry::Find(REFCLSID clsid) const {
    const std::string strWanted = '\n' + std::string(kClassKey) + FormatGuid(clsid) + ' ';
    std::vector<fs::path> modules;
    for (const Entry& entry : std::views::reverse(Read())) {
        if (('\n' + entry.strText).find(strWanted) != std::string::npos) modules.push_back(entry.module);
    }
    return modules;
}

/// No file is an empty list. What stands before the first entry belongs to none and is left out.
CModuleRegistry::Entries CModuleRegistry::Read() const {
    Entries entries;
    std::ifstream file(m_file);
    if (!file && fs::exists(m_file)) Fail("cannot be read", m_file, EACCES);
    for (std::string strLine; std::getline(file, strLine);) {
        if (strLine.starts_with(kModuleKey)) {
            entries.push_back({strLine.substr(kModuleKey.size()), {}});
        } else if (!entries.empty()) {
            entries.back().strText += strLine + '\n';
        }
    }
    return entries;
}

void CModuleRegistry::Change(const std::function<void(Entries&)>& change) {
    const CFolderLock lock(m_file.parent_path());
    Entries entries = Read();
    change(entries);
    if (entries.empty()) {
        fs::remove(m_file);
    } else {
        Write(entries);
    }
}

/// The new file is complete before it takes the old one's place.
void CModuleRegistry::Write(const Entries& entries) const {
    const fs::path fresh = fs::path(m_file).concat(".new");
    std::ofstream file(fresh, std::ios::trunc);
    for (const Entry& entry : entries) file << kModuleKey << entry.module.native() << '\n' << entry.strText;
    file.close();
    if (!file) {
        const int nError = errno;
        std::error_code ignored;
        fs::remove(fresh, ignored);
        Fail("cannot be written", fresh, nError);
    }
    fs::rename(fresh, m_file);
}

}  // namespace kest
