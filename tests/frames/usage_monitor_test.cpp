// The usage monitor, with real events under a private name and a clock that the test sets.
#include "tests/support/allocation_fault.h"
#include "tests/support/shell_test.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <windows.h>

#include <sddl.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace receiver {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

constexpr char Initialized[] = "Virtual camera usage monitor initialized";
constexpr char Started[] = "Virtual camera consumer started requesting frames";
constexpr char Stopped[] = "Virtual camera consumer stopped requesting frames";
constexpr wchar_t PostedOn[] = L"PostWebMessageAsJson {\"type\":\"virtual-camera-usage\",\"active\":true}";
constexpr wchar_t PostedOff[] = L"PostWebMessageAsJson {\"type\":\"virtual-camera-usage\",\"active\":false}";

struct TimerCall {
    HWND window;
    UINT_PTR timer;
    UINT periodMs;
    TIMERPROC callback;
};

// An account and its access rights to an object.
using Permission = std::pair<std::wstring, DWORD>;

std::wstring SidText(PSID sid) {
    LPWSTR text = nullptr;
    EXPECT_NE(ConvertSidToStringSidW(sid, &text), 0);
    LocalMemory owner;
    owner.Reset(text);
    return text;
}

// The entries of an event's access control list; all must be allowing ones.
std::vector<Permission> Permissions(HANDLE event) {
    DWORD size = 0;
    GetKernelObjectSecurity(event, DACL_SECURITY_INFORMATION, nullptr, 0, &size);
    std::vector<std::uint8_t> bytes(size);
    EXPECT_NE(GetKernelObjectSecurity(event, DACL_SECURITY_INFORMATION, bytes.data(), size, &size), 0);
    BOOL present = FALSE;
    BOOL defaulted = FALSE;
    PACL list = nullptr;
    std::vector<Permission> permissions;
    if (GetSecurityDescriptorDacl(bytes.data(), &present, &list, &defaulted) == 0 || !present || list == nullptr) {
        return permissions;
    }
    GENERIC_MAPPING mapping{STANDARD_RIGHTS_READ, STANDARD_RIGHTS_WRITE, STANDARD_RIGHTS_EXECUTE, EVENT_ALL_ACCESS};
    for (DWORD i = 0; i < list->AceCount; ++i) {
        void* entry = nullptr;
        EXPECT_NE(GetAce(list, i, &entry), 0);
        auto* const allowed = static_cast<ACCESS_ALLOWED_ACE*>(entry);
        EXPECT_EQ(allowed->Header.AceType, ACCESS_ALLOWED_ACE_TYPE);
        EXPECT_EQ(allowed->Header.AceFlags, 0);
        DWORD mask = allowed->Mask;
        MapGenericMask(&mask, &mapping);
        permissions.emplace_back(SidText(&allowed->SidStart), mask);
    }
    return permissions;
}

UniqueHandle OpenCameraEvent() {
    UniqueHandle event;
    event.Reset(OpenEventW(EVENT_MODIFY_STATE | SYNCHRONIZE | READ_CONTROL, FALSE, PrivateEventName::Name().c_str()));
    return event;
}

class UsageMonitorTest : public ShellTest {
protected:
    void MakePageReady() {
        EXPECT_EQ(browser.RaiseWebMessage(L"ready"), S_OK);
        Forget();
    }
    // Signals the event as the camera does for each frame.
    static void Signal() {
        const UniqueHandle event = OpenCameraEvent();
        EXPECT_NE(SetEvent(event.Get()), 0);
    }
    // Lets the window's timer fire at this time.
    void PollAt(ULONGLONG time) {
        const ImportPatch clock("kernel32.dll", "GetTickCount64", &GetTickCount64, [time](auto*) { return time; });
        EXPECT_EQ(SendMessageW(MainWindow(), WM_TIMER, 1, 0), 0);
    }
    // Starts the receiver; returns the monitor's log line and records the timers that are set.
    std::string MonitorLine() {
        std::string line;
        const ImportPatch setters("user32.dll", "SetTimer", &SetTimer,
                                  [this](auto* original, HWND window, UINT_PTR timer, UINT period, TIMERPROC callback) {
                                      timers.push_back({window, timer, period, callback});
                                      return original(window, timer, period, callback);
                                  });
        EXPECT_EQ(Run(L"",
                      [&] {
                          timerOwner = MainWindow();
                          line = LogLines().at(2);
                          Forget();
                          SendMessageW(MainWindow(), WM_TIMER, 1, 0);
                          EXPECT_THAT(browser.TakeCalls(), IsEmpty());
                          EXPECT_FALSE(std::filesystem::exists(log));
                      }),
                  0);
        return line;
    }

