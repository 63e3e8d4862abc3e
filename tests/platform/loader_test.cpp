// What loader_matrix_test.cpp does not show of the loader: how objects are counted, what the handlers see while the
// loop runs, and failures of the system.
#include "platform/com_ptr.h"
#include "tests/platform/loader_sandbox.h"
#include "tests/support/allocation_fault.h"
#include "tests/support/function_patch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <windows.h>

#include <WebView2.h>

#include <filesystem>
#include <string>
#include <vector>

namespace receiver {
namespace {

using testing::IsEmpty;
using testing::SizeIs;

// Options that count the references to them.
class CountedOptions final : public IUnknown {
public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void** object) noexcept override {
        *object = nullptr;
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() noexcept override { return ++references; }
    ULONG STDMETHODCALLTYPE Release() noexcept override { return --references; }

    ULONG references = 1;
};

std::filesystem::path BesideThisProgram(const wchar_t* name) {
    wchar_t path[MAX_PATH] = L"";
    GetModuleFileNameW(GetModuleHandleW(nullptr), path, MAX_PATH);
    return std::filesystem::path(path).parent_path() / name;
}

class LoaderTest : public testing::Test {
protected:
    // A version folder that the registry announces.
    std::wstring Install() {
        std::wstring versionFolder = sandbox.Root() + L"\\rt\\150.0.1.2";
        sandbox.Install(versionFolder);
        sandbox.SetRegistryValue(HKEY_LOCAL_MACHINE, ChannelKeys[0], L"EBWebView", REG_SZ,
                                 RegistryBytes(versionFolder));
        return versionFolder;
    }

    LoaderSandbox sandbox;
};

TEST_F(LoaderTest, KeepsWhatASecondTryNeedsUntilTheAnswer) {
    Install();
    CountedOptions options;
    sandbox.answer = [&](const ClientCall& call) {
        sandbox.later.emplace_back([handler = call.handler] { (void)handler->Invoke(E_FAIL, nullptr); });
        return S_OK;
    };
    std::wstring dataFolder = L"C:\\data";
    EXPECT_EQ(sandbox.Request(nullptr, dataFolder.c_str(), &options), S_OK);
    EXPECT_GT(options.references, 1U);
    EXPECT_GT(sandbox.handler.references, 1U);
    dataFolder.assign(dataFolder.size(), L'x'); // The caller's text is gone.

    EXPECT_TRUE(sandbox.RunLoopUntil(1));
    ASSERT_THAT(sandbox.calls, SizeIs(2));
    EXPECT_EQ(sandbox.calls[1].userDataFolder, L"C:\\data");
    EXPECT_EQ(sandbox.calls[1].options, &options);
    sandbox.calls.clear();
    EXPECT_EQ(options.references, 1U);
    EXPECT_EQ(sandbox.handler.references, 1U);
}

TEST_F(LoaderTest, TriesOnlyOnceMoreWhenTheHandlerAndTheCallFail) {
    Install();
    sandbox.answer = [](const ClientCall& call) {
        (void)call.handler->Invoke(E_ABORT, nullptr);
        return E_FAIL;
    };
    EXPECT_EQ(sandbox.Request(), E_FAIL);
    EXPECT_THAT(sandbox.calls, SizeIs(2));
    ASSERT_THAT(sandbox.handler.results, SizeIs(2)); // of the second call, by both of its ways
    EXPECT_EQ(sandbox.handler.results[0].code, E_ABORT);
    EXPECT_EQ(sandbox.handler.results[1].code, E_FAIL);
}

TEST_F(LoaderTest, HandsTheHandlersAnswerToTheRuntime) {
    Install();
    sandbox.handler.answer = E_UNEXPECTED;
    HRESULT answer = S_OK;
    sandbox.answer = [&](const ClientCall& call) {
        answer = call.handler->Invoke(S_OK, nullptr);
        return S_OK;
    };
    EXPECT_EQ(sandbox.Request(), S_OK);
    EXPECT_EQ(answer, E_UNEXPECTED);
}

TEST_F(LoaderTest, TheRuntimesHandlerHasItsTwoInterfacesAndNoOther) {
    Install();
    EXPECT_EQ(sandbox.Request(), S_OK);
    ASSERT_THAT(sandbox.calls, SizeIs(1));
    const auto& handler = sandbox.calls[0].handler;
    ComPtr<IUnknown> found;
    EXPECT_EQ(handler.As(IID_IUnknown, found), S_OK);
    EXPECT_EQ(found.Get(), handler.Get());
    EXPECT_EQ(handler.As(IID_ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler, found), S_OK);
    EXPECT_EQ(found.Get(), handler.Get());
    void* other = &sandbox;
    EXPECT_EQ(handler->QueryInterface(IID_ICoreWebView2NavigationCompletedEventHandler, &other), E_NOINTERFACE);
    EXPECT_EQ(other, nullptr);
    EXPECT_EQ(handler->QueryInterface(IID_IUnknown, nullptr), E_POINTER);
}

TEST_F(LoaderTest, KeepsTheRuntimeLoadedWhateverItReturned) {
    const auto runtime = Install();
    sandbox.answer = [](const ClientCall&) { return E_ACCESSDENIED; };
    EXPECT_EQ(sandbox.Request(), E_ACCESSDENIED);
    EXPECT_TRUE(LoaderSandbox::IsLoaded(runtime));
}

TEST_F(LoaderTest, FindsWhatTheLibraryNeedsInItsOwnFolderAndNotInTheProgramsOrTheCurrentOne) {
    const std::wstring versionFolder = sandbox.Root() + L"\\rt\\150.0.1.2";
    sandbox.Install(versionFolder, BesideThisProgram(L"dependent_client.dll"));
    sandbox.Announce(HKEY_LOCAL_MACHINE, ChannelKeys[0], versionFolder);
    const std::filesystem::path planted = BesideThisProgram(L"dependency.dll");
    ASSERT_TRUE(exists(planted));
    const std::filesystem::path oldFolder = std::filesystem::current_path();
    current_path(planted.parent_path());
    EXPECT_EQ(sandbox.Request(), HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND));
    current_path(oldFolder);
    EXPECT_THAT(sandbox.calls, IsEmpty());

