#include "graph/EventHandle.h"

#include <utility>

namespace kest {

CEventRef::CEventRef(HANDLE hEvent) : m_hEvent(DuplicateEventHandle(hEvent)) {}
CEventRef::CEventRef(CEventRef&& other) noexcept : m_hEvent(std::exchange(other.m_hEvent, nullptr)) {}
CEventRef::~CEventRef() { CloseEventHandle(m_hEvent); }

CEventRef& CEventRef::operator=(CEventRef&& other) noexcept {
    std::swap(m_hEvent, other.m_hEvent);
    return *this;
}

}  // namespace kest
