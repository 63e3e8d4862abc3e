#include "tests/faults/fault_fixture.h"

#include "tests/support/allocation_fault.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <map>
#include <optional>
#include <set>
#include <sstream>

namespace receiver {
namespace {

constexpr char NoMemoryCode[] = " (HRESULT 0x8007000E)";

LONG WINAPI NewVersion(RTL_OSVERSIONINFOW* version) {
    version->dwMajorVersion = 10;
    version->dwBuildNumber = 22631;
    return 0;
}

std::string Hexadecimal(HRESULT result) {
    char text[16] = "";
    std::snprintf(text, sizeof(text), "0x%08X", static_cast<unsigned>(result));
    return text;
}

std::string Joined(std::string_view first, std::string_view second) {
    std::string both(first);
    return both.append(" ").append(second);
}

// The text with every `from` in it replaced.
std::string Replace(std::string_view text, std::string_view from, std::string_view to) {
    std::string replaced;
    for (std::size_t at = text.find(from); at != std::string_view::npos; at = text.find(from)) {
        replaced.append(text.substr(0, at)).append(to);
        text.remove_prefix(at + from.size());
    }
    return replaced.append(text);
}

Observations WithCode(Observations lines, HRESULT code) {
    for (std::string& line : lines) {
        line = Replace(Replace(line, "$", Hexadecimal(code)), "%", std::to_string(static_cast<std::uint32_t>(code)));
    }
    return lines;
}

bool IsCall(const std::string& observation) { return observation.starts_with("call "); }

// The browser's calls that are observed; the others have their own tests.
bool IsObservedBrowserCall(const std::string& method) {
    return method.starts_with("Create") || method.starts_with("add_") || method.starts_with("Navigate") ||
           method == "PostSharedBufferToScript";
}

std::set<std::string> Words(const std::string& text) {
    std::istringstream stream(text);
    return {std::istream_iterator<std::string>(stream), {}};
}

// How often each function failed in each operation.
std::map<std::string, std::map<std::string, unsigned>>& Table() {
    static std::map<std::string, std::map<std::string, unsigned>> table;
    return table;
}

// What one run of an operation must lead to.
struct Expected {
    Observations seen;
    bool part = false; // the beginning of these, and the last
};

constexpr HRESULT DiskFull = HRESULT_FROM_WIN32(ERROR_DISK_FULL);

// Allocations that fail: see AllocationFault.
struct MemoryFault {
    unsigned index;
    std::optional<unsigned> gap;
};

bool IsLogLine(const std::string& observation) { return observation.starts_with("log "); }

// Whether every pair of allocations fails. Otherwise, to save time, every eighth fails together with the next one.
bool AllPairs() {
    wchar_t value[8] = L"";
    return GetEnvironmentVariableW(L"VISTEL_FAULT_PAIRS", value, 8) > 0 && std::wstring_view(value) == L"all";
}
constexpr unsigned PairStep = 8;

class Driver {
public:
    explicit Driver(const Operation& newOperation) : operation(newOperation) {
        std::string all = operation.unnoticed + ' ' + operation.cutShort;
        for (const Outcome& outcome : operation.outcomes) {
            all += ' ' + outcome.calls;
        }
        for (const std::string& name : Words(all)) {
            used[name] = false;
        }
    }

    void FailAll() {
        Run("", {}, {}); // The first run sets up what is set up only once.
        Run("", {}, {});
        while (const std::optional<SeenFunction> function = NextFunction()) {
            FailCallsOf(*function);
        }
        FailAllocations();
        ExpectAllNamesUsed();
    }

private:
    std::optional<SeenFunction> NextFunction() {
        for (const auto& [number, function] : found) {
            if (done.insert(number).second) {
                return function;
            }
        }
        return std::nullopt;
    }

