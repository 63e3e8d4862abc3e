#include "tests/support/call_watch.h"

#include "tests/support/function_patch.h"
#include "tests/support/function_table.h"

#include <unknwn.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <new>
#include <stdexcept>
#include <utility>

namespace receiver {
namespace {

// On x64 the caller removes the arguments, so that one function with as many arguments as any call has can replace
// every function. What it reads beyond a call's own arguments is passed on and not used.
using Word = std::uint64_t;
using Arguments = std::array<Word, 12>;
using AnyFunction = Word(WINAPI*)(Word, Word, Word, Word, Word, Word, Word, Word, Word, Word, Word, Word);

constexpr std::size_t MaxImports = 320;
constexpr std::size_t MaxFunctions = 448; // with the methods
constexpr std::size_t MaxHeld = 64;

struct Function {
    std::array<char, 64> name{};
    const CallRule* rule = nullptr;
    void* original = nullptr; // of an import
    unsigned calls = 0; // since the watch began
};

struct HeldItem {
    const char* kind;
    Word identity;
};

// What the product holds in place of a COM object.
struct Proxy {
    void* const* table;
    const char* interfaceName;
    IUnknown* object;
    ULONG references;
};

// For every method of the browser.
const CallRule BrowserRule{.name = "WebView2",
                           .failure = Failure::Result,
                           .knownCode = HRESULT_FROM_WIN32(ERROR_INVALID_STATE)};

// Nothing here allocates while the product runs, so that the product's allocations can be counted.
std::array<Function, MaxFunctions> functions;
std::size_t functionCount = 0;
std::array<HeldItem, MaxHeld> held{};
std::size_t heldCount = 0;
std::array<Proxy*, MaxHeld> proxies{};
std::span<const CallRule> rules;
std::optional<CallWatch::Fault> failing;
CallWatch* currentWatch = nullptr;
bool happened = false;
bool watching = false;
bool productRuns = false;
bool inside = false; // the watch itself or a COM object runs

class Inside {
public:
    Inside() noexcept : outer(std::exchange(inside, true)), error(GetLastError()) {}
    Inside(const Inside&) = delete;
    Inside& operator=(const Inside&) = delete;
    ~Inside() {
        SetLastError(error);
        inside = outer;
    }

