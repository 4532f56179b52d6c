#include "platform/NamedMemory.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <limits>
#include <string>
#include <utility>

#include "platform/Time.h"

namespace kest {
namespace {

/// What stands at the end of the file, behind the block.
struct Trailer {
    std::atomic<std::uint32_t> nSignalled;  // the event: 0 or 1
    std::uint32_t nUnused;
};
static_assert(std::atomic<std::uint32_t>::is_always_lock_free && sizeof(Trailer) == 8);

/// Bytes of the file on which locks are taken; each stands for a lock of its own.
enum ELock : off_t {
    kHolderLock = 0,  // shared: has the object open; exclusive: makes or removes it
    kUserLock = 1,    // exclusive: CNamedMemory::try_lock
};

/// A descriptor of the system; it may be none.
class CDescriptor {
public:
    explicit CDescriptor(int nDescriptor = -1) : m_nDescriptor(nDescriptor) {}
    CDescriptor(CDescriptor&& other) noexcept : m_nDescriptor(std::exchange(other.m_nDescriptor, -1)) {}
    CDescriptor& operator=(CDescriptor&& other) noexcept {
        std::swap(m_nDescriptor, other.m_nDescriptor);
        return *this;
    }
    ~CDescriptor() {
        if (m_nDescriptor >= 0) close(m_nDescriptor);
    }

    int Get() const { return m_nDescriptor; }
    explicit operator bool() const { return m_nDescriptor >= 0; }

