// Class objects and the life of the module, by its exported functions as the system calls them.
#include "Cases.h"
#include "ModuleGraph.h"

namespace kest {
namespace {

/// The module, loaded for the length of a block.
class CLoadedModule {
public:
    explicit CLoadedModule(const std::wstring& wszFile) : m_hModule(LoadLibraryW(wszFile.c_str())) {
        Require(m_hModule != nullptr, "the module does not load: " + std::to_string(GetLastError()));
    }
    CLoadedModule(const CLoadedModule&) = delete;
    CLoadedModule& operator=(const CLoadedModule&) = delete;
    ~CLoadedModule() { FreeLibrary(m_hModule); }

    HRESULT CanUnloadNow() const { return Find<HRESULT(STDAPICALLTYPE*)()>("DllCanUnloadNow")(); }
    HRESULT GetClassObject(REFCLSID clsid, REFIID riid, void** ppv) const {
        return Find<HRESULT(STDAPICALLTYPE*)(REFCLSID, REFIID, void**)>("DllGetClassObject")(clsid, riid,
                                                                                             ppv);
    }

private:
    template <class Function>
    Function Find(const char* pszName) const {
        const FARPROC pFound = GetProcAddress(m_hModule, pszName);
        Require(pFound != nullptr, std::string("the module has no ") + pszName);
        return reinterpret_cast<Function>(reinterpret_cast<void*>(pFound));
    }

    const HMODULE m_hModule;
};

void CheckClassObjects(const CLoadedModule& module) {
    constexpr CLSID kOther = {0xF7DB4970, 0x3AB8, 0x8BC1, {0x2F, 0xD6, 0xD8, 0x23, 0x31, 0xF2, 0x00, 0x01}};
    CRef<IClassFactory> pFactory;
    CRef<IBaseFilter> pFilter;
    RequireResult(module.GetClassObject(kOther, __uuidof(IClassFactory), pFactory.PutVoid()),
                  CLASS_E_CLASSNOTAVAILABLE, "another class");
    RequireResult(module.GetClassObject(kFilterClass, __uuidof(IBaseFilter), pFilter.PutVoid()),
                  E_NOINTERFACE, "a class object as a filter");
    RequireResult(module.CanUnloadNow(), S_OK, "unloading before anything is held");
}

/// The module stays while a lock or a filter is held, however that came about.
void CheckHolding(const CLoadedModule& module) {
    CRef<IClassFactory> pFactory;
    RequireOk(module.GetClassObject(kFilterClass, __uuidof(IClassFactory), pFactory.PutVoid()),
              "there is no class object");
    RequireOk(pFactory->LockServer(TRUE), "the module cannot be locked");
    IClassFactory* const pLocker = pFactory.Get();
    RequireResult(module.CanUnloadNow(), S_FALSE, "unloading while locked");
    RequireOk(pLocker->LockServer(FALSE), "the module cannot be unlocked");

    CRef<IBaseFilter> pFilter;
    RequireOk(pFactory->CreateInstance(nullptr, __uuidof(IBaseFilter), pFilter.PutVoid()),
              "the class object makes no filter");
    pFactory = {};
    RequireResult(module.CanUnloadNow(), S_FALSE, "unloading while a filter is held");
    pFilter = {};
    RequireResult(module.CanUnloadNow(), S_OK, "unloading after everything is released");
}

/// A played graph leaves nothing behind that would keep the module.
void CheckAfterPlayback(const CLoadedModule& module, const std::wstring& wszFile) {
    {
        CModuleGraph graph;
        graph.Build(wszFile);
        graph.Run();
        Require(graph.GetRecorder().WaitForBoth(5, 10'000), "no samples");
        RequireResult(module.CanUnloadNow(), S_FALSE, "unloading while the graph runs");
    }
    RequireResult(module.CanUnloadNow(), S_OK, "unloading after a graph has played");
}

/// A file that is no stream for the filter is refused, and leaves nothing behind either.
void CheckAfterRefusal(const CLoadedModule& module, const std::wstring& wszFile) {
    {
        CModuleGraph graph;
        RequireResult(graph.Open(wszFile), VFW_E_NO_ACCEPTABLE_TYPES, "connecting to no stream");
    }
    RequireResult(module.CanUnloadNow(), S_OK, "unloading after a refusal");
}

}  // namespace

std::string CheckLoading(Arguments arguments) {
    const CLoadedModule module(arguments[0]);
    CheckClassObjects(module);
    CheckHolding(module);
    CheckAfterPlayback(module, arguments[1]);
    for (const std::wstring& wszFile : arguments.subspan(2)) CheckAfterRefusal(module, wszFile);
    return {};
}

}  // namespace kest
