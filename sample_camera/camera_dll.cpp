// The DLL's exports: the class factory, and registration by regsvr32 for the user or, with /n /i:machine, the machine.
#include "platform/hresult.h"
#include "sample_camera/camera_filter.h"
#include "sample_camera/registration.h"

#include <array>
#include <atomic>
#include <new>
#include <string_view>

namespace sample_camera {
namespace {

std::atomic<bool> pinned = false;

HMODULE OwnModule(DWORD flags) noexcept {
    HMODULE module = nullptr;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | flags, reinterpret_cast<LPCWSTR>(&pinned), &module);
    return module;
}

// From its first object on, the DLL stays loaded: each load of a statically linked C++ runtime costs memory that the
// process does not get back, and applications unload cameras whenever they list them.
void PinModule() noexcept {
    if (!pinned.exchange(true)) {
        OwnModule(GET_MODULE_HANDLE_EX_FLAG_PIN);
    }
}

class CameraFactory final : public IClassFactory {
public:
    STDMETHODIMP QueryInterface(REFIID id, void** object) noexcept override {
        if (object == nullptr) {
            return E_POINTER;
        }
        const bool known = id == IID_IUnknown || id == IID_IClassFactory;
        *object = known ? this : nullptr;
        return known ? S_OK : E_NOINTERFACE;
    }
    // The one factory lives as long as the DLL.
    STDMETHODIMP_(ULONG) AddRef() noexcept override { return 2; }
    STDMETHODIMP_(ULONG) Release() noexcept override { return 1; }

    STDMETHODIMP CreateInstance(IUnknown* outer, REFIID id, void** object) noexcept override {
        if (object == nullptr) {
            return E_POINTER;
        }
        *object = nullptr;
        if (outer != nullptr) {
            return CLASS_E_NOAGGREGATION;
        }
        PinModule();
        const ComPtr<IBaseFilter> filter = ComPtr<IBaseFilter>::Attach(new (std::nothrow) CameraFilter());
        return filter ? filter->QueryInterface(id, object) : E_OUTOFMEMORY;
    }
    STDMETHODIMP LockServer(BOOL lock) noexcept override {
        if (lock != FALSE) {
            PinModule();
        }
        return S_OK;
    }
};

HRESULT RegisterIn(HKEY root) noexcept {
    std::array<wchar_t, 1024> path{};
    const DWORD length = GetModuleFileNameW(OwnModule(GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT), path.data(),
                                            static_cast<DWORD>(path.size()));
    if (length == 0 || length >= path.size()) {
        return HRESULT_FROM_WIN32(ERROR_FILENAME_EXCED_RANGE);
    }
    return Register(root, path.data());
}

} // namespace
} // namespace sample_camera

STDAPI DllGetClassObject(REFCLSID classId, REFIID id, void** object) {
    static sample_camera::CameraFactory factory;
    if (object == nullptr) {
        return E_POINTER;
    }
    *object = nullptr;
    return classId == sample_camera::CameraClass ? factory.QueryInterface(id, object) : CLASS_E_CLASSNOTAVAILABLE;
}

STDAPI DllCanUnloadNow() { return sample_camera::pinned ? S_FALSE : S_OK; }

STDAPI DllRegisterServer() { return sample_camera::RegisterIn(HKEY_CURRENT_USER); }

STDAPI DllUnregisterServer() { return sample_camera::Unregister(HKEY_CURRENT_USER); }

// `where` is "machine", or "user" and anything else for the user.
STDAPI DllInstall(BOOL install, LPCWSTR where) {
    const bool machine = where != nullptr && std::wstring_view(where) == L"machine";
    const HKEY root = machine ? HKEY_LOCAL_MACHINE : HKEY_CURRENT_USER;
    return install != FALSE ? sample_camera::RegisterIn(root) : sample_camera::Unregister(root);
}
