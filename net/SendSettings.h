#pragma once

#include <type_traits>

#include "control/SendSettings.h"
#include "platform/CritSec.h"

namespace kest {

/// The send settings of one filter, which its threads read and write at the same time: the whole record or a
/// field of it in one step each. For example: `settings.Set(&SEND_SETTINGS::bSending, 1)`. The lock is held
/// inside an operation only, and nothing is locked behind it.
class CSendSettings {
public:
    SEND_SETTINGS Get() const {
        CAutoLock lock(m_cs);
        return m_record;
    }
    void Set(const SEND_SETTINGS& record) {
        CAutoLock lock(m_cs);
        m_record = record;
    }
    template <class T>
    T Get(T SEND_SETTINGS::*pField) const {
        CAutoLock lock(m_cs);
        return m_record.*pField;
    }
    template <class T>
    void Set(T SEND_SETTINGS::*pField, std::type_identity_t<T> value) {
        CAutoLock lock(m_cs);
        m_record.*pField = value;
    }
    template <class T>
    void Add(T SEND_SETTINGS::*pField, std::type_identity_t<T> n) {
        CAutoLock lock(m_cs);
        m_record.*pField += n;
    }

private:
    mutable CCritSec m_cs;  // guards m_record
    SEND_SETTINGS m_record;
};

}  // namespace kest
