// The ground of the fault tests: a whole receiver of its own for every call that is made to fail, what can be seen of
// it from outside, and the driver that goes through an operation's calls one by one.
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
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace receiver {

// What is seen of an operation, in this order: the results and facts that it notes, "log" lines, "box" texts, "told"
// texts for the page. In expectations "$" stands for the code of the call that failed, "%" for the same in decimal.
using Observations = std::vector<std::string>;

class FaultBed : public ShellTest {
public:
    FaultBed();
    ~FaultBed() override;
    void TestBody() override {}
    void TearDown() override;

    using ShellTest::app;
    using ShellTest::browser;
    using ShellTest::EndReceiver;
    using ShellTest::localAppData;
    using ShellTest::MainWindow;
    using ShellTest::OpenBrowser;
    using ShellTest::programData;
    using ShellTest::RunLoopOf;

    // Opens the window with the browser in it, as a run does; the message loop has ended behind it.
    void OpenWindow();
    // The virtual camera hands out a frame; the window's timer fires so long after the last time.
    void Signal();
    void Poll(ULONGLONG afterMs = 1000);

    // Notes "what RESULT" in hexadecimal, and a fact.
    void Note(const std::string& what, HRESULT result);
    void Note(std::string fact) { notes_.push_back(std::move(fact)); }
    // Runs a part of the product and notes its result.
    void Product(const std::function<HRESULT()>& call);
    // The page's text, told to the product.
    void Post(const wchar_t* text) {
        Product([&] { return browser.RaiseWebMessage(text); });
    }
    // Everything seen since the last call.
    [[nodiscard]] Observations Observe();

    // Of an app that has opened the browser: what the page asked for first, and a frame.
    void MakePageReady();
    // Opens the browser as far as that.
    void OpenReadyPage();
    // The window, a ready page in it, and a camera that has been noticed.
    void OpenWithCameraInUse();
    // Whether a frame has been published since the last call.
    void NotePublished();
    // The page's frame, and whether it was published.
    void PostFrame();

    const Apartment apartment;
    CaptureFolders captures;
    SinkWriterFakes writers;
    std::optional<SharedFrameFile> file{std::in_place};

private:
    // A system of a known version, on which the camera is registered, and a clock that the test sets.
    struct KnownVersion {
        FARPROC operator()(decltype(&GetProcAddress), HMODULE, LPCSTR) const;
    };
    struct Registered {
        LSTATUS operator()(decltype(&RegOpenKeyExW), HKEY, LPCWSTR, DWORD, REGSAM, PHKEY key) const;
    };
    struct Clock {
        FaultBed& bed;
        ULONGLONG operator()(decltype(&GetTickCount64)) const { return bed.tick_; }
    };

    ImportPatch<FARPROC(HMODULE, LPCSTR), KnownVersion> version_{"kernel32.dll", "GetProcAddress", &GetProcAddress, {}};
    ImportPatch<LSTATUS(HKEY, LPCWSTR, DWORD, REGSAM, PHKEY), Registered> camera_{"advapi32.dll",
                                                                                  "RegOpenKeyExW",
                                                                                  &RegOpenKeyExW,
                                                                                  {}};
    ImportPatch<ULONGLONG(), Clock> clock_{"kernel32.dll", "GetTickCount64", &GetTickCount64, Clock{*this}};
    ULONGLONG tick_ = 1000;
    std::uint64_t published_ = 0;
    const std::filesystem::path bareLog_ = folder.Path() / L"vistel-receiver.log"; // when there is no temporary folder
    const std::filesystem::path oldCurrent_ = std::filesystem::current_path();
    Observations notes_;
};

struct Outcome {
    std::string calls; // names with blanks between them; NAME#1 is the second call alone
    Observations seen;
};

// An operation of the program and what its failures come to.
struct Operation {
    std::string name{};
    std::function<void(FaultBed&)> prepare{};
    std::function<void(FaultBed&)> run{};
    Observations good{};
    std::string unnoticed{}; // the calls whose failure changes nothing
    std::vector<Outcome> outcomes{}; // of the others
    std::string cutShort{}; // calls of which only a part of the good observations is left
    Observations withoutMemory{}; // what may also be seen then
    std::function<void(FaultBed&)> again{}; // afterwards on the same receiver; empty: `run`
    Observations goodAgain{}; // empty: `good`
};

inline constexpr char UsageOn[] = R"(told {"type":"virtual-camera-usage","active":true})";

// Everything that is known of the functions called.
[[nodiscard]] std::span<const CallRule> CallRules();

// Runs the operation well, and then once for each of its calls and allocations with that one failing.
void FailEveryCallOf(const Operation& operation);

} // namespace receiver
