#include "tests/platform/loader_sandbox.h"

#include "platform/handles.h"
#include "tests/platform/test_client.h"

#include <stdexcept>
#include <utility>

namespace receiver {
namespace {

LoaderSandbox* current = nullptr;

// Lets a path be longer than 260 characters.
std::wstring Extended(const std::wstring& path) { return path.starts_with(L"\\\\") ? path : L"\\\\?\\" + path; }

std::wstring Plain(const std::wstring& path) { return path.starts_with(L"\\\\?\\") ? path.substr(4) : path; }

void Require(bool succeeded, const char* what) {
    if (!succeeded) {
        throw std::runtime_error(what);
    }
}

RegistryKey CreateKey(HKEY place, const std::wstring& path, REGSAM view = 0) {
    RegistryKey key;
    Require(RegCreateKeyExW(place, path.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_ALL_ACCESS | view, nullptr,
                            key.Put(), nullptr) == ERROR_SUCCESS,
            "The registry cannot be written.");
    return key;
}

std::wstring StandIn() {
    wchar_t path[MAX_PATH] = L"";
    GetModuleFileNameW(GetModuleHandleW(nullptr), path, MAX_PATH);
    return (std::filesystem::path(path).parent_path() / L"test_client.dll").wstring();
}

} // namespace

struct LoaderSandboxHooks {
    static DWORD WINAPI ModuleFileName(HMODULE module, LPWSTR path, DWORD size) {
        if (module != nullptr) {
            return reinterpret_cast<decltype(&GetModuleFileNameW)>(current->programPath.Original())(module, path, size);
        }
        const std::wstring program = current->Root() + L"\\app\\host.exe";
        program.copy(path, size - 1);
        path[program.size()] = L'\0';
        return static_cast<DWORD>(program.size());
    }
    static HRESULT Called(HMODULE library, ClientCall call) {
        wchar_t path[1024] = L"";
        GetModuleFileNameW(library, path, static_cast<DWORD>(std::size(path)));
        const std::wstring folder = Plain(path);
        call.versionFolder = folder.substr(0, folder.size() - LoaderSandbox::LibraryIn(L"").size());
        current->loaded.insert(library);
        current->calls.push_back(call);
        return current->answer ? current->answer(call) : S_OK;
    }
};

LoaderSandbox::LoaderSandbox()
    : programPath("kernel32.dll", "GetModuleFileNameW", reinterpret_cast<void*>(&LoaderSandboxHooks::ModuleFileName)) {
    current = this;
    CreateDirectoryW((Root() + L"\\app").c_str(), nullptr);
    RegOverridePredefKey(HKEY_LOCAL_MACHINE, CreateKey(HKEY_CURRENT_USER, testKey + L"\\machine").Get());
    RegOverridePredefKey(HKEY_CURRENT_USER, CreateKey(HKEY_CURRENT_USER, testKey + L"\\user").Get());
}

LoaderSandbox::~LoaderSandbox() {
    if (realMachine) {
        for (const wchar_t* const key : ChannelKeys) {
            RegDeleteKeyExW(HKEY_LOCAL_MACHINE, key, KEY_WOW64_32KEY, 0);
            RegDeleteKeyExW(HKEY_LOCAL_MACHINE, key, KEY_WOW64_64KEY, 0);
        }
    }
    RegOverridePredefKey(HKEY_LOCAL_MACHINE, nullptr);
    RegOverridePredefKey(HKEY_CURRENT_USER, nullptr);
    RegDeleteTreeW(HKEY_CURRENT_USER, testKey.c_str());
    for (const auto& versionFolder : installed) {
        if (const HMODULE library = GetModuleHandleW(LibraryIn(versionFolder).c_str())) {
            loaded.insert(library);
        }
    }
    for (const HMODULE library : loaded) { // What is loaded cannot be removed.
        wchar_t path[MAX_PATH] = L"";
        while (GetModuleFileNameW(library, path, MAX_PATH) > 0 && FreeLibrary(library) != 0) {
        }
    }
    current = nullptr;
}

std::wstring LoaderSandbox::LibraryIn(const std::wstring& versionFolder) {
    return versionFolder + L"\\EBWebView\\x64\\EmbeddedBrowserWebView.dll";
}

void LoaderSandbox::CreateLibraryFolder(const std::wstring& versionFolder) {
    const std::wstring library = Extended(LibraryIn(versionFolder));
    for (std::size_t end = 0; (end = library.find(L'\\', end + 1)) != std::wstring::npos;) {
        CreateDirectoryW(library.substr(0, end).c_str(), nullptr); // The upper ones exist.
    }
}

void LoaderSandbox::Install(const std::wstring& versionFolder, const std::wstring& source) {
    static const std::wstring standIn = StandIn();
    CreateLibraryFolder(versionFolder);
    Require(CopyFileW((source.empty() ? standIn : source).c_str(), Extended(LibraryIn(versionFolder)).c_str(), FALSE) !=
                0,
            "The client library cannot be copied.");
    installed.push_back(versionFolder);
}

bool LoaderSandbox::IsLoaded(const std::wstring& versionFolder) {
    return GetModuleHandleW(LibraryIn(versionFolder).c_str()) != nullptr;
}

void LoaderSandbox::SetRegistryValue(HKEY place, const std::wstring& key, const std::wstring& name, DWORD type,
                                     std::string_view bytes, REGSAM view) {
    Require(RegSetValueExW(CreateKey(place, key, view).Get(), name.c_str(), 0, type,
                           reinterpret_cast<const BYTE*>(bytes.data()),
                           static_cast<DWORD>(bytes.size())) == ERROR_SUCCESS,
            "The registry value cannot be written.");
}

void LoaderSandbox::Announce(HKEY place, const wchar_t* channel, const std::wstring& versionFolder) {
    SetRegistryValue(place, channel, L"EBWebView", REG_SZ, RegistryBytes(versionFolder));
}

bool LoaderSandbox::UseRealMachine() {
    RegOverridePredefKey(HKEY_LOCAL_MACHINE, nullptr);
    for (const wchar_t* const channel : ChannelKeys) {
        for (const REGSAM view : {REGSAM{KEY_WOW64_32KEY}, REGSAM{KEY_WOW64_64KEY}}) {
            RegistryKey key;
            if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, channel, 0, KEY_READ | view, key.Put()) == ERROR_SUCCESS) {
                return false;
            }
        }
    }
    RegistryKey key;
    realMachine = RegCreateKeyExW(HKEY_LOCAL_MACHINE, ChannelKeys[0], 0, nullptr, REG_OPTION_NON_VOLATILE,
                                  KEY_WRITE | KEY_WOW64_32KEY, nullptr, key.Put(), nullptr) == ERROR_SUCCESS;
    return realMachine;
}