    void SetError(DWORD newError) noexcept { error = newError; }

private:
    bool outer;
    DWORD error;
    AllocationPause pause;
};

Word CallOriginal(void* function, const Arguments& a) {
    return reinterpret_cast<AnyFunction>(function)(a[0], a[1], a[2], a[3], a[4], a[5], a[6], a[7], a[8], a[9], a[10],
                                                   a[11]);
}

bool IsProductCall(unsigned pauses = 0) {
    if (!watching || !productRuns || inside) {
        return false;
    }
    inside = true; // Reading a variable of this thread calls the system.
    const DWORD error = GetLastError();
    const bool paused = AllocationPauses() > pauses;
    SetLastError(error);
    inside = false;
    return !paused;
}

const CallRule* FindRule(std::string_view name) {
    const auto rule = std::find_if(rules.begin(), rules.end(), [&](const CallRule& one) { return one.name == name; });
    return rule != rules.end() ? &*rule : nullptr;
}

std::size_t NumberOf(std::string_view name) {
    for (std::size_t number = 0; number < functionCount; ++number) {
        if (name == functions.at(number).name.data()) {
            return number;
        }
    }
    Function& added = functions.at(functionCount);
    if (name.size() >= added.name.size()) {
        throw std::invalid_argument("name too long: " + std::string(name));
    }
    std::copy(name.begin(), name.end(), added.name.begin());
    added.rule = FindRule(name);
    return functionCount++;
}

Word IdentityOf(const Resource& resource, const Arguments& arguments, Word result) {
    switch (resource.place) {
    case Resource::Place::Result:
        return result;
    case Resource::Place::Argument:
        return arguments.at(resource.argument);
    case Resource::Place::PointedToByArgument:
        return *reinterpret_cast<const Word*>(arguments.at(resource.argument));
    case Resource::Place::None:
        break;
    }
    return 0;
}

void Acquire(const Resource& resource, Word identity) {
    if (resource.kind != nullptr) {
        held.at(heldCount++) = {resource.kind, identity};
    }
}

void Release(const Resource& resource, Word identity) {
    for (std::size_t i = 0; resource.kind != nullptr && i < heldCount; ++i) {
        if (held.at(i).identity == identity && std::strcmp(held.at(i).kind, resource.kind) == 0) {
            held.at(i) = held.at(--heldCount);
            return;
        }
    }
}

bool Succeeded(Failure failure, Word result) {
    switch (failure) {
    case Failure::Zero:
        return result != 0;
    case Failure::Ones:
        return static_cast<std::int32_t>(result) != -1;
    case Failure::Result:
    case Failure::NtStatus:
        return static_cast<std::int32_t>(result) >= 0;
    case Failure::Status:
        return static_cast<std::int32_t>(result) == 0;
    default:
        return true;
    }
}

DWORD ErrorOf(HRESULT code) { return static_cast<DWORD>(code) & 0xFFFF; }

Word FailedValue(Failure failure) {
    switch (failure) {
    case Failure::Ones:
        return ~Word{0};
    case Failure::Result:
        return static_cast<std::uint32_t>(failing->code);
    case Failure::Status:
        return ErrorOf(failing->code);
    case Failure::NtStatus:
        return 0xC000007F; // STATUS_DISK_FULL
    default:
        return 0;
    }
}

// Counts the call and returns whether it is the one that fails.
bool TakeTurn(Function& function) {
    const unsigned index = function.calls++;
    const bool fails = failing && &function == &functions.at(failing->function) &&
                       (failing->index == index || (failing->lasting && failing->index < index));
    happened = happened || fails;
    return fails;
}

void* const* ProxyTable() noexcept;
void* ThunkOf(std::size_t number);

void WrapObject(const Resource& object, const Arguments& arguments) {
    auto** const place = reinterpret_cast<void**>(arguments.at(object.argument));
    if (*place == nullptr) {
        return;
    }
    const auto free = std::find(proxies.begin(), proxies.end(), nullptr);
    if (free == proxies.end()) {
        throw std::length_error("too many COM objects");
    }
    // Not by operator new, whose count shows whether the product frees its memory.
    void* const memory = std::malloc(sizeof(Proxy));
    *free = new (memory) Proxy{ProxyTable(), object.kind, static_cast<IUnknown*>(*place), 1};
    *place = memory;
}

// Records what a successful call acquired and wraps the objects that it returned. Returns the result for the product.
Word Account(const CallRule& rule, const Arguments& arguments, Word result) {
    Acquire(rule.acquires, IdentityOf(rule.acquires, arguments, result));
    for (const Resource& object : rule.objects) {
        WrapObject(object, arguments);
    }
    if (rule.function.empty()) {
        return result;
    }
    const std::size_t number = NumberOf(rule.function);
    functions.at(number).original = reinterpret_cast<void*>(result);
    return reinterpret_cast<Word>(ThunkOf(number));
}

// One call of a function, or of a method with the object as the first argument.
Word Watch(Function& function, void* original, const Arguments& arguments, bool method) {
    const CallRule* const rule = function.rule;
    if (rule != nullptr) {
        Release(rule->releases, IdentityOf(rule->releases, arguments, 0));
    }
    if (!IsProductCall()) {
        return CallOriginal(original, arguments);
    }
    if (rule != nullptr && rule->recorded && currentWatch->onRecordedCall) {
        const Inside bookkeeping;
        currentWatch->onRecordedCall(rule->name);
    }
    if (TakeTurn(function)) {
        Inside bookkeeping;
        if (rule->worksAnyway || rule->releases.kind != nullptr) {
            (void)CallOriginal(original, arguments);
        }
        for (const Resource& object : rule->objects) {
            *reinterpret_cast<void**>(arguments.at(object.argument)) = nullptr;
        }
        bookkeeping.SetError(ErrorOf(failing->code));
        return FailedValue(rule->failure);
    }
    Word result = 0;
    if (method) {
        const Inside object;
        result = CallOriginal(original, arguments);
    } else {
        result = CallOriginal(original, arguments);
    }
    if (rule != nullptr && Succeeded(rule->failure, result)) {
        const Inside bookkeeping;
        result = Account(*rule, arguments, result);
    }
    return result;
}

template <std::size_t Number>
Word WINAPI Import(Word a, Word b, Word c, Word d, Word e, Word f, Word g, Word h, Word i, Word j, Word k, Word l) {
    Function& function = functions.at(Number);
    return Watch(function, function.original, {a, b, c, d, e, f, g, h, i, j, k, l}, false);
}

template <std::size_t... Numbers>
std::array<void*, sizeof...(Numbers)> ImportThunks(std::index_sequence<Numbers...>) noexcept {
    return {reinterpret_cast<void*>(&Import<Numbers>)...};
}

void* ThunkOf(std::size_t number) {
    static const std::array thunks = ImportThunks(std::make_index_sequence<MaxImports>());
    return thunks.at(number);
}

// References of the product and of the functions that it passes the object to.

ULONG STDMETHODCALLTYPE AddProxyReference(Proxy* self) { return ++self->references; }

ULONG STDMETHODCALLTYPE ReleaseProxy(Proxy* self) {
    const ULONG left = --self->references;
    if (left == 0) {
        const Inside object;
        self->object->Release();
        *std::find(proxies.begin(), proxies.end(), self) = nullptr;
        std::free(self);
    }
    return left;
}

std::size_t MethodNumber(const char* interfaceName, std::size_t slot) {
    const std::string_view owner(interfaceName);
    for (const CallRule& rule : rules) {
        if (rule.slot == slot && rule.name.starts_with(owner) && rule.name.substr(owner.size()).starts_with("::")) {
            return NumberOf(rule.name);
        }
    }
    return NumberOf(std::string(owner) + "::method " + std::to_string(slot));
}

template <std::size_t Slot>
Word WINAPI Method(Word self, Word b, Word c, Word d, Word e, Word f, Word g, Word h, Word i, Word j, Word k, Word l) {
    const auto* const proxy = reinterpret_cast<const Proxy*>(self);
    auto* const object = proxy->object;
    void* const original = (*reinterpret_cast<void***>(object))[Slot];
    const Arguments arguments{reinterpret_cast<Word>(object), b, c, d, e, f, g, h, i, j, k, l};
    std::size_t number = 0;
    {
        const Inside bookkeeping;
        number = MethodNumber(proxy->interfaceName, Slot);
    }
    return Watch(functions.at(number), original, arguments, true);
}

template <std::size_t... Slots>
std::array<void*, sizeof...(Slots)> MethodThunks(std::index_sequence<Slots...>) noexcept {
    return {reinterpret_cast<void*>(&Method<Slots>)...};
}

void* const* ProxyTable() noexcept {
    static const std::array table = [] {
        auto thunks = MethodThunks(std::make_index_sequence<TableSize>());
        thunks[1] = reinterpret_cast<void*>(&AddProxyReference);
        thunks[2] = reinterpret_cast<void*>(&ReleaseProxy);
        return thunks;
    }();
    return table.data();
}

// The C runtime's library: its functions are not the platform's, and its memory fails through operator new. Those that
// have a rule are intercepted.
bool IsRuntime(std::string_view library) {
    return library.starts_with("msvcrt") || library.starts_with("api-ms-win-crt");
}

} // namespace

class CallWatch::Imports {
public:
    Imports() {
        for (const ImportedFunction& import : ImportedFunctions()) {
            if (IsRuntime(import.library) && FindRule(import.name) == nullptr) {
                continue;
            }
            const std::size_t number = NumberOf(import.name);
            Function& function = functions.at(number);
            if (function.rule == nullptr || function.rule->failure != Failure::Unseen) {
                function.original = *import.address;
                redirections.emplace_back(std::vector<void**>{import.address}, ThunkOf(number));
            }
        }
    }

private:
    std::deque<Redirection> redirections;
};

std::vector<SeenFunction> SeenFunctions() {
    std::vector<SeenFunction> seen;
    for (std::size_t number = 0; number < functionCount; ++number) {
        if (functions.at(number).calls > 0) {
            seen.push_back({number, functions.at(number).name.data(), functions.at(number).rule});
        }
    }
    return seen;
}

std::vector<std::string> HeldObjects() {
    std::vector<std::string> names;
    for (const Proxy* const proxy : proxies) {
        if (proxy != nullptr) {
            names.emplace_back(proxy->interfaceName);
        }
    }
    return names;
}

ProductCalls::ProductCalls() noexcept : outer(std::exchange(productRuns, true)) {}

ProductCalls::~ProductCalls() { productRuns = outer; }

CallWatch::CallWatch(std::span<const CallRule> callRules) {
    rules = callRules;
    heldCount = 0;
    imports = std::make_unique<Imports>();
    currentWatch = this;
    watching = true;
}

CallWatch::~CallWatch() { watching = false; }

void CallWatch::Begin(std::optional<Fault> fault) noexcept {
    failing = fault;
    happened = false;
    for (Function& function : functions) {
        function.calls = 0;
    }
}

void CallWatch::FailNothing() noexcept { failing.reset(); }

bool CallWatch::Happened() const noexcept { return happened; }

HRESULT CallWatch::OnBrowserCall(const std::wstring& method) {
    if (!IsProductCall(1)) { // One pause is that of the fake.
        return S_OK;
    }
    const Inside bookkeeping;
    Function& function = functions.at(NumberOf(std::string(method.begin(), method.end())));
    function.rule = &BrowserRule;
    return TakeTurn(function) ? failing->code : S_OK;
}

std::vector<std::string> CallWatch::Held() const {
    std::vector<std::string> kinds;
    for (std::size_t i = 0; i < heldCount; ++i) {
        kinds.emplace_back(held.at(i).kind);
    }
    return kinds;
}

} // namespace receiver
