#pragma once

#include <cstdint>
#include <memory>

namespace kest {

/// A block of memory and a manual-reset event under one name, which the processes of a user share, and a lock
/// between those who use them. All live as long as an object in some process holds them, and end with the
/// last one, also when that process is killed.
///
/// On Windows these are the system's objects: the file mapping NAME, the event NAME.evt and the mutex
/// NAME.mtx. They are visible in the user's session, or where a prefix of the name says.
///
/// Elsewhere the block is a file of mode 0600 in a folder of mode 0700, kestdemux2-UID, in $XDG_RUNTIME_DIR
/// or, where that cannot be used, in /dev/shm. Folder and file must belong to the user, and links are not
/// followed. The event is a word behind the block. Whoever has it open holds a shared lock on the file, which
/// ends with the process: a file that nobody has locked counts as not there. The last one removes it. A child
/// process counts as holder with its parent until it starts another program.
///
/// One thread at a time, but for the event and the block's content.
class CNamedMemory {
public:
    enum class EResult { Done, NoMapping, NoView, NoEvent };

    CNamedMemory();
    ~CNamedMemory();
    CNamedMemory(const CNamedMemory&) = delete;
    CNamedMemory& operator=(const CNamedMemory&) = delete;

    /// Makes the block, zero-filled, with its event not signalled; or attaches to what is there under the
    /// name. Closes what was open before.
    /// @param pszName  1 to 255 characters without a slash.
    /// @param nSize    bytes of the block, not 0. A block that is there keeps its own size.
    /// @return NoMapping: cannot be made, for want of memory or rights; NoView: what is there is smaller, or
    ///         cannot be mapped; NoEvent. What is not Done leaves nothing open.
    EResult Create(const char* pszName, std::uint64_t nSize) {
        return Attach(pszName, nSize, /*bCreate=*/true);
    }
    /// Attaches to what is there under the name. @return as Create; NoMapping: nobody has it open.
    EResult Open(const char* pszName, std::uint64_t nSize) {
        return Attach(pszName, nSize, /*bCreate=*/false);
    }
    void Close();

    /// The block, at the same time in other processes: to be read and written by atomic operations. Null when
    /// closed.
    std::uint8_t* GetView() const;

    bool IsSignalled() const;
    void Signal();
    void Reset();

    /// Takes the lock between all that have the name open; false when another one has it. It ends with its
    /// process. With `unlock` what std::unique_lock wants.
    bool try_lock();
    void unlock();

private:
    struct Object;

    EResult Attach(const char* pszName, std::uint64_t nSize, bool bCreate);

    std::unique_ptr<Object> m_pObject;  // what is open; else null
};

}  // namespace kest
