// The loader on a registry of the test's own (the predefined keys are redirected) and with a client library that
// records its call.
#include "platform/com_ptr.h"
#include "platform/handles.h"
#include "tests/platform/test_client.h"
#include "tests/support/function_patch.h"
#include "tests/support/test_files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <windows.h>

#include <WebView2.h>

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

namespace receiver {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr wchar_t ClientStateKey[] = L"Software\\Microsoft\\EdgeUpdate\\ClientState\\";
constexpr wchar_t Stable[] = L"{F3017226-FE2A-4295-8BDF-00C3A9A7E4C5}";
constexpr wchar_t Beta[] = L"{2CD8A007-E189-409D-A2C8-9AF4EF3C72AA}";
constexpr wchar_t Dev[] = L"{0D50BFEC-CD6A-4F9A-964C-C7416E3ACB10}";
constexpr wchar_t Canary[] = L"{65C35B14-6C1D-4122-AC46-7148CC9D6497}";
constexpr HRESULT FileNotFound = static_cast<HRESULT>(0x80070002);

class Handler final : public ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler {
public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void** object) noexcept override {
        *object = nullptr;
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() noexcept override { return ++references; }
    ULONG STDMETHODCALLTYPE Release() noexcept override { return --references; }
    HRESULT STDMETHODCALLTYPE Invoke(HRESULT result, ICoreWebView2Environment* environment) override {
        EXPECT_EQ(environment, nullptr);
        results.push_back(result);
        return E_FAIL; // It has no taker.
    }

    ULONG references = 1;
    std::vector<HRESULT> results;
};

std::filesystem::path OwnFolder() {
    wchar_t path[MAX_PATH] = L"";
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    return std::filesystem::path(path).parent_path();
}

std::filesystem::path LibraryIn(const std::filesystem::path& versionFolder) {
    return versionFolder / L"EBWebView" / L"x64" / L"EmbeddedBrowserWebView.dll";
}

class LoaderTest : public testing::Test {
protected:
    LoaderTest() {
        RegCreateKeyExW(HKEY_CURRENT_USER, testKey.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_ALL_ACCESS,
                        nullptr, root.Put(), nullptr);
        RegCreateKeyExW(root.Get(), L"machine", 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_ALL_ACCESS, nullptr,
                        machine.Put(), nullptr);
        RegCreateKeyExW(root.Get(), L"user", 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_ALL_ACCESS, nullptr, user.Put(),
                        nullptr);
        RegOverridePredefKey(HKEY_LOCAL_MACHINE, machine.Get());
        RegOverridePredefKey(HKEY_CURRENT_USER, user.Get());
    }
    ~LoaderTest() override {
        RegOverridePredefKey(HKEY_LOCAL_MACHINE, nullptr);
        RegOverridePredefKey(HKEY_CURRENT_USER, nullptr);
        RegDeleteTreeW(HKEY_CURRENT_USER, testKey.c_str());
        for (const auto& library : installed) { // What is loaded cannot be removed.
            while (const HMODULE module = GetModuleHandleW(library.c_str())) {
                FreeLibrary(module);
            }
        }
    }