    /// The user's own file or folder, which nobody else can reach.
    bool IsPrivate(mode_t nType) const {
        struct stat status;
        return fstat(m_nDescriptor, &status) == 0 && (status.st_mode & S_IFMT) == nType &&
               status.st_uid == geteuid() && (status.st_mode & (S_IRWXG | S_IRWXO)) == 0;
    }
    /// Takes, changes or gives back a lock of the file, without waiting and in one step. Locks belong to the
    /// descriptor and end with it. @param nType  F_RDLCK (shared), F_WRLCK (exclusive), F_UNLCK.
    bool Lock(ELock eLock, int nType) const {
        struct flock lock {};
        lock.l_type = static_cast<short>(nType);
        lock.l_whence = SEEK_SET;
        lock.l_start = eLock;
        lock.l_len = 1;
        return fcntl(m_nDescriptor, F_OFD_SETLK, &lock) == 0;
    }
    std::uint64_t GetSize() const {
        struct stat status;
        return fstat(m_nDescriptor, &status) == 0 ? static_cast<std::uint64_t>(status.st_size) : 0;
    }

private:
    int m_nDescriptor;
};

/// The folder of all that the user shares; none when there is none that is the user's own.
CDescriptor OpenFolder() {
    const char* pszRuntime = std::getenv("XDG_RUNTIME_DIR");
    for (const char* pszParent : {pszRuntime, "/dev/shm"}) {
        if (!pszParent || pszParent[0] != '/') continue;
        const std::string strFolder = std::string(pszParent) + "/kestdemux2-" + std::to_string(geteuid());
        mkdir(strFolder.c_str(), S_IRWXU);
        CDescriptor folder(open(strFolder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        if (folder && folder.IsPrivate(S_IFDIR)) return folder;
    }
    return CDescriptor();
}

}  // namespace

struct CNamedMemory::Object {
    ~Object();

    /// Opens the file and takes its shared lock, together with others or, when bCreate is set, as the first.
    bool Hold(std::uint64_t nFileSize, bool bCreate);
    bool Make(std::uint64_t nFileSize) const;
    bool IsNamed() const;
    bool Map();

    const pid_t nProcess = getpid();  // a child process closes its copy, without the parent's locks
    std::string strName;
    CDescriptor folder;
    CDescriptor file;
    std::uint8_t* pView = nullptr;  // the whole file
    std::uint64_t nViewSize = 0;    // block and trailer
    Trailer* pTrailer = nullptr;    // at the end of the view
};

/// The last one removes the file. Who is not alone gives its lock back before it tries again: of two that go
/// at the same time, neither would get the exclusive lock otherwise.
CNamedMemory::Object::~Object() {
    if (pView) munmap(pView, nViewSize);
    if (!file || getpid() != nProcess) return;
    auto IsLast = [this] { return file.Lock(kHolderLock, F_WRLCK); };
    const bool bLast = IsLast() || (file.Lock(kHolderLock, F_UNLCK) && IsLast());
    if (bLast && IsNamed()) unlinkat(folder.Get(), strName.c_str(), 0);
}

/// The open file is still the one of the name. While a lock on it is held it stays so.
bool CNamedMemory::Object::IsNamed() const {
    struct stat own, named;
    return fstat(file.Get(), &own) == 0 &&
           fstatat(folder.Get(), strName.c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0 &&
           own.st_dev == named.st_dev && own.st_ino == named.st_ino;
}

// Between opening a file and locking it, its last holder may remove it: then a new file of the name is
// opened. Who gets the exclusive lock knows that nobody holds the object, whatever a killed process has left
// in the file.
bool CNamedMemory::Object::Hold(std::uint64_t nFileSize, bool bCreate) {
    constexpr int kAttempts = 200;  // each fails only when others come or go just then
    const int nFlags = O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | (bCreate ? O_CREAT : 0);
    for (int i = 0; i < kAttempts; ++i) {
        file = CDescriptor(openat(folder.Get(), strName.c_str(), nFlags, S_IRUSR | S_IWUSR));
        if (!file || !file.IsPrivate(S_IFREG)) break;
        const bool bAlone = file.Lock(kHolderLock, F_WRLCK);
        if ((bAlone || file.Lock(kHolderLock, F_RDLCK)) && IsNamed()) {
            if (bAlone) return bCreate && Make(nFileSize);  // what is not made, the destructor removes
            if (file.GetSize() > sizeof(Trailer)) return true;
        }
        SleepMs(1);
    }
    file = CDescriptor();
    return false;
}

/// Makes the content under the exclusive lock, with memory for all of it, and changes to the shared lock.
bool CNamedMemory::Object::Make(std::uint64_t nFileSize) const {
    return ftruncate(file.Get(), 0) == 0 &&
           posix_fallocate(file.Get(), 0, static_cast<off_t>(nFileSize)) == 0 &&
           file.Lock(kHolderLock, F_RDLCK);
}

bool CNamedMemory::Object::Map() {
    nViewSize = file.GetSize();
    void* pMapped = mmap(nullptr, nViewSize, PROT_READ | PROT_WRITE, MAP_SHARED, file.Get(), 0);
    if (pMapped == MAP_FAILED) return false;
    pView = static_cast<std::uint8_t*>(pMapped);
    pTrailer = reinterpret_cast<Trailer*>(pView + nViewSize - sizeof(Trailer));
    return true;
}

CNamedMemory::CNamedMemory() = default;
CNamedMemory::~CNamedMemory() = default;

CNamedMemory::EResult CNamedMemory::Attach(const char* pszName, std::uint64_t nSize, bool bCreate) {
    constexpr std::uint64_t kMaxSize = std::numeric_limits<off_t>::max() / 2;
    Close();
    if (nSize > kMaxSize) return EResult::NoMapping;
    auto pObject = std::make_unique<Object>();
    pObject->strName = pszName;
    pObject->folder = OpenFolder();
    const std::uint64_t nFileSize = (nSize + 7) / 8 * 8 + sizeof(Trailer);
    if (!pObject->folder || !pObject->Hold(nFileSize, bCreate)) return EResult::NoMapping;
    const std::uint64_t nActual = pObject->file.GetSize();
    if (nActual < nFileSize || nActual % sizeof(Trailer) != 0 || !pObject->Map()) return EResult::NoView;
    m_pObject = std::move(pObject);
    return EResult::Done;
}

void CNamedMemory::Close() { m_pObject.reset(); }

std::uint8_t* CNamedMemory::GetView() const { return m_pObject ? m_pObject->pView : nullptr; }

bool CNamedMemory::IsSignalled() const { return m_pObject->pTrailer->nSignalled != 0; }
void CNamedMemory::Signal() { m_pObject->pTrailer->nSignalled = 1; }
void CNamedMemory::Reset() { m_pObject->pTrailer->nSignalled = 0; }

bool CNamedMemory::try_lock() { return m_pObject->file.Lock(kUserLock, F_WRLCK); }
void CNamedMemory::unlock() { m_pObject->file.Lock(kUserLock, F_UNLCK); }

}  // namespace kest