    std::vector<TimerCall> timers;
    HWND timerOwner = nullptr;
};

TEST_F(UsageMonitorTest, PollsOnceASecond) {
    EXPECT_EQ(MonitorLine(), Initialized);
    ASSERT_EQ(timers.size(), 1U);
    EXPECT_EQ(timers[0].window, timerOwner);
    EXPECT_EQ(timers[0].timer, 1U);
    EXPECT_EQ(timers[0].periodMs, 1000U);
    EXPECT_EQ(timers[0].callback, nullptr);
}

TEST_F(UsageMonitorTest, CreatesTheCamerasEvent) {
    unsigned made = 0;
    const ImportPatch eventCreation(
        "kernel32.dll", "CreateEventW", &CreateEventW,
        [&](auto* original, SECURITY_ATTRIBUTES* attributes, BOOL manualReset, BOOL signaled, LPCWSTR name) {
            if (name != nullptr) {
                ++made;
                EXPECT_STREQ(name, L"Global\\VistelVirtualCameraSample-v1");
                EXPECT_EQ(manualReset, FALSE);
                EXPECT_EQ(signaled, FALSE);
                EXPECT_EQ(attributes->nLength, 24U);
                EXPECT_NE(attributes->lpSecurityDescriptor, nullptr);
                EXPECT_EQ(attributes->bInheritHandle, FALSE);
            }
            return original(attributes, manualReset, signaled, name);
        });
    EXPECT_EQ(MonitorLine(), Initialized);
    EXPECT_EQ(made, 1U);
}

TEST_F(UsageMonitorTest, LocalServiceMayOnlySignalTheEvent) {
    InLoop([] {
        const UniqueHandle event = OpenCameraEvent();
        ASSERT_TRUE(event);
        EXPECT_THAT(Permissions(event.Get()),
                    ElementsAre(Permission(L"S-1-5-18", EVENT_ALL_ACCESS),
                                Permission(L"S-1-5-32-544", EVENT_ALL_ACCESS), Permission(L"S-1-5-4", EVENT_ALL_ACCESS),
                                Permission(L"S-1-5-19", 2)));
    });
}

TEST_F(UsageMonitorTest, TheSecurityDescriptorIsFreed) {
    std::vector<void*> made;
    const ImportPatch conversions(
        "advapi32.dll", "ConvertStringSecurityDescriptorToSecurityDescriptorW",
        &ConvertStringSecurityDescriptorToSecurityDescriptorW,
        [&](auto* original, LPCWSTR text, DWORD revision, PSECURITY_DESCRIPTOR* descriptor, PULONG size) {
            EXPECT_STREQ(text, L"D:(A;;GA;;;SY)(A;;GA;;;BA)(A;;GA;;;IU)(A;;0x0002;;;LS)");
            EXPECT_EQ(revision, 1U);
            const BOOL done = original(text, revision, descriptor, size);
            made.push_back(*descriptor);
            return done;
        });
    std::vector<void*> freed;
    const ImportPatch frees("kernel32.dll", "LocalFree", &LocalFree, [&](auto* original, HLOCAL memory) {
        freed.push_back(memory);
        return original(memory);
    });
    InLoop([&] {
        ASSERT_EQ(made.size(), 1U);
        EXPECT_THAT(freed, Contains(made[0]));
    });
}

TEST_F(UsageMonitorTest, WithoutItsSecurityDescriptorTheEventHasDefaultSecurity) {
    const ImportPatch conversions("advapi32.dll", "ConvertStringSecurityDescriptorToSecurityDescriptorW",
                                  &ConvertStringSecurityDescriptorToSecurityDescriptorW,
                                  [](auto*, LPCWSTR, DWORD, PSECURITY_DESCRIPTOR*, PULONG) {
                                      SetLastError(ERROR_INVALID_PARAMETER);
                                      return FALSE;
                                  });
    unsigned made = 0;
    const ImportPatch eventCreation(
        "kernel32.dll", "CreateEventW", &CreateEventW,
        [&](auto* original, SECURITY_ATTRIBUTES* attributes, BOOL manualReset, BOOL signaled, LPCWSTR name) {
            if (name != nullptr) {
                ++made;
                EXPECT_EQ(attributes, nullptr);
            }
            return original(attributes, manualReset, signaled, name);
        });
    EXPECT_EQ(MonitorLine(), Initialized);
    EXPECT_EQ(made, 1U);
    EXPECT_EQ(timers.size(), 1U);
}

