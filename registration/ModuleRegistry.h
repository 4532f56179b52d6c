#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "platform/api/Types.h"

namespace kest {

/// The list of registered modules on a system that has none itself: a text file of the user,
/// "kestdemux2/modules" in $XDG_DATA_HOME or, where that is not an absolute path, in ~/.local/share.
///
/// Each module has one entry, which begins with the module's file and ends before the next entry:
///
///     module /usr/lib/kestdemux2/KestDemux2Filter.so
///     class {01234567-89AB-CDEF-0123-456789ABCDEF} name of the class
///     ...
///
/// A path may hold any bytes but line ends. Lines of other kinds, and lines before the first entry, are kept;
/// lines may end in CR LF. Changes are written to a new file that then replaces the old one, with the folder
/// locked: a reader sees the list before a change or after it, and of two writers one waits for the other.
/// Operations may come from any thread and process; they throw std::filesystem::filesystem_error, with the
/// system's reason, when the file or its folder cannot be read or written, or the file has more than 1 MiB.
/// The list is then as before.
class CModuleRegistry {
public:
    /// The list of this user. Throws std::runtime_error when neither XDG_DATA_HOME nor HOME is an absolute path.
    CModuleRegistry();
    /// A list in another file.
    explicit CModuleRegistry(std::filesystem::path file) : m_file(std::move(file)) {}

    const std::filesystem::path& GetFile() const { return m_file; }
    /// Adds a module at the end of the list; an earlier entry of the same file is removed. Makes the folder of
    /// the list when there is none.
    /// @param module   an absolute path without line ends; filesystem_error for another.
    /// @param strText  the other lines of the entry, each with its end.
    void Add(const std::filesystem::path& module, const std::string& strText);
    /// Removes a module's entry; its file need not exist. A list without lines is deleted.
    /// @return false: there was no such entry.
    bool Remove(const std::filesystem::path& module);
    /// The modules that offer a class, the one that was registered last first. Their files need not exist.
    std::vector<std::filesystem::path> Find(REFCLSID clsid) const;

private:
    struct Entry {
        std::filesystem::path module;
        std::string strText;  // its other lines
    };
    /// The lines of the list.
    struct Content {
        std::string strHead;  // the lines before the first entry
        std::vector<Entry> entries;
    };

    Content Read() const;
    void Change(const std::function<void(Content&)>& change) const;
    void Write(const Content& content) const;

    std::filesystem::path m_file;
};

/// A class or type identifier as text, "{01234567-89AB-CDEF-0123-456789ABCDEF}".
std::string FormatGuid(const GUID& guid);

}  // namespace kest
