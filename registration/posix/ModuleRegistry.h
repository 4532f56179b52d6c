#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "platform/api/Types.h"

namespace kest {

/// The list of the modules that have been registered on a system that has no such list itself: a text file
/// of the user, "kestdemux2/modules" in $XDG_DATA_HOME or, where that is not an absolute path, in
/// ~/.local/share.
///
/// Each module has one entry, a run of lines that begins with its file:
///
///     module /usr/lib/kestdemux2/KestDemux2Filter.so
///     class {01234567-89AB-CDEF-0123-456789ABCDEF} name of the class
///     ...
///
/// Lines of other kinds, and lines before the first entry, are kept as they are. Changes go into a new file
/// that takes the old one's place, with the folder locked: a reader sees the list before a change or after
/// it, and of two writers one waits for the other. Operations may come from any thread and process; they
/// throw std::filesystem::filesystem_error, with the system's reason, when the file or its folder cannot be
/// read or written.
class CModuleRegistry {
public:
    /// The list of this user. Throws std::runtime_error when the environment tells no place for it.
    CModuleRegistry();
    /// A list elsewhere.
    explicit CModuleRegistry(std::filesystem::path file) : m_file(std::move(file)) {}

    const std::filesystem::path& GetFile() const { return m_file; }
    /// Enters a module behind all others, in the place of an earlier entry of the same file.
    /// @param module   absolute, without a line break.
    /// @param strText  the lines behind the first, each with its end.
    void Add(const std::filesystem::path& module, const std::string& strText);
    /// Takes a module's entry out. With the last line of the list its file goes.
    /// @return false: there was no such entry.
    bool Remove(const std::filesystem::path& module);
    /// The modules that offer a class, the one that was registered last first.
    std::vector<std::filesystem::path> Find(REFCLSID clsid) const;

private:
    struct Entry {
        std::filesystem::path module;
        std::string strText;  // the lines behind the first
    };
    /// The list, taken apart.
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