TEST_F(UsageMonitorTest, AnEventThatCannotBeCreatedIsReportedAndNotPolled) {
    const ImportPatch eventCreation(
        "kernel32.dll", "CreateEventW", &CreateEventW,
        [](auto* original, SECURITY_ATTRIBUTES* attributes, BOOL manualReset, BOOL signaled, LPCWSTR name) -> HANDLE {
            if (name == nullptr) {
                return original(attributes, manualReset, signaled, name);
            }
            SetLastError(ERROR_NO_SYSTEM_RESOURCES);
            return nullptr;
        });
    EXPECT_EQ(MonitorLine(), std::string(Initialized) + " (HRESULT 0x800705AA)");
    EXPECT_THAT(timers, IsEmpty());
}

TEST_F(UsageMonitorTest, ANameUsedByAnotherKindOfObjectIsReported) {
    UniqueHandle mutex;
    mutex.Reset(CreateMutexW(nullptr, FALSE, PrivateEventName::Name().c_str()));
    ASSERT_TRUE(mutex);
    EXPECT_EQ(MonitorLine(), std::string(Initialized) + " (HRESULT 0x80070006)");
    EXPECT_THAT(timers, IsEmpty());
}

TEST_F(UsageMonitorTest, AnEventWithoutAccessRightsIsReported) {
    LocalMemory noAccess;
    ASSERT_NE(ConvertStringSecurityDescriptorToSecurityDescriptorW(L"D:P", SDDL_REVISION_1, noAccess.Put(), nullptr),
              0);
    SECURITY_ATTRIBUTES attributes{sizeof(attributes), noAccess.Get(), FALSE};
    UniqueHandle event;
    event.Reset(CreateEventW(&attributes, FALSE, FALSE, PrivateEventName::Name().c_str()));
    ASSERT_TRUE(event);
    EXPECT_EQ(MonitorLine(), std::string(Initialized) + " (HRESULT 0x80070005)");
    EXPECT_THAT(timers, IsEmpty());
}

TEST_F(UsageMonitorTest, AnEventCreatedByTheCameraIsOpened) {
    UniqueHandle event;
    event.Reset(CreateEventW(nullptr, FALSE, FALSE, PrivateEventName::Name().c_str()));
    ASSERT_TRUE(event);
    InLoop([&] {
        EXPECT_NE(SetEvent(event.Get()), 0);
        PollAt(1000);
        EXPECT_THAT(LogLines(), ElementsAre(Started));
    });
    EXPECT_EQ(WaitForSingleObject(event.Get(), 0), static_cast<DWORD>(WAIT_TIMEOUT)); // The poll reset the event.
}

TEST_F(UsageMonitorTest, NothingHappensWithoutACamera) {
    InLoop([this] {
        MakePageReady();
        for (ULONGLONG time = 1000; time < 20000; time += 1000) {
            PollAt(time);
        }
        EXPECT_THAT(browser.TakeCalls(), IsEmpty());
        EXPECT_FALSE(std::filesystem::exists(log));
    });
}

TEST_F(UsageMonitorTest, OneSignalStartsAndFourSecondsWithoutASignalStop) {
    InLoop([this] {
        MakePageReady();
        Signal();
        PollAt(50000);
        EXPECT_THAT(browser.TakeCalls(), ElementsAre(PostedOn));
        EXPECT_THAT(LogLines(), ElementsAre(Started));
        for (const ULONGLONG time : {51000U, 52000U, 53000U, 53999U}) {
            PollAt(time);
        }
        EXPECT_THAT(browser.TakeCalls(), IsEmpty());
        EXPECT_THAT(LogLines(), ElementsAre(Started));
        PollAt(54000);
        EXPECT_THAT(browser.TakeCalls(), ElementsAre(PostedOff));
        EXPECT_THAT(LogLines(), ElementsAre(Started, Stopped));
        PollAt(60000);
        EXPECT_THAT(browser.TakeCalls(), IsEmpty());
        Signal();
        PollAt(61000);
        EXPECT_THAT(browser.TakeCalls(), ElementsAre(PostedOn));
        EXPECT_THAT(LogLines(), ElementsAre(Started, Stopped, Started));
    });
}

