// Lets every call fail that the loader makes to the system. What each failure leads to is in one table.
#include "tests/platform/loader_sandbox.h"
#include "tests/support/call_watch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <windows.h>

#include <algorithm>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

namespace receiver {
namespace {

using testing::IsEmpty;
using testing::SizeIs;

// What a request leads to when the system refuses a call of it.
enum Outcome : unsigned {
    Found = 1, // the runtime is called
    Missing = 2, // the handler is notified later that there is no runtime
    Refused = 4, // the request fails
};

constexpr char CppRuntime[] = "The C++ runtime calls it.";

const CallRule LoaderRules[] = {
    {.name = "CloseHandle", .failure = Failure::Zero, .releases = {"handle", Resource::Place::Argument, 0}},
    {.name = "CreateFileW", .failure = Failure::Ones, .acquires = {"handle", Resource::Place::Result}},
    {.name = "GetEnvironmentVariableW", .failure = Failure::Zero},
    {.name = "GetFullPathNameW", .failure = Failure::Zero},
    {.name = "GetModuleFileNameW", .failure = Failure::Zero},
    {.name = "GetProcAddress", .failure = Failure::Zero},
    {.name = "LoadLibraryExW", .failure = Failure::Zero},
    {.name = "RegGetValueW", .failure = Failure::Status},
    {.name = "GetLastError", .failure = Failure::Unseen, .reason = CppRuntime},
    {.name = "SetLastError", .failure = Failure::Unseen, .reason = CppRuntime},
    {.name = "TlsGetValue", .failure = Failure::Unseen, .reason = CppRuntime},
    {.name = "EnterCriticalSection", .failure = Failure::Unseen, .reason = CppRuntime},
    {.name = "LeaveCriticalSection", .failure = Failure::Unseen, .reason = CppRuntime},
};

// The outcomes that occur when one call fails, and when all later ones of the function fail, too: then the second try
// fails like the first one.
struct LoaderFailure {
    std::string_view name;
    unsigned once;
    unsigned lasting;
};

constexpr LoaderFailure LoaderFailures[] = {
    {"CloseHandle", Found, Found},
    {"CreateFileW", Missing, Missing},
    {"GetEnvironmentVariableW", Found, Found},
    {"GetFullPathNameW", Found, Refused},
    {"GetModuleFileNameW", Found, Found},
    {"GetProcAddress", Found, Refused},
    {"LoadLibraryExW", Found, Refused},
    {"RegGetValueW", Found | Missing, Missing}, // Most values do not exist.
};

class LoaderFaults : public testing::Test {
protected:
    Outcome Request() {
        sandbox.calls.clear();
        sandbox.handler.results.clear();
        result = [this] {
            const ProductCalls product;
            return sandbox.Request();
        }();
        if (!sandbox.calls.empty()) {
            EXPECT_EQ(result, S_OK);
            EXPECT_THAT(sandbox.calls, SizeIs(1));
            return Found;
        }
        if (FAILED(result)) {
            return Refused;
        }
        EXPECT_TRUE(sandbox.RunLoopUntil(1));
        EXPECT_EQ(sandbox.handler.results[0].code, FileNotFound);
        return Missing;
    }
    // Lets each call of the function fail. Every time the next request must succeed.
    unsigned OutcomesOf(CallWatch& watch, const SeenFunction& function, bool lasting) {
        unsigned outcomes = 0;
        for (unsigned index = 0;; ++index) {
            watch.Begin(CallWatch::Fault{function.number, index, lasting, E_ACCESSDENIED});
            const Outcome outcome = Request();
            const bool happened = watch.Happened();
            watch.FailNothing();
            if (!happened) {
                EXPECT_GT(index, 0U);
                return outcomes;
            }
            outcomes |= outcome;
            if (outcome == Refused && function.name != "GetFullPathNameW") { // There the code comes from a later call.
                EXPECT_EQ(result, E_ACCESSDENIED);
            }
            EXPECT_EQ(Request(), Found);
        }
    }

    LoaderSandbox sandbox;
    HRESULT result = S_OK; // of the last request
};

TEST_F(LoaderFaults, EachCallOfTheSystemMayFail) {
    const std::wstring versionFolder = sandbox.Root() + L"\\rt\\150.0.1.2";
    sandbox.Install(versionFolder);
    sandbox.Announce(HKEY_LOCAL_MACHINE, ChannelKeys[0], versionFolder);
    {
        CallWatch watch(LoaderRules);
        watch.Begin({});
        EXPECT_EQ(Request(), Found);
        const std::vector<SeenFunction> functions = SeenFunctions();
        EXPECT_THAT(functions, SizeIs(std::size(LoaderFailures)));
        for (const SeenFunction& function : functions) {
            const auto* const failure =
                std::find_if(std::begin(LoaderFailures), std::end(LoaderFailures),
                             [&](const LoaderFailure& each) { return each.name == function.name; });
            ASSERT_NE(failure, std::end(LoaderFailures)) << function.name;
            EXPECT_EQ(OutcomesOf(watch, function, false), failure->once) << function.name;
            EXPECT_EQ(OutcomesOf(watch, function, true), failure->lasting) << function.name;
        }
        EXPECT_THAT(watch.Held(), IsEmpty());
    }
    sandbox.calls.clear();
    EXPECT_EQ(sandbox.handler.references, 1U);
}

} // namespace
} // namespace receiver