    void FailCallsOf(const SeenFunction& function) {
        const std::string name(function.name);
        if (function.rule == nullptr) {
            ADD_FAILURE() << name << " is called and has no rule";
            return;
        }
        auto& row = Table()[name];
        row[operation.name]; // Lists the operation even if the function cannot fail.
        if (function.rule->failure == Failure::Never) {
            return;
        }
        const std::size_t number = function.number;
        const bool givesCode = function.rule->knownCode != S_OK;
        std::vector<CallWatch::Fault> faults{{number, 0, false, DiskFull}, {number, 0, true, E_ACCESSDENIED}};
        if (givesCode) {
            faults.push_back({number, 0, true, function.rule->knownCode});
        }
        for (CallWatch::Fault& fault : faults) {
            while (Run(name + "#" + std::to_string(fault.index) + (fault.lasting ? "+" : ""), fault, {})) {
                ++fault.index;
                if (fault.lasting && !givesCode) {
                    break; // The later calls have failed, too.
                }
            }
            row[operation.name] += fault.index;
        }
    }

    void FailAllocations() {
        const bool allPairs = AllPairs();
        unsigned index = 0;
        while (Run("memory#" + std::to_string(index), {}, MemoryFault{index, {}})) {
            unsigned gap = 0;
            while ((allPairs || (gap == 0 && index % PairStep == 0)) &&
                   Run("memory#" + std::to_string(index) + " and " + std::to_string(gap) + " later", {},
                       MemoryFault{index, gap})) {
                ++gap;
            }
            ++index;
        }
        if (index > 0) {
            Table()["operator new"][operation.name] += index;
        }
    }

    // Returns whether the calls failed as asked.
    bool Run(const std::string& call, std::optional<CallWatch::Fault> failing, std::optional<MemoryFault> memory) {
        SCOPED_TRACE(operation.name + ' ' + (call.empty() ? "good" : call) + ' ' +
                     (failing ? Hexadecimal(failing->code) : ""));
        const AllocationPause ofTest;
        const long memoryBefore = LiveAllocations();
        bool happened = false;
        {
            FaultFixture fixture;
            unsigned linesBegun = 0;
            std::vector<unsigned> linesAtFailures; // the number of lines begun when an allocation failed
            {
                CallWatch watch(CallRules());
                fixture.browser.onCall = &CallWatch::OnBrowserCall;
                watch.onRecordedCall = [&](std::string_view name) {
                    if (name == "GetTempPathW") {
                        fixture.NoteLogLines(); // The next line may be written to another file.
                        ++linesBegun;
                    } else {
                        fixture.NoteEvent(Joined("call", name));
                    }
                };
                {
                    const ProductCalls alsoRecorded;
                    operation.prepare(fixture);
                }
                (void)fixture.Observe();
                watch.Begin(failing);
                linesBegun = 0;
                {
                    std::optional<AllocationFault> fault;
                    if (memory) {
                        fault.emplace(memory->index, memory->gap);
                        fault->onFailure = [&] { linesAtFailures.push_back(linesBegun); };
                    }
                    operation.run(fixture);
                    happened = watch.Happened() || (fault && fault->Happened());
                }
                watch.FailNothing();
                if (linesAtFailures.empty()) {
                    Judge(fixture.Observe(), happened ? call : "", failing ? failing->code : S_OK);
                } else {
                    JudgeWithoutMemory(WithoutCalls(fixture.Observe()), linesAtFailures);
                }
                (operation.again ? operation.again : operation.run)(fixture);
                const Observations& goodAgain = operation.goodAgain.empty() ? operation.good : operation.goodAgain;
                EXPECT_EQ(WithoutCalls(fixture.Observe()), WithoutCalls(goodAgain)) << "in the run after it";
                if (failing && failing->lasting && failing->code == E_ACCESSDENIED && failing->index == 0) {
                    fixture.ExpectWorkingReceiver();
                }
                fixture.TearDown();
                EXPECT_THAT(watch.Held(), testing::IsEmpty()) << "held after the end";
                fixture.browser.onCall = nullptr;
            }
        }
        EXPECT_THAT(HeldObjects(), testing::IsEmpty()) << "held after the end";
        if (std::exchange(warm, true)) {
            EXPECT_EQ(LiveAllocations(), memoryBefore) << "memory is held after the end";
        }
        for (const SeenFunction& function : SeenFunctions()) {
            found.emplace(function.number, function);
        }
        return happened;
    }

