// Sees every call that the product makes of the system, without knowing its signature, and lets one of them fail: the
// functions in the import tables of this program, the methods of the COM objects that they hand out and, through
// BrowserFakes::onCall, those of the browser. Also keeps account of what the product takes from the system.
#pragma once

#include "tests/support/allocation_fault.h"

#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace receiver {

// How a call says that it failed. The reason for a failure is always the same: the disk is full.
enum class Failure {
    Never, // it does not fail: see the rule's reason
    Unseen, // the call is not watched: see the rule's reason
    Zero, // 0 and the last error
    Ones, // all bits set and the last error
    Result, // an HRESULT
    Status, // an LSTATUS
    NtStatus,
};

inline constexpr std::uint32_t FaultError = ERROR_DISK_FULL;
inline constexpr HRESULT FaultResult = HRESULT_FROM_WIN32(ERROR_DISK_FULL);

// Something taken from the system or given back, and where its identity stands in the call.
struct Possession {
    enum class Place { Nowhere, InResult, InArgument, BehindArgument };

    const char* kind = nullptr; // null: nothing
    Place place = Place::Nowhere; // Nowhere: all of this kind are alike
    std::size_t argument = 0;
};

// What has to be known of a function; an interface's methods are named INTERFACE::METHOD.
struct CallRule {
    std::string_view name;
    Failure failure = Failure::Never;
    const char* reason = nullptr;
    Possession takes{};
    Possession gives{};
    std::vector<Possession> objects{}; // COM objects handed out behind an argument; the kind is the interface
    std::string_view function{}; // what the call's result is, when that is a function
    std::size_t slot = 0; // of a method
    bool worksAnyway = false; // the call that fails has done its work all the same
};

// A function that was called.
struct SeenFunction {
    std::size_t number;
    std::string_view name;
    const CallRule* rule; // null: nothing is known of it
};

// The functions called since CallWatch::Begin.
[[nodiscard]] std::vector<SeenFunction> SeenFunctions();

// COM objects that the product was given and that somebody still holds, with their interfaces.
[[nodiscard]] std::vector<std::string> HeldObjects();

// Calls of this thread that are made while it lives, outside of a later AllocationPause, are the product's.
class ProductCalls {
public:
    ProductCalls() noexcept;
    ProductCalls(const ProductCalls&) = delete;
    ProductCalls& operator=(const ProductCalls&) = delete;
    ~ProductCalls();

private:
    AllocationResume resume_;
    bool outer_;
};

// While it lives, calls are seen and what they hand out is accounted for. One at a time.
class CallWatch {
public:
    // A call of one function, counted from 0.
    struct Call {
        std::size_t function;
        unsigned index;
    };

    // Every function that is called must stand in `rules`.
    explicit CallWatch(std::span<const CallRule> rules);
    CallWatch(const CallWatch&) = delete;
    CallWatch& operator=(const CallWatch&) = delete;
    ~CallWatch();

    // Calls are counted anew, and this one will fail.
    void Begin(std::optional<Call> failing) noexcept;
    // From now on no call fails.
    void FailNothing() noexcept;
    // Whether a call was made to fail.
    [[nodiscard]] bool Happened() const noexcept;
    // For BrowserFakes::onCall.
    [[nodiscard]] static HRESULT OnBrowserCall(const std::wstring& method);
    // What the product took since the watch began and did not give back.
    [[nodiscard]] std::vector<std::string> Held() const;

private:
    class Imports;
    std::unique_ptr<Imports> imports_;
};

} // namespace receiver
