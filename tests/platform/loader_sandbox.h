// A registry, a folder and a program path of the test's own for the loader, and client libraries that report their
// calls. One at a time.
#pragma once

#include "platform/com_ptr.h"
#include "tests/support/allocation_fault.h"
#include "tests/support/function_patch.h"
#include "tests/support/test_files.h"

#include <windows.h>

#include <WebView2.h>

#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace receiver {

constexpr HRESULT FileNotFound = static_cast<HRESULT>(0x80070002);

using CompletedHandler = ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler;

struct ClientCall {
    std::wstring versionFolder; // of the client library that was called
    bool joinRunningVersion = false;
    int runtimeType = -1;
    std::optional<std::wstring> userDataFolder; // none for a null pointer
    IUnknown* options = nullptr;
    ComPtr<CompletedHandler> handler;
};

// The program's handler: records what it receives. It outlives every request.
class RecordingHandler final : public CompletedHandler {
public:
    struct Result {
        HRESULT code = S_OK;
        ICoreWebView2Environment* environment = nullptr;
        bool insideCall = false;
    };

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void** object) noexcept override {
        if (object != nullptr) {
            *object = nullptr;
        }
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() noexcept override { return ++references; }
    ULONG STDMETHODCALLTYPE Release() noexcept override { return --references; }
    HRESULT STDMETHODCALLTYPE Invoke(HRESULT code, ICoreWebView2Environment* environment) override {
        const AllocationPause pause;
        results.push_back({code, environment, insideCall});
        return answer;
    }

    ULONG references = 1;
    bool insideCall = false; // The loader's function has not returned yet.
    HRESULT answer = S_OK;
    std::vector<Result> results;
};

class LoaderSandbox {
public:
    LoaderSandbox();
    LoaderSandbox(const LoaderSandbox&) = delete;
    LoaderSandbox& operator=(const LoaderSandbox&) = delete;
    ~LoaderSandbox();

    [[nodiscard]] std::wstring Root() const { return folder.Path().wstring(); }
    // The path of a version folder's client library.
    [[nodiscard]] static std::wstring LibraryIn(const std::wstring& versionFolder);
    // Creates the folder of the client library and all above it. The path may be longer than 260 characters.
    static void CreateLibraryFolder(const std::wstring& versionFolder);
    // Puts a client library there; `source` is the path of one other than the stand-in.
    void Install(const std::wstring& versionFolder, const std::wstring& source = {});
    [[nodiscard]] const std::vector<std::wstring>& InstalledFolders() const noexcept { return installed; }
    [[nodiscard]] static bool IsLoaded(const std::wstring& versionFolder);
    void SetRegistryValue(HKEY place, const std::wstring& key, const std::wstring& name, DWORD type,
                          std::string_view bytes, REGSAM view = KEY_WOW64_32KEY);
    // Announces a runtime as an installation does.
    void Announce(HKEY place, const wchar_t* channel, const std::wstring& versionFolder);
    // The machine's real registry is used from now on. False when a runtime is installed there or it may not be
    // written.
    [[nodiscard]] bool UseRealMachine();

    // Calls the loader as the program does.
    HRESULT Request(PCWSTR browserFolder = nullptr, PCWSTR dataFolder = L"C:\\data", IUnknown* options = nullptr);
    // Runs the message loop, and what `later` holds, until the handler has so many results; false after a minute.
    [[nodiscard]] bool RunLoopUntil(std::size_t results);
    void DispatchWaiting();

    std::vector<ClientCall> calls;
    std::function<HRESULT(const ClientCall&)> answer; // of the client libraries; none: S_OK
    std::vector<std::function<void()>> later; // for the message loop
    RecordingHandler handler;

private:
    friend struct LoaderSandboxHooks;

    const PrivateFolder folder;
    const std::wstring testKey = L"Software\\VistelLoaderTest" + std::to_wstring(GetCurrentProcessId());
    const ImportRedirection programPath;
    const VariableScope noBrowserFolder{L"WEBVIEW2_BROWSER_EXECUTABLE_FOLDER", nullptr};
    const VariableScope noDataFolder{L"WEBVIEW2_USER_DATA_FOLDER", nullptr};
    const VariableScope noChannels{L"WEBVIEW2_RELEASE_CHANNELS", nullptr};
    const VariableScope noSearchKind{L"WEBVIEW2_CHANNEL_SEARCH_KIND", nullptr};
    const VariableScope noPreference{L"WEBVIEW2_RELEASE_CHANNEL_PREFERENCE", nullptr};
    bool realMachine = false;
    std::vector<std::wstring> installed;
    std::set<HMODULE> loaded;
};

// Keys of the channels in the registry, the most stable first.
inline constexpr const wchar_t* ChannelKeys[] = {
    L"Software\\Microsoft\\EdgeUpdate\\ClientState\\{F3017226-FE2A-4295-8BDF-00C3A9A7E4C5}",
    L"Software\\Microsoft\\EdgeUpdate\\ClientState\\{2CD8A007-E189-409D-A2C8-9AF4EF3C72AA}",
    L"Software\\Microsoft\\EdgeUpdate\\ClientState\\{0D50BFEC-CD6A-4F9A-964C-C7416E3ACB10}",
    L"Software\\Microsoft\\EdgeUpdate\\ClientState\\{65C35B14-6C1D-4122-AC46-7148CC9D6497}",
    L"Software\\Microsoft\\EdgeUpdate\\ClientState\\{BE59E8FD-089A-411B-A3B0-051D9E417818}",
};

// The bytes of a text with its terminator, as the registry keeps it.
[[nodiscard]] std::string RegistryBytes(const std::wstring& text);

} // namespace receiver
