// Intercepts every call from the product to the system, without knowing its signature, and lets one of them fail: the
// functions in the import tables of this program, of the C runtime's those that have a rule, the methods of the COM
// objects that they return and, through BrowserFakes::onCall, those of the browser. Also records what the product
// acquires from the system and releases.
#pragma once

#include "tests/support/allocation_fault.h"

#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace receiver {

// How a call reports that it failed.
enum class Failure {
    Never, // it cannot fail: see the rule's reason
    Unseen, // the call is not intercepted: see the rule's reason
    Zero, // 0 and the last error
    Ones, // all bits set and the last error
    Result, // an HRESULT
    Status, // an LSTATUS
    NtStatus,
};

// A resource that a call acquires or releases, and where in the call its identity is found.
struct Resource {
    enum class Place { None, Result, Argument, PointedToByArgument };

    const char* kind = nullptr; // null: no resource
    Place place = Place::None; // None: only the number of resources of this kind is known
    std::size_t argument = 0;
};

// The properties of a function. An interface's methods are named INTERFACE::METHOD.
struct CallRule {
    std::string_view name;
    Failure failure = Failure::Never;
    const char* reason = nullptr;
    Resource acquires{};
    Resource releases{};
    std::vector<Resource> objects{}; // COM objects that the call returns; the kind is the interface
    std::string_view function{}; // the name of the function that the call returns
    std::size_t slot = 0; // of a method
    bool worksAnyway = false; // a failing call has its effect nevertheless
    bool recorded = false; // CallWatch::onRecordedCall is called for it
    // A code that the function is known to fail with; one of Win32 unless it returns an HRESULT. S_OK: it gives the
    // product no code.
    HRESULT knownCode = HRESULT_FROM_WIN32(ERROR_NOT_ENOUGH_MEMORY);
};

// A function that was called.
struct SeenFunction {
    std::size_t number;
    std::string_view name;
    const CallRule* rule; // null: there is none
};

// The functions called since CallWatch::Begin.
[[nodiscard]] std::vector<SeenFunction> SeenFunctions();

// Interfaces of the COM objects that the product received and that have not been released.
[[nodiscard]] std::vector<std::string> HeldObjects();

// While it exists, calls of this thread outside of a later AllocationPause count as the product's.
class ProductCalls {
public:
    ProductCalls() noexcept;
    ProductCalls(const ProductCalls&) = delete;
    ProductCalls& operator=(const ProductCalls&) = delete;
    ~ProductCalls();

private:
    AllocationResume resume;
    bool outer;
};

// While it exists, calls are intercepted and what they acquire is recorded. Only one exists at a time.
class CallWatch {
public:
    // Calls of one function that fail.
    struct Fault {
        std::size_t function;
        unsigned index; // of the call, counted from 0
        bool lasting; // all later calls of the function fail too
        HRESULT code;
    };

    // `rules` must have an entry for every function that is called.
    explicit CallWatch(std::span<const CallRule> rules);
    CallWatch(const CallWatch&) = delete;
    CallWatch& operator=(const CallWatch&) = delete;
    ~CallWatch();

    // Counts calls from 0 again and lets these fail.
    void Begin(std::optional<Fault> fault) noexcept;
    // From now on no call fails.
    void FailNothing() noexcept;
    // Whether a call was made to fail.
    [[nodiscard]] bool Happened() const noexcept;
    // For BrowserFakes::onCall.
    [[nodiscard]] static HRESULT OnBrowserCall(const std::wstring& method);
    // Called with the name of every call of the product whose rule says so, before the call.
    std::function<void(std::string_view name)> onRecordedCall;
    // Kinds of the resources that the product has acquired since the watch began and not released.
    [[nodiscard]] std::vector<std::string> Held() const;

private:
    class Imports;
    std::unique_ptr<Imports> imports;
};

} // namespace receiver
