// Loaded before the C library into a program under test. Reads at any position fail behind KEST_FAIL_FROM.
// With KEST_OPEN_FAILS no file is made without a name and no file that is open already is opened anew.
#include <fcntl.h>
#include <sys/syscall.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace {

int FailWith(int nError) {
    errno = nError;
    return -1;
}

ssize_t Read(int hFile, void* pBuffer, std::size_t nLength, long llPosition) {
    static const char* const pszFailFrom = std::getenv("KEST_FAIL_FROM");
    if (pszFailFrom) {
        const long llLeft = std::atol(pszFailFrom) - llPosition;
        if (llLeft <= 0) return FailWith(EIO);
        nLength = std::min(nLength, static_cast<std::size_t>(llLeft));
    }
    return syscall(SYS_pread64, hFile, pBuffer, nLength, llPosition);
}

}  // namespace

extern "C" {
ssize_t pread(int hFile, void* pBuffer, std::size_t nLength, off_t llPosition) {
    return Read(hFile, pBuffer, nLength, llPosition);
}
ssize_t pread64(int hFile, void* pBuffer, std::size_t nLength, off64_t llPosition) {
    return Read(hFile, pBuffer, nLength, llPosition);
}
int open(const char* pszPath, int nFlags, ...) {
    const bool bUnnamed = (nFlags & O_TMPFILE) == O_TMPFILE, bAnew = std::strstr(pszPath, "/fd/") != nullptr;
    if (std::getenv("KEST_OPEN_FAILS") && (bUnnamed || bAnew)) return FailWith(EOPNOTSUPP);
    return static_cast<int>(syscall(SYS_openat, AT_FDCWD, pszPath, nFlags, 0666));
}
}
