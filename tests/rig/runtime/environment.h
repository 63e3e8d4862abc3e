// ICoreWebView2Environment to ICoreWebView2Environment12: makes controllers and shared buffers.
#pragma once

#include "stubs.h"

namespace rig {

class Environment final : public EnvironmentStubs {
public:
    using EnvironmentStubs::EnvironmentStubs;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void** object) noexcept override;
    HRESULT STDMETHODCALLTYPE CreateCoreWebView2Controller(
        HWND parent, ICoreWebView2CreateCoreWebView2ControllerCompletedHandler* handler) noexcept override;
    HRESULT STDMETHODCALLTYPE get_BrowserVersionString(LPWSTR* version) noexcept override;
    HRESULT STDMETHODCALLTYPE get_UserDataFolder(LPWSTR* folder) noexcept override;
    HRESULT STDMETHODCALLTYPE CreateSharedBuffer(UINT64 bytes, ICoreWebView2SharedBuffer** buffer) noexcept override;
};

} // namespace rig
