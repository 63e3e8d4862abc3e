// The report on the system, compared with the system's own version and with real registry keys.
#include "tests/support/shell_test.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <windows.h>

#include <string>
#include <string_view>
#include <vector>

namespace receiver {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr wchar_t ClassKey[] = L"SOFTWARE\\Classes\\CLSID\\{A42D576C-2AD1-4D63-94B0-31E96BDCA54F}";
constexpr wchar_t ServerKey[] = L"SOFTWARE\\Classes\\CLSID\\{A42D576C-2AD1-4D63-94B0-31E96BDCA54F}\\InprocServer32";

using RtlGetVersionFunction = LONG WINAPI(RTL_OSVERSIONINFOW*);

// Only one process at a time reads and changes the camera's registration.
class RegistryLock {
public:
    RegistryLock() : mutex(CreateMutexW(nullptr, FALSE, L"VistelTestRegistryLock")) {
        WaitForSingleObject(mutex.Get(), INFINITE);
    }
    RegistryLock(const RegistryLock&) = delete;
    RegistryLock& operator=(const RegistryLock&) = delete;
    ~RegistryLock() { ReleaseMutex(mutex.Get()); }

private:
    UniqueHandle mutex;
};

// The camera's registration in one view of the registry; volatile, so that it does not outlive the system's session.
class Registration {
public:
    explicit Registration(REGSAM registryView, const wchar_t* path = ServerKey) : view(registryView) {
        RegistryKey key;
        EXPECT_EQ(RegCreateKeyExW(HKEY_LOCAL_MACHINE, path, 0, nullptr, REG_OPTION_VOLATILE, KEY_READ | view, nullptr,
                                  key.Put(), nullptr),
                  ERROR_SUCCESS);
    }
    Registration(const Registration&) = delete;
    Registration& operator=(const Registration&) = delete;
    ~Registration() {
        RegDeleteKeyExW(HKEY_LOCAL_MACHINE, ServerKey, view, 0);
        RegDeleteKeyExW(HKEY_LOCAL_MACHINE, ClassKey, view, 0);
    }

private:
    REGSAM view;
};

bool KeyExists(REGSAM view) {
    RegistryKey key;
    return RegOpenKeyExW(HKEY_LOCAL_MACHINE, ClassKey, 0, KEY_READ | view, key.Put()) == ERROR_SUCCESS;
}

LONG WINAPI FailingVersion(RTL_OSVERSIONINFOW* version) {
    version->dwMajorVersion = 10;
    version->dwBuildNumber = 22631;
    return static_cast<LONG>(0xC0000001);
}

LONG WINAPI OldVersion(RTL_OSVERSIONINFOW* version) {
    EXPECT_EQ(version->dwOSVersionInfoSize, 276U);
    const std::string_view bytes(reinterpret_cast<const char*>(version), sizeof(*version));
    EXPECT_EQ(bytes.find_first_not_of('\0', sizeof(version->dwOSVersionInfoSize)), std::string_view::npos);
    version->dwMajorVersion = 10;
    version->dwMinorVersion = 3;
    version->dwBuildNumber = 21999;
    version->dwPlatformId = 2;
    return 0;
}

class DiagnosticsTest : public ShellTest {
protected:
    void SetUp() override {
        OpenBrowser();
        std::filesystem::remove(log);
        // These tests must not change a real registration.
        ASSERT_FALSE(KeyExists(KEY_WOW64_64KEY));
        ASSERT_FALSE(KeyExists(KEY_WOW64_32KEY));
    }
    // The report with these values.
    static std::wstring Report(const std::wstring& version, const std::wstring& build, bool supported,
                               bool registered) {
        const auto word = [](bool value) { return value ? L"true" : L"false"; };
        return L"PostWebMessageAsJson {\"type\":\"diagnostics\",\"diagnostics\":{\"windowsVersion\":\"" + version +
               L"\",\"buildNumber\":" + build + L",\"architecture\":\"x64\",\"osSupported\":" + word(supported) +
               L",\"webView2Ready\":true,\"virtualCameraRegistered\":" + word(registered) +
               L",\"appVersion\":\"0.1.3\"}}";
    }
    // The report with this system's version.
    static std::wstring Report(bool registered) {
        const auto getVersion = reinterpret_cast<RtlGetVersionFunction*>(
            reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "RtlGetVersion")));
        RTL_OSVERSIONINFOW version{};
        version.dwOSVersionInfoSize = sizeof(version);
        EXPECT_EQ(getVersion(&version), 0);
        const std::wstring build = std::to_wstring(version.dwBuildNumber);
        return Report(std::to_wstring(version.dwMajorVersion) + L'.' + std::to_wstring(version.dwMinorVersion) + L'.' +
                          build,
                      build, version.dwMajorVersion >= 10 && version.dwBuildNumber >= 22000, registered);
    }
    std::vector<std::wstring> PostedReport() {
        EXPECT_EQ(app->PostDiagnostics(), S_OK);
        return browser.TakeCalls();
    }
    // The report when GetProcAddress returns `getVersion` as the version's function.
    std::vector<std::wstring> PostedReportWith(RtlGetVersionFunction* getVersion) {
        unsigned lookups = 0;
        const ImportPatch addresses("kernel32.dll", "GetProcAddress", &GetProcAddress,
                                    [&](auto*, HMODULE library, LPCSTR name) {
                                        EXPECT_EQ(library, GetModuleHandleW(L"ntdll.dll"));
                                        EXPECT_STREQ(name, "RtlGetVersion");
                                        ++lookups;
                                        return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(getVersion));
                                    });
        auto calls = PostedReport();
        EXPECT_EQ(lookups, 1U);
        return calls;
    }

    const RegistryLock lock;
};