    // A version folder with a client library in it.
    std::filesystem::path Install(const std::wstring& name) {
        const auto path = folder.Path() / name;
        std::filesystem::create_directories(LibraryIn(path).parent_path());
        std::filesystem::copy_file(OwnFolder() / L"test_client.dll", LibraryIn(path));
        installed.push_back(LibraryIn(path));
        return path;
    }
    // Names a version folder in the registry, as an installation does.
    static void Announce(HKEY place, const wchar_t* channel, const std::wstring& value, DWORD type = REG_SZ) {
        RegistryKey key;
        ASSERT_EQ(RegCreateKeyExW(place, (std::wstring(ClientStateKey) + channel).c_str(), 0, nullptr,
                                  REG_OPTION_NON_VOLATILE, KEY_WRITE | KEY_WOW64_32KEY, nullptr, key.Put(), nullptr),
                  ERROR_SUCCESS);
        ASSERT_EQ(RegSetValueExW(key.Get(), L"EBWebView", 0, type, reinterpret_cast<const BYTE*>(value.c_str()),
                                 static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t))),
                  ERROR_SUCCESS);
    }
    HRESULT Request(PCWSTR browserFolder = nullptr, PCWSTR dataFolder = L"C:\\data") {
        return CreateCoreWebView2EnvironmentWithOptions(browserFolder, dataFolder, nullptr, &handler);
    }
    // The record of the library in a version folder; null when it is not loaded.
    static ClientCall* RecordOf(const std::filesystem::path& versionFolder) {
        const HMODULE library = GetModuleHandleW(LibraryIn(versionFolder).c_str());
        const auto record = library != nullptr ? GetProcAddress(library, "ClientCallRecord") : nullptr;
        return record != nullptr ? reinterpret_cast<GetClientCall>(reinterpret_cast<void*>(record))() : nullptr;
    }
    // What it was asked last; no call when it is not loaded.
    static ClientCall CallOf(const std::filesystem::path& versionFolder) {
        const ClientCall* const record = RecordOf(versionFolder);
        return record != nullptr ? *record : ClientCall{};
    }
    static bool WasAsked(const std::filesystem::path& versionFolder) { return CallOf(versionFolder).count > 0; }
    // Runs the message loop until so many results have arrived.
    void RunLoopUntil(const Handler& waiting, std::size_t results) {
        const ULONGLONG limit = GetTickCount64() + 60000;
        while (waiting.results.size() < results && GetTickCount64() < limit) {
            MsgWaitForMultipleObjects(0, nullptr, FALSE, 100, QS_ALLINPUT);
            DispatchWaiting();
        }
        ASSERT_EQ(waiting.results.size(), results);
    }
    static void DispatchWaiting() {
        MSG message{};
        while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE) != 0) {
            DispatchMessageW(&message);
        }
    }
    void ExpectNothingFound() {
        const std::size_t before = handler.results.size();
        EXPECT_EQ(Request(), S_OK);
        ASSERT_NO_FATAL_FAILURE(RunLoopUntil(handler, before + 1));
        EXPECT_EQ(handler.results.back(), FileNotFound);
    }

    const PrivateFolder folder;
    const VariableScope noFolder{L"WEBVIEW2_BROWSER_EXECUTABLE_FOLDER", nullptr};
    const VariableScope noDataFolder{L"WEBVIEW2_USER_DATA_FOLDER", nullptr};
    const std::wstring testKey = L"Software\\VistelLoaderTest" + std::to_wstring(GetCurrentProcessId());
    std::vector<std::filesystem::path> installed;
    RegistryKey root;
    RegistryKey machine;
    RegistryKey user;
    Handler handler;
};

TEST_F(LoaderTest, HandsTheRequestToTheInstalledRuntime) {
    const auto runtime = Install(L"150.0.1.2");
    Announce(HKEY_CURRENT_USER, Stable, runtime);
    EXPECT_EQ(Request(), S_OK);
    const ClientCall call = CallOf(runtime);
    EXPECT_EQ(call.count, 1);
    EXPECT_TRUE(call.joinRunningVersion);
    EXPECT_EQ(call.runtimeType, 0);
    EXPECT_STREQ(call.userDataFolder, L"C:\\data");
    EXPECT_EQ(call.options, nullptr);
    EXPECT_EQ(call.handler, &handler);
    EXPECT_THAT(handler.results, IsEmpty());
    EXPECT_EQ(handler.references, 1U);
}

TEST_F(LoaderTest, PassesOptionsAndAMissingDataFolderOn) {
    const auto runtime = Install(L"150.0.1.2");
    Announce(HKEY_CURRENT_USER, Stable, runtime);
    int options = 0;
    EXPECT_EQ(CreateCoreWebView2EnvironmentWithOptions(
                  nullptr, nullptr, reinterpret_cast<ICoreWebView2EnvironmentOptions*>(&options), &handler),
              S_OK);
    EXPECT_STREQ(CallOf(runtime).userDataFolder, L"(null)");
    EXPECT_EQ(CallOf(runtime).options, &options);
}

TEST_F(LoaderTest, KeepsTheRuntimeLoadedWhateverItReturned) {
    const auto runtime = Install(L"150.0.1.2");
    Announce(HKEY_CURRENT_USER, Stable, runtime);
    EXPECT_EQ(Request(), S_OK);
    ClientCall* const record = RecordOf(runtime);
    ASSERT_NE(record, nullptr);
    record->result = E_ACCESSDENIED;
    EXPECT_EQ(Request(), E_ACCESSDENIED);
    EXPECT_EQ(CallOf(runtime).count, 2);
}

