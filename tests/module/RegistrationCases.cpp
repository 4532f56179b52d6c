// What registration tells the system, seen through the system: the registry's keys and the filter mapper.
#include <array>
#include <vector>

#include "Cases.h"
#include "ModuleGraph.h"

/// The mapper's reader of the descriptions that it keeps. The system's headers do not declare it.
MIDL_INTERFACE("97F7C4D4-547B-4A5F-8332-536430AD2E4D") IAMFilterData : public IUnknown {
    /// @param ppDescription  a block from the task allocator; it begins with a pointer to the description.
    virtual HRESULT STDMETHODCALLTYPE ParseFilterData(BYTE * pData, ULONG nBytes, BYTE * *ppDescription) = 0;
    virtual HRESULT STDMETHODCALLTYPE CreateFilterData(REGFILTER2 * pDescription, BYTE * *ppData,
                                                       ULONG * pnBytes) = 0;
};
__CRT_UUID_DECL(IAMFilterData, 0x97F7C4D4, 0x547B, 0x4A5F, 0x83, 0x32, 0x53, 0x64, 0x30, 0xAD, 0x2E, 0x4D)

namespace kest {
namespace {

// ---------------- the registry

std::wstring ReadText(const std::wstring& wszKey, LPCWSTR pszValue) {
    std::array<WCHAR, 1024> szText{};
    DWORD nBytes = sizeof(szText);
    const LSTATUS nStatus = RegGetValueW(HKEY_CLASSES_ROOT, wszKey.c_str(), pszValue, RRF_RT_REG_SZ, nullptr,
                                         szText.data(), &nBytes);
    return nStatus == ERROR_SUCCESS ? szText.data() : L"";
}

std::wstring ClassKey() {
    std::array<WCHAR, 40> szGuid{};
    StringFromGUID2(kFilterClass, szGuid.data(), static_cast<int>(szGuid.size()));
    return std::wstring(L"CLSID\\") + szGuid.data();
}

std::wstring GetFullPath(const std::wstring& wszFile) {
    std::array<WCHAR, 1024> szPath{};
    GetFullPathNameW(wszFile.c_str(), szPath.size(), szPath.data(), nullptr);
    return szPath.data();
}

void CheckRegistry(const std::wstring& wszModule) {
    const std::wstring wszServer = ClassKey() + L"\\InprocServer32";
    Require(ReadText(ClassKey(), nullptr) == L"Kest Stream Demux", "the class has another name");
    Require(ReadText(wszServer, L"ThreadingModel") == L"Both", "the class has another threading model");
    Require(_wcsicmp(ReadText(wszServer, nullptr).c_str(), GetFullPath(wszModule).c_str()) == 0,
            "the class is in another module");
}

// ---------------- the mapper

struct VariantOwner : VARIANT {
    VariantOwner() { VariantInit(this); }
    VariantOwner(const VariantOwner&) = delete;
    VariantOwner& operator=(const VariantOwner&) = delete;
    ~VariantOwner() { VariantClear(this); }
};

bool HasName(const CRef<IMoniker>& pMoniker, LPCWSTR pszName) {
    CRef<IPropertyBag> pBag;
    VariantOwner name;
    return SUCCEEDED(pMoniker->BindToStorage(nullptr, nullptr, __uuidof(IPropertyBag), pBag.PutVoid())) &&
           SUCCEEDED(pBag->Read(L"FriendlyName", &name, nullptr)) && name.vt == VT_BSTR &&
           std::wstring_view(name.bstrVal) == pszName;
}

/// The first filter in the mapper's list of those that take a stream and have at least this merit; the list
/// begins with the highest. Empty when the list is.
CRef<IMoniker> FindFirstInMapper(DWORD dwMerit) {
    const auto pMapper = Create<IFilterMapper2>(CLSID_FilterMapper2, "the filter mapper");
    const std::array<GUID, 2> input = {MEDIATYPE_Stream, GUID_NULL};
    CRef<IEnumMoniker> pFound;
    RequireOk(pMapper->EnumMatchingFilters(pFound.Put(), 0, FALSE, dwMerit, TRUE, 1, input.data(), nullptr,
                                           nullptr, FALSE, TRUE, 0, nullptr, nullptr, nullptr),
              "the mapper cannot be asked");
    CRef<IMoniker> pMoniker;
    if (pFound) pFound->Next(1, pMoniker.Put(), nullptr);
    return pMoniker;
}

/// Whether the system's list of filters, which users see, has the filter.
bool IsInCategory() {
    const auto pDevices = Create<ICreateDevEnum>(CLSID_SystemDeviceEnum, "the device enumerator");
    CRef<IEnumMoniker> pAll;
    if (pDevices->CreateClassEnumerator(CLSID_LegacyAmFilterCategory, pAll.Put(), 0) != S_OK) return false;
    CRef<IMoniker> pMoniker;
    while (pAll->Next(1, pMoniker.Put(), nullptr) == S_OK) {
        if (HasName(pMoniker, kFilterName)) return true;
    }
    return false;
}

// ---------------- the description

constexpr GUID kMpeg4ProgramStream = {
    0x8A701D7A, 0x458C, 0x4F66, {0x80, 0xF7, 0x49, 0xB8, 0x9D, 0xDE, 0xC2, 0xEA}};
constexpr GUID kFourCcMpg4 = {0x3447504D, 0x0000, 0x0010, {0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71}};
constexpr GUID kMpeg4Video = {0x03974C0B, 0x456D, 0x4550, {0x91, 0xC9, 0x68, 0xE5, 0x47, 0x62, 0x5C, 0xAF}};

struct ExpectedPin {
    DWORD dwFlags;                           // REG_PINFLAG_B_...
    std::vector<std::array<GUID, 2>> types;  // major type and subtype
};

/// The pins in the order input, audio, video.
std::vector<ExpectedPin> GetExpectedPins() {
    return {{0,
             {{GUID_NULL, GUID_NULL},
              {MEDIATYPE_Stream, GUID_NULL},
              {MEDIATYPE_Stream, kMpeg4ProgramStream},
              {MEDIATYPE_Stream, kFourCcMpg4}}},
            {REG_PINFLAG_B_OUTPUT, {{MEDIATYPE_Audio, MEDIASUBTYPE_MPEG1AudioPayload}}},
            {REG_PINFLAG_B_OUTPUT | REG_PINFLAG_B_RENDERER,
             {{MEDIATYPE_Video, GUID_NULL},
              {MEDIATYPE_Video, MEDIASUBTYPE_MPEG2_VIDEO},
              {MEDIATYPE_Video, kMpeg4Video},
              {MEDIATYPE_Video, MEDIASUBTYPE_MPEG1Payload}}}};
}

void CheckPin(const REGFILTERPINS2& pin, const ExpectedPin& expected, const std::string& strPin) {
    Require(pin.dwFlags == expected.dwFlags, strPin + " has flags " + std::to_string(pin.dwFlags));
    Require(pin.nMediaTypes == expected.types.size(),
            strPin + " has " + std::to_string(pin.nMediaTypes) + " media types");
    for (std::size_t i = 0; i < expected.types.size(); ++i) {
        const REGPINTYPES& type = pin.lpMediaType[i];
        Require(*type.clsMajorType == expected.types[i][0] && *type.clsMinorType == expected.types[i][1],
                strPin + " has another media type " + std::to_string(i));
    }
}

void CheckDescription(const REGFILTER2& description) {
    Require(description.dwMerit == kFilterMerit, "the merit is " + std::to_string(description.dwMerit));
    Require(description.dwVersion == 2,
            "the description has version " + std::to_string(description.dwVersion));
    const std::vector<ExpectedPin> expected = GetExpectedPins();
    Require(description.cPins2 == expected.size(),
            std::to_string(description.cPins2) + " pins are described");
    for (std::size_t i = 0; i < expected.size(); ++i) {
        CheckPin(description.rgPins2[i], expected[i], "pin " + std::to_string(i));
    }
}

/// Reads what the mapper keeps of the filter, through the mapper.
void CheckFilterData(const CRef<IMoniker>& pMoniker) {
    CRef<IPropertyBag> pBag;
    RequireOk(pMoniker->BindToStorage(nullptr, nullptr, __uuidof(IPropertyBag), pBag.PutVoid()),
              "the filter has no properties");
    VariantOwner data;
    RequireOk(pBag->Read(L"FilterData", &data, nullptr), "the filter has no description");
    Require(data.vt == (VT_ARRAY | VT_UI1), "the description is no array of bytes");
    const auto pParser = Create<IAMFilterData>(CLSID_FilterMapper2, "the reader of descriptions");
    BYTE* pBlock = nullptr;
    RequireOk(pParser->ParseFilterData(static_cast<BYTE*>(data.parray->pvData),
                                       data.parray->rgsabound[0].cElements, &pBlock),
              "the description cannot be read");
    CheckDescription(**reinterpret_cast<REGFILTER2**>(pBlock));
    CoTaskMemFree(pBlock);
}

}  // namespace

std::string CheckRegistered(Arguments arguments) {
    CheckRegistry(arguments[0]);
    Create<IBaseFilter>(kFilterClass, "the filter");
    Require(IsInCategory(), "the list of filters does not have the filter");
    const CRef<IMoniker> pFirst = FindFirstInMapper(MERIT_NORMAL);
    Require(pFirst && HasName(pFirst, kFilterName), "the filter is not the first that is tried for a stream");
    CheckFilterData(pFirst);
    const CRef<IMoniker> pAbove = FindFirstInMapper(kFilterMerit + 1);
    Require(!pAbove || !HasName(pAbove, kFilterName), "the mapper finds the filter above its merit");
    return {};
}

std::string CheckUnregistered(Arguments) {
    CRef<IBaseFilter> pFilter;
    RequireResult(CoCreateInstance(kFilterClass, nullptr, CLSCTX_INPROC_SERVER, __uuidof(IBaseFilter),
                                   pFilter.PutVoid()),
                  REGDB_E_CLASSNOTREG, "making a filter of no registered class");
    Require(ReadText(ClassKey(), nullptr).empty(), "the class's key is left behind");
    Require(!IsInCategory(), "the list of filters still has the filter");
    return {};
}

}  // namespace kest
