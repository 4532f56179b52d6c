// Task memory where there is no COM: host and module share one heap.
#include <new>

#include "platform/api/MediaRecords.h"

void* CoTaskMemAlloc(std::size_t nBytes) { return ::operator new(nBytes, std::nothrow); }
void CoTaskMemFree(void* pMemory) { ::operator delete(pMemory); }