HRESULT LoaderSandbox::Request(PCWSTR browserFolder, PCWSTR dataFolder, IUnknown* options) {
    handler.insideCall = true;
    const HRESULT result = CreateCoreWebView2EnvironmentWithOptions(
        browserFolder, dataFolder, reinterpret_cast<ICoreWebView2EnvironmentOptions*>(options), &handler);
    handler.insideCall = false;
    return result;
}

bool LoaderSandbox::RunLoopUntil(std::size_t results) {
    const ULONGLONG limit = GetTickCount64() + 60000;
    DispatchWaiting();
    while (handler.results.size() < results && GetTickCount64() < limit) {
        MsgWaitForMultipleObjects(0, nullptr, FALSE, 100, QS_ALLINPUT);
        DispatchWaiting();
    }
    return handler.results.size() == results;
}

void LoaderSandbox::DispatchWaiting() {
    while (!later.empty()) {
        const auto step = std::move(later.front());
        later.erase(later.begin());
        step();
    }
    MSG message{};
    while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE) != 0) {
        DispatchMessageW(&message);
    }
}

std::string RegistryBytes(const std::wstring& text) {
    return {reinterpret_cast<const char*>(text.c_str()), (text.size() + 1) * sizeof(wchar_t)};
}

} // namespace receiver

extern "C" __declspec(dllexport) HRESULT STDMETHODCALLTYPE
    ClientCalled(HMODULE library, bool joinRunningVersion, int runtimeType, PCWSTR userDataFolder, IUnknown* options,
                 IUnknown* handler) {
    const receiver::AllocationPause pause;
    return receiver::LoaderSandboxHooks::Called(
        library, {{},
                  joinRunningVersion,
                  runtimeType,
                  userDataFolder != nullptr ? std::optional<std::wstring>(userDataFolder) : std::nullopt,
                  options,
                  receiver::ComPtr(static_cast<receiver::CompletedHandler*>(handler))});
}