TEST_F(LoaderTest, SearchesTheChannelsFromTheMostStableOn) {
    const std::vector<std::pair<const wchar_t*, std::wstring>> channels{
        {Canary, L"103.0.0.4"}, {Dev, L"102.0.0.3"}, {Beta, L"101.0.0.2"}, {Stable, L"100.0.0.1"}};
    for (const auto& [channel, version] : channels) {
        const auto runtime = Install(version);
        Announce(HKEY_CURRENT_USER, channel, runtime);
        EXPECT_EQ(Request(), S_OK);
        EXPECT_TRUE(WasAsked(runtime)) << version.c_str();
        EXPECT_EQ(CallOf(runtime).count, 1);
    }
    EXPECT_EQ(CallOf(folder.Path() / L"103.0.0.4").count, 1); // Not asked again once a better one was there.
}

TEST_F(LoaderTest, PrefersTheMachinesRuntimeOfAChannel) {
    const auto ofMachine = Install(L"100.0.0.1");
    const auto ofUser = Install(L"200.0.0.1");
    Announce(HKEY_CURRENT_USER, Stable, ofUser);
    Announce(HKEY_LOCAL_MACHINE, Stable, ofMachine);
    EXPECT_EQ(Request(), S_OK);
    EXPECT_TRUE(WasAsked(ofMachine));
    EXPECT_FALSE(WasAsked(ofUser));
}

TEST_F(LoaderTest, PrefersAUsersStableRuntimeToAMachinesBeta) {
    const auto ofMachine = Install(L"200.0.0.1");
    const auto ofUser = Install(L"100.0.0.1");
    Announce(HKEY_LOCAL_MACHINE, Beta, ofMachine);
    Announce(HKEY_CURRENT_USER, Stable, ofUser);
    EXPECT_EQ(Request(), S_OK);
    EXPECT_TRUE(WasAsked(ofUser));
    EXPECT_FALSE(WasAsked(ofMachine));
}

TEST_F(LoaderTest, LooksIntoTheMachines32BitView) {
    RegOverridePredefKey(HKEY_LOCAL_MACHINE, nullptr); // The real one: only there the views differ.
    RegistryKey existing;
    const std::wstring path = std::wstring(ClientStateKey) + Stable;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_READ | KEY_WOW64_32KEY, existing.Put()) ==
        ERROR_SUCCESS) {
        GTEST_SKIP() << "a runtime is installed on this machine";
    }
    const auto runtime = Install(L"150.0.1.2");
    RegistryKey key;
    if (RegCreateKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE,
                        KEY_WRITE | KEY_WOW64_32KEY, nullptr, key.Put(), nullptr) == ERROR_ACCESS_DENIED) {
        GTEST_SKIP() << "this user may not write to the machine's registry";
    }
    key.Reset();
    Announce(HKEY_LOCAL_MACHINE, Stable, runtime);
    EXPECT_EQ(Request(), S_OK);
    EXPECT_TRUE(WasAsked(runtime));
    EXPECT_EQ(RegDeleteKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), KEY_WOW64_32KEY, 0), ERROR_SUCCESS);
}

TEST_F(LoaderTest, TakesVersionsFromTheLeastOn) {
    for (const wchar_t* version :
         {L"86.0.616.0", L"86.0.616.1", L"86.0.1000.0", L"86.1.0.0", L"87.0.0.0", L"1000.0.0.0"}) {
        const auto runtime = Install(version);
        Announce(HKEY_CURRENT_USER, Stable, runtime);
        EXPECT_EQ(Request(), S_OK);
        EXPECT_TRUE(WasAsked(runtime)) << runtime;
    }
    EXPECT_THAT(handler.results, IsEmpty());
}

TEST_F(LoaderTest, PassesOverVersionsThatAreTooOldOrNone) {
    for (const wchar_t* version :
         {L"86.0.615.9", L"85.9.999.9", L"9.0.0.0", L"150", L"150.0.1", L"150.0.1.2.3", L"150.0.1.x", L"150.0.1.2 ",
          L" 150.0.1.2", L"150..1.2", L"150.0.1.", L".0.1.2", L"-150.0.1.2", L"150.0.1.9999999999", L"stable"}) {
        // The name stands in the registry alone where no folder can have it.
        const std::wstring path = folder.Path().wstring() + L'\\' + version;
        std::error_code impossible;
        std::filesystem::create_directories(LibraryIn(path).parent_path(), impossible);
        std::filesystem::copy_file(OwnFolder() / L"test_client.dll", LibraryIn(path), impossible);
        Announce(HKEY_CURRENT_USER, Stable, path);
        ExpectNothingFound();
        EXPECT_FALSE(WasAsked(path)) << path.c_str();
    }
}