    void Judge(const Observations& seen, const std::string& call, HRESULT code) {
        if (call.empty()) {
            EXPECT_EQ(seen, operation.good);
            return;
        }
        const Observations seenResults = WithoutCalls(seen);
        const std::string name = call.substr(0, call.find('#'));
        const Expected expected =
            name == "_wfopen" || name == "_write" ? ExpectedWithoutFile(name, call) : ExpectedOf(call);
        Observations wanted = WithCode(WithoutCalls(expected.seen), code);
        if (expected.part && !seenResults.empty() && seenResults.size() < wanted.size()) {
            wanted.erase(wanted.begin() + static_cast<std::ptrdiff_t>(seenResults.size()) - 1, wanted.end() - 1);
        }
        EXPECT_EQ(seenResults, wanted);
    }

    // NAME#1+ is looked for under all names that include it, the narrowest first.
    Expected ExpectedOf(const std::string& call) {
        const std::string name = call.substr(0, call.find('#'));
        std::vector<std::string> words{call, name};
        if (call.ends_with('+')) {
            words = {call, name + '+', call.substr(0, call.size() - 1), name};
        }
        for (const std::string& word : words) {
            if (Uses(operation.unnoticed, word)) {
                return {operation.good};
            }
            for (const Outcome& outcome : operation.outcomes) {
                if (Uses(outcome.calls, word)) {
                    return {outcome.seen};
                }
            }
            if (Uses(operation.cutShort, word)) {
                return {operation.good, true};
            }
        }
        ADD_FAILURE() << "the operation has no outcome for this call's failure";
        return {operation.good};
    }

    // A line is lost when the log cannot be opened or written for it.
    Expected ExpectedWithoutFile(const std::string& name, const std::string& call) {
        const unsigned long first = std::stoul(call.substr(name.size() + 1));
        const auto lines = std::count_if(operation.good.begin(), operation.good.end(), IsLogLine);
        Observations seen = operation.good;
        std::set<std::ptrdiff_t> lost;
        std::ptrdiff_t line = 0;
        unsigned long calls = 0;
        for (unsigned file = 0; line < lines || operation.otherFiles.contains(file); ++file) {
            const auto other = operation.otherFiles.find(file);
            const bool ofLog = other == operation.otherFiles.end();
            if (!ofLog && name == "_write" && other->second == "identifier") {
                continue; // It is only read.
            }
            const bool fails = call.ends_with('+') ? calls >= first : calls == first;
            if (ofLog && fails) {
                lost.insert(line);
            } else if (fails) {
                seen = ExpectedOf(name + ':' + other->second).seen;
            }
            line += ofLog ? 1 : 0;
            ++calls;
        }
        line = 0;
        std::erase_if(seen, [&](const std::string& one) { return IsLogLine(one) && lost.contains(line++); });
        return {seen};
    }

    bool Uses(const std::string& calls, const std::string& word) {
        const bool listed = Words(calls).contains(word);
        if (listed) {
            used.at(word) = true;
        }
        return listed;
    }