TEST_F(DiagnosticsTest, ReportsTheVersionOfTheSystem) {
    EXPECT_THAT(PostedReport(), ElementsAre(Report(false)));
    EXPECT_FALSE(std::filesystem::exists(log));
}

TEST_F(DiagnosticsTest, ReportsWhetherTheCameraIsRegisteredNow) {
    EXPECT_THAT(PostedReport(), ElementsAre(Report(false)));
    {
        const Registration camera(KEY_WOW64_64KEY);
        EXPECT_THAT(PostedReport(), ElementsAre(Report(true)));
    }
    EXPECT_THAT(PostedReport(), ElementsAre(Report(false)));
}

TEST_F(DiagnosticsTest, ACameraOnlyInThe32BitViewIsNotRegistered) {
    const Registration camera(KEY_WOW64_32KEY);
    ASSERT_FALSE(KeyExists(KEY_WOW64_64KEY));
    EXPECT_THAT(PostedReport(), ElementsAre(Report(false)));
    const Registration inBoth(KEY_WOW64_64KEY);
    EXPECT_THAT(PostedReport(), ElementsAre(Report(true)));
}

TEST_F(DiagnosticsTest, ACameraWithoutItsServerIsNotRegistered) {
    const Registration camera(KEY_WOW64_64KEY, ClassKey);
    EXPECT_THAT(PostedReport(), ElementsAre(Report(false)));
}

TEST_F(DiagnosticsTest, TheRegistrationIsOnlyOpenedAndClosedAgain) {
    const Registration camera(KEY_WOW64_64KEY);
    HKEY opened = nullptr;
    const ImportPatch opens("advapi32.dll", "RegOpenKeyExW", &RegOpenKeyExW,
                            [&](auto* original, HKEY root, LPCWSTR path, DWORD options, REGSAM access, PHKEY key) {
                                EXPECT_EQ(opened, nullptr);
                                EXPECT_EQ(root, HKEY_LOCAL_MACHINE);
                                EXPECT_STREQ(path, ServerKey);
                                EXPECT_EQ(options, 0U);
                                EXPECT_EQ(access, 0x20119U);
                                const LSTATUS result = original(root, path, options, access, key);
                                opened = *key;
                                return result;
                            });
    std::vector<HKEY> closed;
    const ImportPatch closes("advapi32.dll", "RegCloseKey", &RegCloseKey, [&](auto* original, HKEY key) {
        closed.push_back(key);
        return original(key);
    });
    EXPECT_THAT(PostedReport(), ElementsAre(Report(true)));
    EXPECT_NE(opened, nullptr);
    EXPECT_THAT(closed, ElementsAre(opened));
}

TEST_F(DiagnosticsTest, AKeyThatCannotBeOpenedMeansNotRegistered) {
    const ImportPatch opens("advapi32.dll", "RegOpenKeyExW", &RegOpenKeyExW,
                            [](auto*, HKEY, LPCWSTR, DWORD, REGSAM, PHKEY) -> LSTATUS { return ERROR_ACCESS_DENIED; });
    EXPECT_THAT(PostedReport(), ElementsAre(Report(false)));
}

TEST_F(DiagnosticsTest, AVersionThatCannotBeReadIsReportedAsZeros) {
    const std::wstring zeros = Report(L"0.0.0", L"0", false, false);
    EXPECT_THAT(PostedReportWith(nullptr), ElementsAre(zeros));
    EXPECT_THAT(PostedReportWith(&FailingVersion), ElementsAre(zeros));
    const ImportPatch modules(
        "kernel32.dll", "GetModuleHandleW", &GetModuleHandleW, [](auto* original, LPCWSTR name) -> HMODULE {
            return name != nullptr && std::wstring_view(name) == L"ntdll.dll" ? nullptr : original(name);
        });
    EXPECT_THAT(PostedReport(), ElementsAre(zeros));
}

TEST_F(DiagnosticsTest, AnOldBuildIsReportedAsUnsupported) {
    EXPECT_THAT(PostedReportWith(&OldVersion), ElementsAre(Report(L"10.3.21999", L"21999", false, false)));
}

TEST_F(DiagnosticsTest, NothingIsPostedWithoutABrowser) {
    ReceiverApp withoutBrowser;
    EXPECT_EQ(withoutBrowser.PostDiagnostics(), E_POINTER);
    EXPECT_THAT(browser.TakeCalls(), IsEmpty());
}

TEST_F(DiagnosticsTest, AFailedPostReturnsItsCode) {
    browser.Fail(L"PostWebMessageAsJson", E_ABORT);
    EXPECT_EQ(app->PostDiagnostics(), E_ABORT);
    EXPECT_THAT(browser.TakeCalls(), ElementsAre(Report(false)));
}

TEST_F(DiagnosticsTest, EveryReadyIsAnsweredWithANewReport) {
    EXPECT_EQ(browser.RaiseWebMessage(L"ready"), S_OK);
    EXPECT_EQ(browser.TakeCalls().back(), Report(false));
    const Registration camera(KEY_WOW64_64KEY);
    EXPECT_EQ(browser.RaiseWebMessage(L"ready"), S_OK);
    EXPECT_EQ(browser.TakeCalls().back(), Report(true));
    EXPECT_EQ(LogLines().back(), "System diagnostics posted to script");
}

} // namespace
} // namespace receiver