TEST_F(LoaderTest, TakesAFolderWithATrailingBackslash) {
    const auto runtime = Install(L"150.0.1.2");
    Announce(HKEY_CURRENT_USER, Stable, runtime.wstring() + L"\\");
    EXPECT_EQ(Request(), S_OK);
    EXPECT_TRUE(WasAsked(runtime));
}

TEST_F(LoaderTest, GoesOnSearchingPastWhatIsNotThere) {
    const auto runtime = Install(L"150.0.1.2");
    Announce(HKEY_LOCAL_MACHINE, Stable, folder.Path() / L"151.0.0.0"); // without a library
    Announce(HKEY_CURRENT_USER, Stable, L"");
    Announce(HKEY_LOCAL_MACHINE, Beta, runtime, REG_BINARY);
    Announce(HKEY_CURRENT_USER, Beta, L"85.0.0.0");
    Announce(HKEY_LOCAL_MACHINE, Dev, L"\\\\");
    Announce(HKEY_CURRENT_USER, Canary, runtime);
    EXPECT_EQ(Request(), S_OK);
    EXPECT_TRUE(WasAsked(runtime));
}

TEST_F(LoaderTest, TakesAPathLongerThan130Characters) {
    const auto runtime = Install(std::wstring(100, L'x') + L"\\150.0.1.2");
    ASSERT_GT(runtime.wstring().size(), 130U);
    Announce(HKEY_CURRENT_USER, Stable, runtime);
    EXPECT_EQ(Request(), S_OK);
    EXPECT_TRUE(WasAsked(runtime));
}

TEST_F(LoaderTest, TheEnvironmentNamesAnotherRuntime) {
    const auto evergreen = Install(L"150.0.1.2");
    Announce(HKEY_CURRENT_USER, Stable, evergreen);
    const auto fixed = Install(L"any name");
    const VariableScope variable(L"WEBVIEW2_BROWSER_EXECUTABLE_FOLDER", fixed.c_str());
    EXPECT_EQ(Request(), S_OK);
    EXPECT_TRUE(WasAsked(fixed));
    EXPECT_EQ(CallOf(fixed).runtimeType, 1);
    EXPECT_FALSE(WasAsked(evergreen));
}

TEST_F(LoaderTest, TheCallerNamesAnotherRuntimeAndTheEnvironmentOverridesIt) {
    const auto named = Install(L"named");
    EXPECT_EQ(Request(named.c_str()), S_OK);
    EXPECT_EQ(CallOf(named).count, 1);
    EXPECT_EQ(CallOf(named).runtimeType, 1);

    const auto fixed = Install(L"fixed");
    const VariableScope variable(L"WEBVIEW2_BROWSER_EXECUTABLE_FOLDER", fixed.c_str());
    EXPECT_EQ(Request(named.c_str()), S_OK);
    EXPECT_TRUE(WasAsked(fixed));
    EXPECT_EQ(CallOf(named).count, 1);
}

TEST_F(LoaderTest, AnEmptyFolderMeansTheInstalledRuntime) {
    const auto runtime = Install(L"150.0.1.2");
    Announce(HKEY_CURRENT_USER, Stable, runtime);
    EXPECT_EQ(Request(L""), S_OK);
    EXPECT_EQ(CallOf(runtime).runtimeType, 0);
}

TEST_F(LoaderTest, TheEnvironmentNamesAnotherDataFolder) {
    const auto runtime = Install(L"150.0.1.2");
    Announce(HKEY_CURRENT_USER, Stable, runtime);
    const VariableScope variable(L"WEBVIEW2_USER_DATA_FOLDER", L"C:\\elsewhere");
    EXPECT_EQ(Request(), S_OK);
    EXPECT_STREQ(CallOf(runtime).userDataFolder, L"C:\\elsewhere");
}