    // Only that line of the log may be missing which was being written or prepared when an allocation failed. The rest
    // must be good unless a line or result reports E_OUTOFMEMORY; then later lines may be missing, too.
    void JudgeWithoutMemory(const Observations& seen, const std::vector<unsigned>& linesAtFailures) const {
        const Observations good = WithoutCalls(operation.good);
        Observations allowed = good;
        allowed.insert(allowed.end(), operation.withoutMemory.begin(), operation.withoutMemory.end());
        Observations missing = good;
        bool reported = false;
        for (const std::string& line : seen) {
            const auto known = std::find(allowed.begin(), allowed.end(), Replace(line, NoMemoryCode, ""));
            if (known == allowed.end()) {
                ADD_FAILURE() << "unexpected: " << line;
                continue;
            }
            allowed.erase(known);
            const auto expected = std::find(missing.begin(), missing.end(), line);
            if (expected != missing.end()) {
                missing.erase(expected);
            } else {
                reported = true;
            }
        }
        // A line that is lost before it is begun is not counted, so that the second failure may be of the one after it.
        const auto mayBeLost = [&](unsigned line) {
            for (unsigned failure = 0; failure < linesAtFailures.size(); ++failure) {
                const unsigned begun = linesAtFailures[failure];
                if (line + 1 >= begun && (reported || line <= begun + failure)) {
                    return true;
                }
            }
            return false;
        };
        unsigned logLine = 0;
        for (auto line = good.begin(); line != good.end(); ++line) {
            const auto at = std::find(missing.begin(), missing.end(), *line);
            if (at != missing.end()) {
                // The second failure may be of the line that would report the first.
                const bool reportLost =
                    linesAtFailures.size() > 1 && std::any_of(line, good.end(), [&](const std::string& later) {
                        return IsLogLine(later) && std::ranges::count(missing, later) > 0;
                    });
                EXPECT_TRUE(IsLogLine(*line) ? mayBeLost(logLine) : reported || reportLost) << "missing: " << *line;
                missing.erase(at);
            }
            logLine += IsLogLine(*line) ? 1U : 0U;
        }
    }

    void ExpectAllNamesUsed() {
        for (const auto& [name, isUsed] : used) {
            EXPECT_TRUE(isUsed) << name << " is not called in " << operation.name;
        }
    }

    const Operation& operation;
    std::map<std::size_t, SeenFunction> found;
    std::set<std::size_t> done;
    std::map<std::string, bool> used; // the calls that the operation names
    bool warm = false;
};

// After all tests: prints which functions were called, where, and how often they failed.
class Summary : public testing::Environment {
public:
    void TearDown() override {
        const testing::UnitTest& tests = *testing::UnitTest::GetInstance();
        const bool complete = tests.test_to_run_count() == tests.total_test_count();
        unsigned calls = 0;
        unsigned functions = 0;
        for (const auto& [name, operations] : Table()) {
            unsigned failed = 0;
            std::string where;
            for (const auto& [operation, count] : operations) {
                failed += count;
                where += ' ' + operation;
            }
            std::printf("%-48s %5u %s\n", name.c_str(), failed, where.c_str());
            const auto rule = std::find_if(CallRules().begin(), CallRules().end(),
                                           [&](const CallRule& one) { return one.name == name; });
            if (complete && (rule == CallRules().end() || rule->failure != Failure::Never)) {
                EXPECT_GT(failed, 0U) << name << " was never made to fail";
            }
            calls += failed;
            functions += failed > 0 ? 1 : 0;
        }
        if (!complete) {
            return; // Not all operations were run.
        }
        for (const CallRule& rule : CallRules()) {
            EXPECT_TRUE(rule.failure == Failure::Unseen || Table().contains(std::string(rule.name)))
                << rule.name << " is called by no operation";
        }
        std::printf("%u calls of %u functions failed, %s\n", calls, functions,
                    tests.Failed() ? "with wrong outcomes" : "none left out");
    }
};

[[maybe_unused]] testing::Environment* const summary = testing::AddGlobalTestEnvironment(new Summary);

} // namespace

Observations WithoutCalls(Observations observations) {
    observations.erase(std::remove_if(observations.begin(), observations.end(), IsCall), observations.end());
    return observations;
}

FaultFixture::FaultFixture() {
    std::filesystem::current_path(folder.Path());
    logFiles.push_back(folder.Path() / L"vistel-receiver.log"); // used without a temporary folder
}

FaultFixture::~FaultFixture() { std::filesystem::current_path(oldCurrent); }

void FaultFixture::TearDown() {
    file.reset();
    ShellTest::TearDown();
}

void FaultFixture::OpenWindow() {
    EXPECT_EQ(Run(L"",
                  [this] {
                      browser.CompleteBoth();
                      PostQuitMessage(0);
                  }),
              0);
}

void FaultFixture::Signal() {
    UniqueHandle event;
    event.Reset(OpenEventW(EVENT_MODIFY_STATE, FALSE, PrivateEventName::Name().c_str()));
    EXPECT_NE(SetEvent(event.Get()), 0);
}

void FaultFixture::Poll(ULONGLONG afterMs) {
    tick += afterMs;
    const HWND window = MainWindow();
    Product([=] { return static_cast<HRESULT>(ReceiverApp::WindowProc(window, WM_TIMER, UsageTimer, 0)); });
}

void FaultFixture::MakePageReady() {
    EXPECT_EQ(browser.RaiseWebMessage(L"ready"), S_OK);
    EXPECT_EQ(browser.RaiseWebMessage(GoodFrame), S_OK);
    NotePublished();
}

void FaultFixture::OpenReadyPage() {
    OpenBrowser();
    MakePageReady();
}

void FaultFixture::OpenWithCameraInUse() {
    OpenWindow();
    MakePageReady();
    Signal();
    Poll();
}

void FaultFixture::PostFrame() {
    Post(GoodFrame);
    NotePublished();
}

void FaultFixture::NotePublished() {
    const std::uint64_t sequence = FrameHeader().sequence;
    NoteEvent(sequence > std::exchange(published, sequence) ? "published" : "not published");
}

FARPROC FaultFixture::KnownVersion::operator()(decltype(&GetProcAddress), HMODULE, LPCSTR) const {
    return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&NewVersion));
}

