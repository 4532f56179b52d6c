#pragma once

#include <cstdint>

#include "platform/CritSec.h"
#include "platform/NamedMemory.h"

namespace kest {

/// What CNamedMemFile::Open is to do.
enum : int {
    MEMFILE_CREATE = 1,  // make the block, or attach to the one of the name
    MEMFILE_OPEN = 2,    // attach to the one of the name
};

/// A small block of memory that other processes find by its name, and a mailbox for one record in it.
///
/// `Read` and `Write` copy from and to the start of the block at any time; another process may see a record
/// half written, but no word of 8 bytes (at offsets that 8 divides). `WriteSignal` posts a record only when
/// the one before has been taken, `WaitRead` takes a record only when one has been posted, and one of them
/// alone takes it. `Write` and `WriteAt` do not change whether a record is posted. No operation on records
/// waits longer than a millisecond.
///
/// All operations may be called from any thread. A transfer holds m_cs while it copies.
class CNamedMemFile {
public:
    CNamedMemFile() = default;
    virtual ~CNamedMemFile() = default;
    CNamedMemFile(const CNamedMemFile&) = delete;
    CNamedMemFile& operator=(const CNamedMemFile&) = delete;

    /// Opens the block, after closing the one that is open. What fails leaves the object closed.
    /// @param nMode      MEMFILE_CREATE, MEMFILE_OPEN.
    /// @param pszFile    null: a file behind the block is not offered.
    /// @param pszName    1 to 255 characters without a slash.
    /// @param ppView     receives the block's address; may be null.
    /// @param nSizeLow   bytes of the block, with nSizeHigh for the upper 32 bits. A block that is there may
    ///                   be larger.
    /// @return 1; -1: a file was asked for; -2: the block cannot be made, or nobody has it open, or the name
    ///         is none; -3: the block cannot be mapped, or is smaller; -4: no event, or another mode.
    int Open(int nMode, const char* pszFile, const char* pszName, std::uint8_t** ppView,
             std::uint32_t nSizeLow, std::uint32_t nSizeHigh);
    void Close();

    /// Copies nLength bytes, at least one and at most the size given to `Open`, between the buffer and the
    /// start of the block. @return 1; 0 when nothing was copied.
    int Read(void* pBuffer, std::int32_t nLength) const;
    int Write(const void* pBuffer, std::int32_t nLength);
    /// `Write` to a place in the block.
    int WriteAt(std::uint32_t nOffset, const void* pBuffer, std::int32_t nLength);

    /// `Read` when a record is posted now; takes the record. @return 1; 0: the buffer is as it was.
    int WaitRead(void* pBuffer, std::int32_t nLength);
    /// `Write` when no record is posted now or after a millisecond; posts the record. @return 1; 0: it is
    /// dropped.
    int WriteSignal(const void* pBuffer, std::int32_t nLength);

    bool IsOpen() const;
    /// Open, and a record is posted now.
    bool IsPosted() const;
    /// Opened with MEMFILE_CREATE, whether or not the block was there already.
    bool IsCreator() const;
    /// The block's address, null when closed; valid until it is closed. Others write there: atomic operations
    /// only.
    std::uint8_t* GetView() const;

private:
    bool IsInside(std::uint32_t nOffset, std::int32_t nLength) const;
    template <class Copy>
    int Exchange(bool bPosted, std::int32_t nLength, Copy copy);

    mutable CCritSec m_cs;       // guards all
    CNamedMemory m_memory;       // block and event
    std::uint64_t m_llSize = 0;  // as given to Open; 0 when closed
    bool m_bCreator = false;     // see IsCreator
};

}  // namespace kest