TEST_F(LoaderTest, TellsOfAMissingRuntimeFromTheMessageLoopAndNotBefore) {
    EXPECT_EQ(Request(), S_OK);
    EXPECT_THAT(handler.results, IsEmpty());
    EXPECT_EQ(handler.references, 2U);
    RunLoopUntil(handler, 1);
    EXPECT_THAT(handler.results, ElementsAre(FileNotFound));
    EXPECT_EQ(handler.references, 1U);
}

TEST_F(LoaderTest, TellsEveryWaitingRequestOnce) {
    Handler second;
    EXPECT_EQ(Request(), S_OK);
    EXPECT_EQ(CreateCoreWebView2EnvironmentWithOptions(nullptr, nullptr, nullptr, &second), S_OK);
    RunLoopUntil(handler, 1);
    RunLoopUntil(second, 1);
    EXPECT_THAT(second.results, ElementsAre(FileNotFound));
    EXPECT_EQ(handler.references, 1U);
    EXPECT_EQ(second.references, 1U);
    // A third request's answer shows that none came twice meanwhile.
    Handler third;
    EXPECT_EQ(CreateCoreWebView2EnvironmentWithOptions(nullptr, nullptr, nullptr, &third), S_OK);
    RunLoopUntil(third, 1);
    EXPECT_EQ(handler.results.size(), 1U);
    EXPECT_EQ(second.results.size(), 1U);
}

TEST_F(LoaderTest, FailsAtOnceWithoutATimer) {
    const ImportPatch timers("user32.dll", "SetTimer", &SetTimer, [](auto*, HWND, UINT_PTR, UINT, TIMERPROC) {
        SetLastError(ERROR_NO_SYSTEM_RESOURCES);
        return UINT_PTR{0};
    });
    EXPECT_EQ(Request(), HRESULT_FROM_WIN32(ERROR_NO_SYSTEM_RESOURCES));
    EXPECT_EQ(handler.references, 1U);
    DispatchWaiting();
    EXPECT_THAT(handler.results, IsEmpty());
}

TEST_F(LoaderTest, NeedsAHandler) {
    EXPECT_EQ(CreateCoreWebView2EnvironmentWithOptions(nullptr, L"C:\\data", nullptr, nullptr), E_POINTER);
}

TEST_F(LoaderTest, FailsWithALibraryThatCannotBeLoaded) {
    const auto runtime = Install(L"150.0.1.2");
    WriteBytes(LibraryIn(runtime), "no library");
    Announce(HKEY_CURRENT_USER, Stable, runtime);
    EXPECT_EQ(Request(), HRESULT_FROM_WIN32(ERROR_BAD_EXE_FORMAT));
    EXPECT_THAT(handler.results, IsEmpty());
    EXPECT_EQ(handler.references, 1U);
}

TEST_F(LoaderTest, FailsWithAFixedRuntimeThatIsNotThere) {
    const HRESULT result = Request((folder.Path() / L"missing").c_str());
    EXPECT_TRUE(result == HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND) || result == HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND))
        << std::hex << result;
}

TEST_F(LoaderTest, FailsWithALibraryWithoutTheEntry) {
    const auto runtime = folder.Path() / L"150.0.1.2";
    std::filesystem::create_directories(LibraryIn(runtime).parent_path());
    wchar_t system[MAX_PATH] = L"";
    GetSystemDirectoryW(system, MAX_PATH);
    std::filesystem::copy_file(std::filesystem::path(system) / L"version.dll", LibraryIn(runtime));
    installed.push_back(LibraryIn(runtime));
    Announce(HKEY_CURRENT_USER, Stable, runtime);
    EXPECT_EQ(Request(), HRESULT_FROM_WIN32(ERROR_PROC_NOT_FOUND));
    EXPECT_EQ(handler.references, 1U);
}

TEST_F(LoaderTest, MemoryThatCannotBeHadBecomesAResult) {
    for (unsigned allocation = 0;; ++allocation) {
        const AllocationFault fault(allocation);
        const HRESULT result = Request();
        if (!fault.Happened()) {
            EXPECT_GT(allocation, 0U);
            EXPECT_EQ(result, S_OK);
            break;
        }
        EXPECT_EQ(result, E_OUTOFMEMORY) << allocation;
    }
    RunLoopUntil(handler, 1);
    EXPECT_EQ(handler.references, 1U);
}

} // namespace
} // namespace receiver