// After 49.7 days a count of milliseconds needs more than 32 bits.
TEST_F(UsageMonitorTest, TimesBeyond32BitsAreHandled) {
    InLoop([this] {
        constexpr ULONGLONG Limit = ULONGLONG{1} << 32;
        for (const ULONGLONG last : {Limit - 2000, Limit, Limit + 123456}) {
            Signal();
            PollAt(last);
            PollAt(last + 3999);
            EXPECT_THAT(LogLines(), ElementsAre(Started)) << last;
            PollAt(last + 4000);
            EXPECT_THAT(LogLines(), ElementsAre(Started, Stopped)) << last;
            Forget();
        }
    });
}

TEST_F(UsageMonitorTest, ACameraThatKeepsSignalingStartsOnce) {
    InLoop([this] {
        MakePageReady();
        for (ULONGLONG time = 1000; time <= 20000; time += 1000) {
            for (int frame = 0; frame < 10; ++frame) {
                Signal();
            }
            PollAt(time);
        }
        EXPECT_THAT(browser.TakeCalls(), ElementsAre(PostedOn));
        EXPECT_THAT(LogLines(), ElementsAre(Started));
        PollAt(23999); // Ten signals between two polls count as one.
        EXPECT_THAT(LogLines(), ElementsAre(Started));
        PollAt(24000);
        EXPECT_THAT(LogLines(), ElementsAre(Started, Stopped));
    });
}

TEST_F(UsageMonitorTest, NothingIsPostedToAPageThatIsNotReady) {
    InLoop([this] {
        Signal();
        PollAt(1000);
        PollAt(5000);
        EXPECT_THAT(browser.TakeCalls(), IsEmpty());
        EXPECT_THAT(LogLines(), ElementsAre(Started, Stopped));
    });
}

TEST_F(UsageMonitorTest, APageThatBecomesReadyDuringUseIsNotifiedAtOnce) {
    InLoop([this] {
        Signal();
        PollAt(1000);
        Forget();
        for (int load = 0; load < 2; ++load) {
            EXPECT_EQ(browser.RaiseWebMessage(L"ready"), S_OK);
            EXPECT_EQ(browser.TakeCalls().back(), PostedOn);
        }
        EXPECT_THAT(LogLines(), Not(Contains(Started)));
        PollAt(5000);
        EXPECT_THAT(browser.TakeCalls(), ElementsAre(PostedOff));
        EXPECT_EQ(browser.RaiseWebMessage(L"ready"), S_OK);
        EXPECT_THAT(browser.TakeCalls(), Not(Contains(testing::AnyOf(PostedOn, PostedOff))));
    });
}

TEST_F(UsageMonitorTest, APageWhoseReadyFailedIsStillNotified) {
    InLoop([this] {
        Signal();
        PollAt(1000);
        Forget();
        browser.Fail(L"CreateSharedBuffer", E_ABORT);
        EXPECT_EQ(browser.RaiseWebMessage(L"ready"), E_ABORT);
        EXPECT_EQ(browser.TakeCalls().back(), PostedOn);
        PollAt(5000);
        EXPECT_THAT(browser.TakeCalls(), ElementsAre(PostedOff));
    });
}

TEST_F(UsageMonitorTest, AConsumerThatStartsWhileReadyIsHandledIsReportedOnce) {
    InLoop([this] {
        browser.onCall = [this](const std::wstring& method) {
            if (method.starts_with(L"CreateSharedBuffer")) {
                browser.onCall = nullptr;
                Signal();
                PollAt(1000);
            }
            return S_OK;
        };
        EXPECT_EQ(browser.RaiseWebMessage(L"ready"), S_OK);
        const auto calls = browser.TakeCalls();
        EXPECT_EQ(std::count(calls.begin(), calls.end(), PostedOn), 1);
        EXPECT_EQ(calls.back(), PostedOn);
    });
}

TEST_F(UsageMonitorTest, AReadyThatRunsOutOfMemoryTakesItsRemainingSteps) {
    InLoop([this] {
        Signal();
        PollAt(1000);
        std::set<std::string> lines; // of all attempts
        for (unsigned allocation = 0;; ++allocation) {
            Forget();
            HRESULT result = S_OK;
            bool happened = false;
            {
                const AllocationFault fault(allocation);
                result = browser.RaiseWebMessage(L"ready");
                happened = fault.Happened();
            }
            const auto calls = browser.TakeCalls();
            ASSERT_THAT(calls, Contains(PostedOn)) << allocation;
            EXPECT_TRUE(result == S_OK || result == E_OUTOFMEMORY) << std::hex << result;
            for (const std::string& line : LogLines()) {
                lines.insert(line);
            }
            if (!happened) {
                break;
            }
        }
        EXPECT_THAT(lines, Contains("Shared frame buffers posted to script (HRESULT 0x8007000E)"));
        EXPECT_THAT(lines, Contains("System diagnostics posted to script (HRESULT 0x8007000E)"));
    });
}

