// Loaded before the C library into a program under test: reads at any position fail behind KEST_FAIL_FROM.
#include <sys/syscall.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>

namespace {

ssize_t Read(int hFile, void* pBuffer, std::size_t nLength, long llPosition) {
    static const long llFailFrom = std::atol(std::getenv("KEST_FAIL_FROM"));
    if (llPosition >= llFailFrom) {
        errno = EIO;
        return -1;
    }
    nLength = std::min(nLength, static_cast<std::size_t>(llFailFrom - llPosition));
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
}
