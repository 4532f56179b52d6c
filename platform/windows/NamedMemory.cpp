#include "platform/NamedMemory.h"

#include <string>
#include <utility>

#include "platform/api/Types.h"

namespace kest {
namespace {

/// A handle of the system; it may be none.
class CHandle {
public:
    CHandle() = default;
    ~CHandle() {
        if (m_handle) CloseHandle(m_handle);
    }
    CHandle(const CHandle&) = delete;
    CHandle& operator=(const CHandle&) = delete;

    /// Takes over a handle, once. @return false for none.
    bool Take(HANDLE handle) { return (m_handle = handle) != nullptr; }
    HANDLE Get() const { return m_handle; }

private:
    HANDLE m_handle = nullptr;
};

}  // namespace

struct CNamedMemory::Object {
    ~Object() {
        if (pView) UnmapViewOfFile(pView);
    }

    EResult Attach(const std::string& strName, std::uint64_t nSize, bool bCreate);
    std::uint64_t GetViewSize() const {
        MEMORY_BASIC_INFORMATION information;
        return VirtualQuery(pView, &information, sizeof information) ? information.RegionSize : 0;
    }

    CHandle mapping;
    CHandle event;
    CHandle mutex;
    std::uint8_t* pView = nullptr;
};

CNamedMemory::EResult CNamedMemory::Object::Attach(const std::string& strName, std::uint64_t nSize,
                                                   bool bCreate) {
    constexpr DWORD kAccess = FILE_MAP_READ | FILE_MAP_WRITE;
    const std::string strEvent = strName + ".evt", strMutex = strName + ".mtx";
    if (!mapping.Take(bCreate ? CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE,
                                                   static_cast<DWORD>(nSize >> 32), static_cast<DWORD>(nSize),
                                                   strName.c_str())
                              : OpenFileMappingA(kAccess, FALSE, strName.c_str()))) {
        return EResult::NoMapping;
    }
    pView = static_cast<std::uint8_t*>(MapViewOfFile(mapping.Get(), kAccess, 0, 0, 0));
    if (!pView || GetViewSize() < nSize) return EResult::NoView;
    const bool bEvent = event.Take(bCreate ? CreateEventA(nullptr, TRUE, FALSE, strEvent.c_str())
                                           : OpenEventA(EVENT_ALL_ACCESS, FALSE, strEvent.c_str()));
    // The mutex is an addition of this class: whoever comes first makes it.
    if (!bEvent || !mutex.Take(CreateMutexA(nullptr, FALSE, strMutex.c_str()))) return EResult::NoEvent;
    return EResult::Done;
}

CNamedMemory::CNamedMemory() = default;
CNamedMemory::~CNamedMemory() = default;

CNamedMemory::EResult CNamedMemory::Attach(const char* pszName, std::uint64_t nSize, bool bCreate) {
    Close();
    auto pObject = std::make_unique<Object>();
    const EResult eResult = pObject->Attach(pszName, nSize, bCreate);
    if (eResult == EResult::Done) m_pObject = std::move(pObject);
    return eResult;
}

void CNamedMemory::Close() { m_pObject.reset(); }

std::uint8_t* CNamedMemory::GetView() const { return m_pObject ? m_pObject->pView : nullptr; }

bool CNamedMemory::IsSignalled() const {
    return WaitForSingleObject(m_pObject->event.Get(), 0) == WAIT_OBJECT_0;
}
void CNamedMemory::Signal() { SetEvent(m_pObject->event.Get()); }
void CNamedMemory::Reset() { ResetEvent(m_pObject->event.Get()); }

bool CNamedMemory::try_lock() {
    const DWORD nResult = WaitForSingleObject(m_pObject->mutex.Get(), 0);
    return nResult == WAIT_OBJECT_0 || nResult == WAIT_ABANDONED;
}
void CNamedMemory::unlock() { ReleaseMutex(m_pObject->mutex.Get()); }

}  // namespace kest