    const std::filesystem::path library = LoaderSandbox::LibraryIn(versionFolder);
    copy_file(planted, library.parent_path() / L"dependency.dll");
    EXPECT_EQ(sandbox.Request(), S_OK);
    EXPECT_THAT(sandbox.calls, SizeIs(1));
}

TEST_F(LoaderTest, TakesAFolderOnAServerAsItIs) {
    std::vector<std::wstring> opened;
    const ImportPatch files("kernel32.dll", "CreateFileW", &CreateFileW,
                            [&](auto* original, LPCWSTR path, auto... arguments) {
                                opened.emplace_back(path);
                                return original(path, arguments...);
                            });
    EXPECT_EQ(sandbox.Request(L"\\\\?\\C:\\missing"), S_OK);
    EXPECT_EQ(opened.back(), L"\\\\?\\C:\\missing\\EBWebView\\x64\\EmbeddedBrowserWebView.dll");
    const ImportPatch noServer("kernel32.dll", "CreateFileW", &CreateFileW, [&](auto*, LPCWSTR path, auto...) {
        opened.emplace_back(path);
        SetLastError(ERROR_BAD_NETPATH);
        return INVALID_HANDLE_VALUE;
    });
    EXPECT_EQ(sandbox.Request(L"\\\\server\\share\\"), S_OK);
    EXPECT_EQ(opened.back(), L"\\\\server\\share\\EBWebView\\x64\\EmbeddedBrowserWebView.dll");
    EXPECT_TRUE(sandbox.RunLoopUntil(2));
}

TEST_F(LoaderTest, OpensTheLibraryForReadingAndExecutingAndSharesIt) {
    Install();
    DWORD access = 0;
    DWORD sharing = 0;
    const ImportPatch files("kernel32.dll", "CreateFileW", &CreateFileW,
                            [&](auto* original, LPCWSTR path, DWORD asked, DWORD shared, auto... arguments) {
                                access = asked;
                                sharing = shared;
                                return original(path, asked, shared, arguments...);
                            });
    EXPECT_EQ(sandbox.Request(), S_OK);
    EXPECT_EQ(access, static_cast<DWORD>(GENERIC_READ | GENERIC_EXECUTE));
    EXPECT_EQ(sharing, static_cast<DWORD>(FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE));
}

TEST_F(LoaderTest, ReportsAMissingRuntimeFromTheMessageLoopAndNotBefore) {
    EXPECT_EQ(sandbox.Request(), S_OK);
    EXPECT_THAT(sandbox.handler.results, IsEmpty());
    EXPECT_EQ(sandbox.handler.references, 2U);
    EXPECT_TRUE(sandbox.RunLoopUntil(1));
    EXPECT_EQ(sandbox.handler.results[0].code, FileNotFound);
    EXPECT_EQ(sandbox.handler.references, 1U);
}

TEST_F(LoaderTest, ReportsAMissingRuntimeOnceForEveryRequest) {
    EXPECT_EQ(sandbox.Request(), S_OK);
    EXPECT_EQ(sandbox.Request(), S_OK);
    EXPECT_TRUE(sandbox.RunLoopUntil(2));
    EXPECT_EQ(sandbox.handler.references, 1U);
    // A third request's answer shows that no other one came twice in the meantime.
    EXPECT_EQ(sandbox.Request(), S_OK);
    EXPECT_TRUE(sandbox.RunLoopUntil(3));
}

TEST_F(LoaderTest, FailsAtOnceWithoutATimer) {
    const ImportPatch timers("user32.dll", "SetTimer", &SetTimer, [](auto*, HWND, UINT_PTR, UINT, TIMERPROC) {
        SetLastError(ERROR_NO_SYSTEM_RESOURCES);
        return UINT_PTR{0};
    });
    EXPECT_EQ(sandbox.Request(), HRESULT_FROM_WIN32(ERROR_NO_SYSTEM_RESOURCES));
    EXPECT_EQ(sandbox.handler.references, 1U);
    sandbox.DispatchWaiting();
    EXPECT_THAT(sandbox.handler.results, IsEmpty());
}

// A first try without memory is followed by a second one, which may succeed.
TEST_F(LoaderTest, MemoryThatCannotBeHadBecomesAResult) {
    std::size_t missed = 0; // answers from the loop
    unsigned allocation = 0;
    for (bool happened = true; happened; ++allocation) {
        const AllocationFault fault(allocation);
        const HRESULT result = sandbox.Request();
        happened = fault.Happened();
        EXPECT_TRUE(result == S_OK || (happened && result == E_OUTOFMEMORY)) << allocation;
        missed += SUCCEEDED(result) ? 1 : 0;
    }
    EXPECT_GT(allocation, 1U);
    EXPECT_TRUE(sandbox.RunLoopUntil(missed));
    EXPECT_EQ(sandbox.handler.references, 1U);
}

// The answer to the first try arrives, and there is no memory for the second one.
TEST_F(LoaderTest, ASecondTryWithoutMemoryReachesTheHandler) {
    Install();
    for (unsigned allocation = 0;; ++allocation) {
        sandbox.calls.clear();
        sandbox.handler.results.clear();
        EXPECT_EQ(sandbox.Request(), S_OK);
        ASSERT_THAT(sandbox.calls, SizeIs(1));
        const auto handler = sandbox.calls[0].handler;
        const AllocationFault fault(allocation);
        const HRESULT answer = handler->Invoke(E_FAIL, nullptr);
        const AllocationPause pause;
        EXPECT_EQ(answer, S_OK);
        if (!fault.Happened()) {
            EXPECT_GT(allocation, 0U);
            EXPECT_THAT(sandbox.calls, SizeIs(2));
            break;
        }
        ASSERT_THAT(sandbox.handler.results, SizeIs(1)) << allocation;
        EXPECT_EQ(sandbox.handler.results[0].code, E_OUTOFMEMORY);
    }
}

} // namespace
} // namespace receiver
