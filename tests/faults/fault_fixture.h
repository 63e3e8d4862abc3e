// The fixture of the fault tests: a complete receiver for every call that is made to fail, what can be observed of it
// from outside, and the driver that lets an operation's calls fail one by one.
#pragma once

#include "frames/shared_frame_file.h"
#include "tests/capture/capture_folders.h"
#include "tests/capture/sink_writer_fake.h"
#include "tests/support/apartment.h"
#include "tests/support/call_watch.h"
#include "tests/support/shell_test.h"

#include <windows.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace receiver {

// What is observed of an operation, in one sequence: "log" lines, "box" texts, "posted" texts for the page, the "call"
// of a function whose rule says so, and the results and facts that the operation notes. In expectations "$" is the code
// of the call that failed, "%" the same in decimal.
using Observations = std::vector<std::string>;

// Without the calls, which only the run without a failure compares.
[[nodiscard]] Observations WithoutCalls(Observations observations);

class FaultFixture : public ShellTest {
public:
    FaultFixture();
    ~FaultFixture() override;
    void TestBody() override {}
    void TearDown() override;

    using ShellTest::app;
    using ShellTest::browser;
    using ShellTest::EndReceiver;
    using ShellTest::localAppData;
    using ShellTest::MainWindow;
    using ShellTest::NoteEvent;
    using ShellTest::NoteLogLines;
    using ShellTest::OpenBrowser;
    using ShellTest::programData;
    using ShellTest::RunLoopOf;

    // Opens the window and the browser as a run does. The message loop has ended afterwards.
    void OpenWindow();
    // The virtual camera signals that it delivers a frame; the window's timer fires this long after the last time.
    void Signal();
    void Poll(ULONGLONG afterMs = 1000);

    // Notes "what RESULT" with the result in hexadecimal.
    void NoteResult(const std::string& what, HRESULT result);
    // Runs a part of the product and notes its result.
    void Product(const std::function<HRESULT()>& call);
    // The page posts a text.
    void Post(const wchar_t* text) {
        Product([&] { return browser.RaiseWebMessage(text); });
    }
    // Everything observed since the last call.
    [[nodiscard]] Observations Observe();

    // In an open browser the page posts "ready" and a frame.
    void MakePageReady();
    // Opens the browser and does that.
    void OpenReadyPage();
    // Opens the window, makes the page ready, and lets the receiver detect that the camera is in use.
    void OpenWithCameraInUse();
    // Notes whether a frame has been published since the last call.
    void NotePublished();
    // Expects that the same receiver, or a new one if there is none, handles a frame, a snapshot and a recording.
    void ExpectWorkingReceiver();
    // The page posts a frame; notes whether it was published.
    void PostFrame();

    const Apartment apartment;
    CaptureFolders captures;
    SinkWriterFakes writers;
    std::optional<SharedFrameFile> file{std::in_place};

private:
    // A system of a known version on which the camera is registered, and a clock that the test sets.
    struct KnownVersion {
        FARPROC operator()(decltype(&GetProcAddress), HMODULE, LPCSTR) const;
    };
    struct Registered {
        LSTATUS operator()(decltype(&RegOpenKeyExW), HKEY, LPCWSTR, DWORD, REGSAM, PHKEY key) const;
    };
    struct Clock {
        FaultFixture& fixture;
        ULONGLONG operator()(decltype(&GetTickCount64)) const { return fixture.tick; }
    };

    ImportPatch<FARPROC(HMODULE, LPCSTR), KnownVersion> version{"kernel32.dll", "GetProcAddress", &GetProcAddress, {}};
    ImportPatch<LSTATUS(HKEY, LPCWSTR, DWORD, REGSAM, PHKEY), Registered> camera{"advapi32.dll",
                                                                                 "RegOpenKeyExW",
                                                                                 &RegOpenKeyExW,
                                                                                 {}};
    ImportPatch<ULONGLONG(), Clock> clock{"kernel32.dll", "GetTickCount64", &GetTickCount64, Clock{*this}};
    ULONGLONG tick = 1000;
    std::uint64_t published = 0;
    const std::filesystem::path oldCurrent = std::filesystem::current_path();
};

struct Outcome {
    // Names separated by blanks. NAME#1 is only the second call; NAME+ and NAME#1+ are calls that fail from then on;
    // NAME:FILE is the call for that one of `otherFiles`.
    std::string calls;
    Observations seen;
};

// An operation of the program and the effects of its failures.
struct Operation {
    std::string name{};
    std::function<void(FaultFixture&)> prepare{};
    std::function<void(FaultFixture&)> run{};
    Observations good{};
    std::string unnoticed{}; // the calls whose failure changes nothing
    std::vector<Outcome> outcomes{}; // of the other calls, without "call" observations
    std::map<unsigned, std::string> otherFiles{}; // that are opened besides the log: their numbers among all, and names
    std::string cutShort{}; // the calls whose failure ends the operation with a part of the good observations
    Observations withoutMemory{}; // what may also be observed when an allocation fails
    std::function<void(FaultFixture&)> again{}; // run afterwards on the same receiver; empty: `run`
    Observations goodAgain{}; // empty: `good`
};

inline constexpr char UsageOn[] = R"(posted {"type":"virtual-camera-usage","active":true})";

// The properties of all functions that the product calls.
[[nodiscard]] std::span<const CallRule> CallRules();

// Runs the operation without a failure, then with each of its calls failing, once and from then on, with several codes,
// then with each of its allocations failing. Every eighth also fails together with the next one, or each together with
// any later one if the environment variable VISTEL_FAULT_PAIRS is "all".
void FailEveryCallOf(const Operation& operation);

} // namespace receiver
