#include "host/FileSource.h"

namespace kest {

CFileSource::CFileSource(CComPtr<IAsyncReader> pReader)
    : m_output(pReader, this, &m_csPins, nullptr, L"Output", PINDIR_OUTPUT) {
    LONGLONG llAvailable = 0;
    pReader->Length(&m_llLength, &llAvailable);
}

}  // namespace kest
