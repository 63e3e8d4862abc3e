// Replaces functions of the system while the patch exists, so that a test can record calls and let them fail.
#pragma once

#include "tests/support/allocation_fault.h"
#include "tests/support/function_table.h"

#include <windows.h>

#include <string_view>
#include <utility>
#include <vector>

namespace receiver {

// One entry in the import tables of this program.
struct ImportedFunction {
    std::string_view library;
    std::string_view name;
    void** address; // of the pointer through which the program calls
};

// Every function that this program imports by name.
[[nodiscard]] std::vector<ImportedFunction> ImportedFunctions();

// Replaces the pointers to one function, and restores them at the end.
class Redirection {
public:
    Redirection(const std::vector<void**>& newEntries, void* replacement);
    Redirection(const Redirection&) = delete;
    Redirection& operator=(const Redirection&) = delete;
    ~Redirection();

    [[nodiscard]] void* Original() const noexcept { return entries.front().second; }

private:
    std::vector<std::pair<void**, void*>> entries; // with the original pointers
};

// Throws std::invalid_argument when the function is not imported.
class ImportRedirection : public Redirection {
public:
    ImportRedirection(std::string_view library, std::string_view name, void* replacement);
};

// Calls `body` in place of a function, with the original function before the call's own arguments. What `body`
// allocates does not count for an AllocationFault.
template <typename Function, typename Body>
class FunctionPatch;

template <typename Result, typename... Arguments, typename Body>
class FunctionPatch<Result(Arguments...), Body> {
public:
    FunctionPatch(const FunctionPatch&) = delete;
    FunctionPatch& operator=(const FunctionPatch&) = delete;

protected:
    explicit FunctionPatch(Body newBody) : body(std::move(newBody)), outer(std::exchange(current, this)) {}
    ~FunctionPatch() { current = outer; }

    static Result WINAPI Call(Arguments... arguments) {
        const AllocationPause pause;
        return current->body(current->original, arguments...);
    }
    void SetOriginal(void* newOriginal) noexcept {
        original = reinterpret_cast<Result(WINAPI*)(Arguments...)>(newOriginal);
    }

private:
    static inline FunctionPatch* current = nullptr; // of this type of body: every lambda has its own type

    Body body;
    Result(WINAPI* original)(Arguments...) = nullptr;
    FunctionPatch* outer;
};

// A function that this program imports by name:
//   ImportPatch beep("kernel32.dll", "Beep", &Beep, [&](auto* original, DWORD tone, DWORD ms) { return FALSE; });
template <typename Function, typename Body>
class ImportPatch : public FunctionPatch<Function, Body> {
public:
    ImportPatch(std::string_view library, std::string_view name, Function*, Body newBody)
        : FunctionPatch<Function, Body>(std::move(newBody)),
          redirection(library, name, reinterpret_cast<void*>(&ImportPatch::Call)) {
        this->SetOriginal(redirection.Original());
    }

private:
    ImportRedirection redirection;
};

// A method of a COM class, for all of its objects; the object is the first of the call's own arguments:
//   MethodPatch seek(stream, &IStream::Seek, [](auto* original, IStream* self, auto...) { return E_FAIL; });
template <typename Interface, typename Body, typename... Arguments>
class MethodPatch : public FunctionPatch<HRESULT(Interface*, Arguments...), Body> {
public:
    MethodPatch(Interface* object, HRESULT (STDMETHODCALLTYPE Interface::*method)(Arguments...), Body newBody)
        : FunctionPatch<HRESULT(Interface*, Arguments...), Body>(std::move(newBody)),
          redirection({*reinterpret_cast<void***>(object) + SlotOf(method)},
                      reinterpret_cast<void*>(&MethodPatch::Call)) {
        this->SetOriginal(redirection.Original());
    }

private:
    Redirection redirection;
};

} // namespace receiver
