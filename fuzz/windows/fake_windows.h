// What stands behind the functions of fuzz/windows/windows.h: one small machine, made anew for every run. It keeps
// count of all that it hands out, lets any call fail, and writes down what the program shows and posts.
#pragma once

#include "fuzz/support/guarded_memory.h"
#include "platform/com_ptr.h"

#include <windows.h>

#include <WebView2.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <vector>

namespace receiver {

class FakeWindows {
public:
    // `frameFile` is what the shared frame file's bytes are kept in: all that it can grow to.
    explicit FakeWindows(std::span<std::uint8_t> frameFile);
    FakeWindows(const FakeWindows&) = delete;
    FakeWindows& operator=(const FakeWindows&) = delete;
    ~FakeWindows();

    // The one that exists.
    [[nodiscard]] static FakeWindows& Current() noexcept;

    // Set by the target.
    std::function<bool(MSG&)> nextMessage; // for the program's message loop; false: WM_QUIT
    std::wstring programData;
    std::wstring knownFolder = L"C:\\Users\\\"a\"";
    std::uint64_t nowMs = 1;
    std::uint64_t frameFileSize = 0; // bytes
    bool eventSignalled = false;
    bool maximized = false;
    bool minimized = false;
    unsigned callsUntilFailure = 0; // 0: no call fails

    // Written down here.
    std::vector<std::string> logLines;
    std::vector<std::wstring> posted; // JSON texts, and "slot " with the additional data
    std::wstring boxText; // of the last error box
    bool failed = false; // a call has been made to fail
    unsigned mediaSum = 0; // of all bytes that the encoders were given

    // Whether it is this call's turn to fail.
    [[nodiscard]] bool Fails() noexcept;
    [[nodiscard]] HANDLE MakeHandle();
    [[nodiscard]] bool CloseHandle(HANDLE handle) noexcept;
    [[nodiscard]] wchar_t* MakeString(std::wstring_view text);
    void FreeString(void* text) noexcept;
    [[nodiscard]] std::span<std::uint8_t> FrameFile() const noexcept { return frameFile_; }
    // Everything handed out and not given back, in words; empty when all is well.
    [[nodiscard]] std::string Leaks() const;

    // The browser's side.
    ComPtr<ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler> environmentHandler;
    ComPtr<ICoreWebView2CreateCoreWebView2ControllerCompletedHandler> controllerHandler;
    ComPtr<ICoreWebView2WebMessageReceivedEventHandler> messageHandler;
    ComPtr<ICoreWebView2PermissionRequestedEventHandler> permissionHandler;
    ComPtr<ICoreWebView2NavigationCompletedEventHandler> navigationHandler;
    void CompleteEnvironment();
    void CompleteController();
    // A text from the page; none: the page posted something that is no string. An empty text may come as a null
    // pointer.
    HRESULT PostFromPage(const std::optional<std::wstring>& text, bool asNull = false);
    void ReleaseHandlers();

    // The one window.
    [[nodiscard]] HWND Window() noexcept { return reinterpret_cast<HWND>(&windowData); }
    WNDPROC windowProcedure = nullptr;
    LONG_PTR windowData = 0;
    bool windowExists = false;
    RECT windowRectangle{};

    int objectCount = 0; // COM objects alive
    int mappedViews = 0;
    int comStarts = 0;
    int mediaStarts = 0;

private:
    std::span<std::uint8_t> frameFile_;
    std::set<HANDLE> handles_;
    std::set<void*> strings_;
    std::intptr_t lastHandle_ = 0;
};

// Base of all objects: counts references, answers every query with itself.
template <typename Interface>
class FakeObject : public Interface {
public:
    FakeObject() { ++FakeWindows::Current().objectCount; }
    FakeObject(const FakeObject&) = delete;
    FakeObject& operator=(const FakeObject&) = delete;
    virtual ~FakeObject() { --FakeWindows::Current().objectCount; }

    HRESULT QueryInterface(REFIID, void** object) override {
        *object = nullptr;
        if (FakeWindows::Current().Fails()) {
            return E_NOINTERFACE;
        }
        *object = static_cast<Interface*>(this);
        AddRef();
        return S_OK;
    }
    ULONG AddRef() override { return ++references_; }
    ULONG Release() override {
        const ULONG left = --references_;
        if (left == 0) {
            delete this;
        }
        return left;
    }

private:
    ULONG references_ = 1; // The creator's.
};

// Makes an object for a call that hands one out, or fails in its place.
template <typename Object, typename Interface, typename... Arguments>
HRESULT HandOut(Interface** result, Arguments&&... arguments) {
    *result = nullptr;
    if (FakeWindows::Current().Fails()) {
        return E_FAIL;
    }
    *result = new Object(std::forward<Arguments>(arguments)...);
    return S_OK;
}

[[nodiscard]] inline HRESULT Answer() noexcept { return FakeWindows::Current().Fails() ? E_FAIL : S_OK; }

} // namespace receiver
