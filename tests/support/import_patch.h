// Replaces functions that this program imports by name, for as long as the patch lives: so that message boxes are
// recorded, and so that any call of the system can be made to fail.
#pragma once

#include "tests/support/allocation_fault.h"

#include <windows.h>

#include <string_view>
#include <utility>
#include <vector>

namespace receiver {

// One place in the import tables of this program.
struct ImportedFunction {
    std::string_view library;
    std::string_view name;
    void** address; // what the program calls through
};

// Every function that this program imports by name.
[[nodiscard]] std::vector<ImportedFunction> ImportedFunctions();

// Points the places of one function elsewhere and back. Throws std::invalid_argument when it is not imported.
class ImportRedirection {
public:
    ImportRedirection(std::string_view library, std::string_view name, void* replacement);
    ImportRedirection(const ImportRedirection&) = delete;
    ImportRedirection& operator=(const ImportRedirection&) = delete;
    ~ImportRedirection();

    [[nodiscard]] void* Original() const noexcept { return places_.front().second; }

private:
    std::vector<std::pair<void**, void*>> places_; // with what stood there before
};

template <typename Function, typename Body>
class ImportPatch;

// `body` is called with the original function in front of the call's own arguments:
//   ImportPatch beep("kernel32.dll", "Beep", &Beep, [&](auto* original, DWORD tone, DWORD ms) { return FALSE; });
// What it allocates does not count for an AllocationFault.
template <typename Result, typename... Arguments, typename Body>
class ImportPatch<Result(Arguments...), Body> {
public:
    ImportPatch(std::string_view library, std::string_view name, Result(WINAPI*)(Arguments...), Body body)
        : body_(std::move(body)), redirection_(library, name, reinterpret_cast<void*>(&Call)),
          outer_(std::exchange(current_, this)) {}
    ImportPatch(const ImportPatch&) = delete;
    ImportPatch& operator=(const ImportPatch&) = delete;
    ~ImportPatch() { current_ = outer_; }

private:
    static Result WINAPI Call(Arguments... arguments) {
        const AllocationPause pause;
        const auto original = reinterpret_cast<Result(WINAPI*)(Arguments...)>(current_->redirection_.Original());
        return current_->body_(original, arguments...);
    }

    static inline ImportPatch* current_ = nullptr; // of this body: every lambda has a type of its own

    Body body_;
    ImportRedirection redirection_;
    ImportPatch* outer_;
};

template <typename Result, typename... Arguments, typename Body>
ImportPatch(std::string_view, std::string_view, Result(WINAPI*)(Arguments...), Body)
    -> ImportPatch<Result(Arguments...), Body>;

} // namespace receiver