TEST_F(UsageMonitorTest, AMessageThatCannotBePostedIsIgnored) {
    InLoop([this] {
        MakePageReady(); // The diagnostics were the first message.
        browser.Fail(L"PostWebMessageAsJson", E_FAIL, 1);
        browser.Fail(L"PostWebMessageAsJson", E_FAIL, 2);
        Signal();
        PollAt(1000);
        PollAt(5000);
        EXPECT_THAT(browser.TakeCalls(), ElementsAre(PostedOn, PostedOff));
        EXPECT_THAT(LogLines(), ElementsAre(Started, Stopped));
    });
}

TEST_F(UsageMonitorTest, AFailedPollCountsAsNotSignaled) {
    InLoop([this] {
        Signal();
        PollAt(1000);
        for (const DWORD failure : {WAIT_FAILED, static_cast<DWORD>(WAIT_ABANDONED)}) {
            const ImportPatch waits("kernel32.dll", "WaitForSingleObject", &WaitForSingleObject,
                                    [failure](auto*, HANDLE, DWORD timeoutMs) {
                                        EXPECT_EQ(timeoutMs, 0U);
                                        return failure;
                                    });
            PollAt(2000);
        }
        EXPECT_THAT(LogLines(), ElementsAre(Started));
        const ImportPatch waits("kernel32.dll", "WaitForSingleObject", &WaitForSingleObject,
                                [](auto*, HANDLE, DWORD) { return WAIT_FAILED; });
        PollAt(5000);
        EXPECT_THAT(LogLines(), ElementsAre(Started, Stopped));
    });
}

TEST_F(UsageMonitorTest, TheTimeIsTakenBeforeThePoll) {
    InLoop([] {
        std::vector<std::string> calls;
        const ImportPatch clock("kernel32.dll", "GetTickCount64", &GetTickCount64, [&](auto* original) {
            calls.emplace_back("time");
            return original();
        });
        const ImportPatch waits("kernel32.dll", "WaitForSingleObject", &WaitForSingleObject,
                                [&](auto* original, HANDLE event, DWORD timeoutMs) {
                                    calls.emplace_back("poll");
                                    return original(event, timeoutMs);
                                });
        SendMessageW(MainWindow(), WM_TIMER, 1, 0);
        EXPECT_THAT(calls, ElementsAre("time", "poll"));
    });
}

TEST_F(UsageMonitorTest, TheWindowsTimerPolls) {
    InLoop([this] {
        Signal();
        unsigned polls = 0;
        const ImportPatch waits("kernel32.dll", "WaitForSingleObject", &WaitForSingleObject,
                                [&](auto* original, HANDLE event, DWORD timeoutMs) {
                                    ++polls;
                                    return original(event, timeoutMs);
                                });
        MSG message{};
        while (polls < 2 && GetMessageW(&message, nullptr, 0, 0) > 0) {
            DispatchMessageW(&message);
        }
        EXPECT_THAT(LogLines(), ElementsAre(Started));
    });
}

TEST_F(UsageMonitorTest, StopsWhenTheWindowIsDestroyed) {
    std::vector<std::string> steps;
    const ImportPatch timerEnds("user32.dll", "KillTimer", &KillTimer,
                                [&](auto* original, HWND window, UINT_PTR timer) {
                                    EXPECT_EQ(window, MainWindow());
                                    EXPECT_EQ(timer, 1U);
                                    EXPECT_TRUE(OpenCameraEvent());
                                    steps.emplace_back("timer");
                                    return original(window, timer);
                                });
    const ImportPatch quits("user32.dll", "PostQuitMessage", &PostQuitMessage, [&](auto* original, int exitCode) {
        EXPECT_FALSE(OpenCameraEvent());
        EXPECT_EQ(exitCode, 0);
        steps.emplace_back("quit");
        original(exitCode);
    });
    InLoop([] { EXPECT_TRUE(OpenCameraEvent()); });
    EXPECT_THAT(steps, ElementsAre("timer", "quit"));
}

} // namespace
} // namespace receiver