LSTATUS FaultFixture::Registered::operator()(decltype(&RegOpenKeyExW) original, HKEY, LPCWSTR, DWORD options, REGSAM,
                                             PHKEY key) const {
    return original(HKEY_CURRENT_USER, L"Software", options, KEY_READ, key);
}

void FaultFixture::ExpectWorkingReceiver() {
    const bool ended = !app;
    if (ended) {
        EndReceiver(); // Its window may still exist.
        app.emplace();
    }
    if (ended || !browser.AcceptsWebMessages()) {
        OpenBrowser();
    }
    (void)browser.RaiseWebMessage(L"media:record:stop");
    std::filesystem::remove(captures.PicturePath());
    for (const wchar_t* text :
         {L"ready", L"quality:720p", L"media:record:start", GoodFrame, L"media:snapshot", L"media:record:stop"}) {
        EXPECT_EQ(browser.RaiseWebMessage(text), S_OK) << testing::PrintToString(std::wstring(text));
    }
    EXPECT_EQ(writers.samples.size(), 1U);
    EXPECT_TRUE(std::filesystem::exists(captures.PicturePath()));
}

void FaultFixture::NoteResult(const std::string& what, HRESULT result) { NoteEvent(Joined(what, Hexadecimal(result))); }

void FaultFixture::Product(const std::function<HRESULT()>& call) {
    const HRESULT result = [&] {
        const ProductCalls product;
        return call();
    }();
    NoteResult("result", result);
}

Observations FaultFixture::Observe() {
    constexpr std::string_view Browser = "browser ";
    constexpr std::string_view Posted = "PostWebMessageAsJson ";
    const std::string root = Replace(captures.folder.Path().string(), "\\", "\\\\");
    Observations seen;
    for (const std::string& event : TakeEvents()) {
        if (!event.starts_with(Browser)) {
            seen.push_back(Replace(event, "\n\nHRESULT: ", " "));
            continue;
        }
        const std::string call = event.substr(Browser.size());
        const std::string method = call.substr(0, call.find(' '));
        if (call.starts_with(Posted)) {
            const std::string text = Replace(call.substr(Posted.size()), root, "~");
            seen.push_back(Joined("posted", Replace(text, "\\\\", "/")));
        } else if (IsObservedBrowserCall(method)) {
            seen.push_back(Joined("call", method));
        }
    }
    return seen;
}

void FailEveryCallOf(const Operation& operation) { Driver(operation).FailAll(); }

} // namespace receiver
