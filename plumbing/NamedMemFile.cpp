#include "plumbing/NamedMemFile.h"

#include <atomic>
#include <cstring>
#include <mutex>

#include "platform/Time.h"

namespace kest {
namespace {

using Word = std::uint64_t;
static_assert(std::atomic_ref<Word>::is_always_lock_free);

/// Calls `copyWord` or `copyByte` with each offset of nLength bytes that are shared between processes: words
/// wherever a whole one is.
template <class CopyWord, class CopyByte>
void ForEachWord(const std::uint8_t* pShared, std::size_t nLength, CopyWord copyWord, CopyByte copyByte) {
    for (std::size_t i = 0; i < nLength;) {
        const bool bAligned = reinterpret_cast<std::uintptr_t>(pShared + i) % sizeof(Word) == 0;
        if (bAligned && nLength - i >= sizeof(Word)) {
            copyWord(i);
            i += sizeof(Word);
        } else {
            copyByte(i++);
        }
    }
}

template <class T>
void Load(std::uint8_t* pShared, std::uint8_t* pBuffer) {
    const T value = std::atomic_ref(*reinterpret_cast<T*>(pShared)).load(std::memory_order_relaxed);
    std::memcpy(pBuffer, &value, sizeof value);
}

template <class T>
void Store(std::uint8_t* pShared, const std::uint8_t* pBuffer) {
    T value;
    std::memcpy(&value, pBuffer, sizeof value);
    std::atomic_ref(*reinterpret_cast<T*>(pShared)).store(value, std::memory_order_relaxed);
}

void CopyOut(std::uint8_t* pShared, void* pBuffer, std::int32_t nLength) {
    auto* pBytes = static_cast<std::uint8_t*>(pBuffer);
    ForEachWord(
        pShared, static_cast<std::size_t>(nLength), [&](auto i) { Load<Word>(pShared + i, pBytes + i); },
        [&](auto i) { Load<std::uint8_t>(pShared + i, pBytes + i); });
}

void CopyIn(std::uint8_t* pShared, const void* pBuffer, std::int32_t nLength) {
    const auto* pBytes = static_cast<const std::uint8_t*>(pBuffer);
    ForEachWord(
        pShared, static_cast<std::size_t>(nLength), [&](auto i) { Store<Word>(pShared + i, pBytes + i); },
        [&](auto i) { Store<std::uint8_t>(pShared + i, pBytes + i); });
}

/// A name that every system takes as one.
bool IsName(const char* pszName) {
    constexpr std::size_t kMaxName = 255;
    return pszName && *pszName && std::strlen(pszName) <= kMaxName && !std::strchr(pszName, '/');
}

}  // namespace

// ---------------- opening and closing

int CNamedMemFile::Open(int nMode, const char* pszFile, const char* pszName, std::uint8_t** ppView,
                        std::uint32_t nSizeLow, std::uint32_t nSizeHigh) {
    CAutoLock lock(m_cs);
    Close();
    if (nMode != MEMFILE_CREATE && nMode != MEMFILE_OPEN) return -4;
    if (pszFile) return -1;
    const std::uint64_t llSize = std::uint64_t{nSizeHigh} << 32 | nSizeLow;
    const bool bCreate = nMode == MEMFILE_CREATE;
    if (!IsName(pszName) || (bCreate && llSize == 0)) return -2;
    switch (bCreate ? m_memory.Create(pszName, llSize) : m_memory.Open(pszName, llSize)) {
        case CNamedMemory::EResult::NoMapping: return -2;
        case CNamedMemory::EResult::NoView: return -3;
        case CNamedMemory::EResult::NoEvent: return -4;
        case CNamedMemory::EResult::Done: break;
    }
    m_llSize = llSize;
    m_bCreator = bCreate;
    if (ppView) *ppView = m_memory.GetView();
    return 1;
}

void CNamedMemFile::Close() {
    CAutoLock lock(m_cs);
    m_memory.Close();
    m_llSize = 0;
    m_bCreator = false;
}

bool CNamedMemFile::IsOpen() const { return GetView() != nullptr; }

bool CNamedMemFile::IsPosted() const {
    CAutoLock lock(m_cs);
    return m_memory.GetView() && m_memory.IsSignalled();
}

bool CNamedMemFile::IsCreator() const {
    CAutoLock lock(m_cs);
    return m_bCreator;
}

std::uint8_t* CNamedMemFile::GetView() const {
    CAutoLock lock(m_cs);
    return m_memory.GetView();
}

// ---------------- the block

/// The object is open and has the bytes. Under m_cs.
bool CNamedMemFile::IsInside(std::uint32_t nOffset, std::int32_t nLength) const {
    return nLength > 0 && m_llSize >= nOffset && static_cast<std::uint64_t>(nLength) <= m_llSize - nOffset;
}

int CNamedMemFile::Read(void* pBuffer, std::int32_t nLength) const {
    CAutoLock lock(m_cs);
    if (!IsInside(0, nLength)) return 0;
    CopyOut(m_memory.GetView(), pBuffer, nLength);
    return 1;
}

int CNamedMemFile::Write(const void* pBuffer, std::int32_t nLength) { return WriteAt(0, pBuffer, nLength); }

int CNamedMemFile::WriteAt(std::uint32_t nOffset, const void* pBuffer, std::int32_t nLength) {
    CAutoLock lock(m_cs);
    if (!IsInside(nOffset, nLength)) return 0;
    CopyIn(m_memory.GetView() + nOffset, pBuffer, nLength);
    return 1;
}

// ---------------- the mailbox

int CNamedMemFile::WaitRead(void* pBuffer, std::int32_t nLength) {
    return Exchange(/*bPosted=*/true, nLength, [&] { CopyOut(m_memory.GetView(), pBuffer, nLength); });
}

int CNamedMemFile::WriteSignal(const void* pBuffer, std::int32_t nLength) {
    return Exchange(/*bPosted=*/false, nLength, [&] { CopyIn(m_memory.GetView(), pBuffer, nLength); });
}

/// Copies a record and changes the mailbox from bPosted to its contrary, alone among all that have the name
/// open. Tries once more after a millisecond, when others were at it or a posted record stands in the way.
template <class Copy>
int CNamedMemFile::Exchange(bool bPosted, std::int32_t nLength, Copy copy) {
    for (bool bAgain : {true, false}) {
        {
            CAutoLock lock(m_cs);
            if (!IsInside(0, nLength) || (bPosted && !m_memory.IsSignalled())) return 0;
            const std::unique_lock alone(m_memory, std::try_to_lock);
            if (alone && m_memory.IsSignalled() == bPosted) {
                copy();
                bPosted ? m_memory.Reset() : m_memory.Signal();
                return 1;
            }
        }
        if (bAgain) SleepMs(1);
    }
    return 0;
}

}  // namespace kest
