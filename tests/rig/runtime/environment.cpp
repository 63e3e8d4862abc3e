#include "environment.h"

#include "controller.h"
#include "faults.h"
#include "shared_buffer.h"

#include "platform/hresult.h"

namespace rig {

HRESULT Environment::QueryInterface(REFIID id, void** object) noexcept {
    if (IsEqualIID(id, IID_ICoreWebView2Environment12) && FAILED(FaultFor("ICoreWebView2Environment12"))) {
        return EnvironmentStubs::QueryInterface(IID_NULL, object);
    }
    return EnvironmentStubs::QueryInterface(id, object);
}

HRESULT
Environment::CreateCoreWebView2Controller(HWND parent,
                                          ICoreWebView2CreateCoreWebView2ControllerCompletedHandler* handler) noexcept {
    RETURN_IF_FAILED(Enter(__func__));
    if (handler == nullptr) {
        return E_POINTER;
    }
    if (session->BrowserGone()) {
        return BrowserClosed;
    }
    return Controller::Start(session, parent, handler);
}

HRESULT Environment::get_BrowserVersionString(LPWSTR* version) noexcept {
    RETURN_IF_FAILED(Enter(__func__));
    return CopyText(session->Version(), version);
}

HRESULT Environment::get_UserDataFolder(LPWSTR* folder) noexcept {
    RETURN_IF_FAILED(Enter(__func__));
    return CopyText(session->UserDataFolder(), folder);
}

HRESULT Environment::CreateSharedBuffer(UINT64 bytes, ICoreWebView2SharedBuffer** buffer) noexcept {
    RETURN_IF_FAILED(Enter(__func__));
    return SharedBuffer::Create(session, bytes, buffer);
}

} // namespace rig
