// In-process fakes of the WebView2 objects that the receiver uses. They record every call, let any call fail, and count
// every reference. The test acts as the runtime: it completes creations and raises events. They also build natively,
// for the fuzz targets, over fuzz/windows/windows.h.
#pragma once

#include "platform/com_ptr.h"
#include "tests/support/allocation_fault.h"
#include "tests/support/function_table.h"
#include "tests/support/guarded_bytes.h"
#include "tests/support/report_failure.h"

#include <windows.h>

#include <objbase.h> // The vendor's WebView2.h needs its macros.

#include <WebView2.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace receiver {

class BrowserFakes;

// One object. Its callers see only the pointer to its table of functions. A method without a body fails the test when
// it is called. The object stays in memory after its last reference, so that a call through a released pointer is
// noticed.
class FakeObject {
public:
    struct Identity {
        std::wstring name;
        IID id;
    };

    // `identities`: the interfaces that QueryInterface finds, with the names under which the queries are recorded.
    FakeObject(BrowserFakes& fakes, std::wstring name, std::vector<Identity> newIdentities);
    FakeObject(const FakeObject&) = delete;
    FakeObject& operator=(const FakeObject&) = delete;

    // Gives a method its body, which receives this object before the arguments.
    template <typename Interface, typename... Arguments, typename Body>
    void Answer(HRESULT (STDMETHODCALLTYPE Interface::*method)(Arguments...), Body) {
        functions[SlotOf(method)] = reinterpret_cast<void*>(&Call<Body, Arguments...>);
    }

    // A new reference, as a method hands it out.
    template <typename Interface>
    [[nodiscard]] ComPtr<Interface> Reference() {
        return ComPtr<Interface>(reinterpret_cast<Interface*>(this));
    }
    template <typename Interface>
    HRESULT HandOut(Interface** object) {
        *object = reinterpret_cast<Interface*>(this);
        (*object)->AddRef();
        return S_OK;
    }

private:
    void** table = nullptr; // What a COM caller sees: it must be the first member.

public:
    BrowserFakes& fakes;
    const std::wstring name;
    ULONG references = 0;
    std::function<void()> onReleased; // called after the last reference was released
    std::optional<GuardedBytes> memory; // of a shared buffer

private:
    template <typename Body, typename... Arguments>
    static HRESULT STDMETHODCALLTYPE Call(FakeObject* self, Arguments... arguments) {
        const AllocationPause pause;
        return self->IsReferenced() ? Body{}(*self, arguments...) : E_UNEXPECTED;
    }
    template <std::size_t Slot>
    static HRESULT STDMETHODCALLTYPE Unexpected(FakeObject* self);
    static HRESULT STDMETHODCALLTYPE Query(FakeObject* self, REFIID id, void** object);
    static ULONG STDMETHODCALLTYPE AddReference(FakeObject* self);
    static ULONG STDMETHODCALLTYPE ReleaseReference(FakeObject* self);

    template <std::size_t... Slots>
    void FillTable(std::index_sequence<Slots...>);
    [[nodiscard]] bool IsReferenced() const;

    std::vector<Identity> identities;
    std::array<void*, TableSize> functions{};
};

// The runtime of one test: all its objects, and the record of the calls that they received. Only one exists at a time.
class BrowserFakes {
public:
    BrowserFakes();
    BrowserFakes(const BrowserFakes&) = delete;
    BrowserFakes& operator=(const BrowserFakes&) = delete;
    ~BrowserFakes();

    // The record, in order: each method's name, followed by its plain arguments separated by blanks; for a query the
    // name of the interface; for the last reference to an object "released" and its name.
    [[nodiscard]] std::vector<std::wstring> TakeCalls() { return std::exchange(calls, {}); }
    void Note(std::wstring text);

    // Lets call number `call` of `method`, counted from 0 over the whole test, fail with `code`.
    void Fail(const std::wstring& method, HRESULT code, unsigned call = 0) { faults[{method, call}] = code; }

    std::function<void(const std::wstring& text)> onRecord; // called with everything that is recorded
    // If set, gives the result of every call for which `Fail` was not called.
    std::function<HRESULT(const std::wstring& method)> onCall;

    // Completions. Without an object the handler receives the code and a null pointer.
    HRESULT CompleteEnvironment(HRESULT result = S_OK, bool withObject = true);
    HRESULT CompleteController(HRESULT result = S_OK, bool withObject = true);
    // Both with success, for a test that begins after them.
    void CompleteBoth();

    // Whether the receiver has registered for messages.
    [[nodiscard]] bool AcceptsWebMessages() const noexcept { return !messageHandlers.empty(); }
    // Events; each returns the result of its handler. A page's text may be a null pointer.
    HRESULT RaiseWebMessage(const wchar_t* text);
    // The page posted something that is not a string.
    HRESULT RaiseObjectMessage();
    HRESULT RaisePermissionRequest(COREWEBVIEW2_PERMISSION_KIND kind, COREWEBVIEW2_PERMISSION_STATE& state);
    HRESULT RaiseNavigationCompleted(BOOL success, COREWEBVIEW2_WEB_ERROR_STATUS status);

    // Memory of the shared buffers in the order of their creation; after the buffer's release any access is a crash.
    [[nodiscard]] std::uint8_t* BufferMemory(unsigned number) const {
        return sharedBuffers.at(number)->memory->All().data();
    }

    std::wstring source = L"https://receiver.example/page"; // of the page shown

    // Releases the runtime's references to the handlers, and returns what the receiver still holds: objects, strings,
    // and handlers that have other references. Empty if there is no leak.
    [[nodiscard]] std::vector<std::wstring> Leaks();
    // To be called for everything that CoTaskMemFree frees.
    void OnTaskMemoryFreed(void* memory) { strings.erase(memory); }

    static BrowserFakes& Current();
    // The call that the loader forwards.
    HRESULT RequestEnvironment(PCWSTR browserFolder, PCWSTR userDataFolder, ICoreWebView2EnvironmentOptions* options,
                               ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler* handler);

private:
    friend FakeObject;

    static std::wstring Text(const wchar_t* text) { return text != nullptr ? text : L"(null)"; }
    static std::wstring Text(const void* pointer) { return Text(reinterpret_cast<std::uintptr_t>(pointer)); }
    template <typename Number>
    requires std::is_arithmetic_v<Number> || std::is_enum_v<Number>
    static std::wstring Text(Number number) { return std::to_wstring(+number); }

    // The result of a call that receives a handler: like the platform, the fakes refuse a null pointer. A handler that
    // does not answer for its own interface, which the platform might query, is a failure of the test.
    static HRESULT WithHandler(HRESULT result, IUnknown* handler, REFIID id) {
        if (handler == nullptr) {
            return E_POINTER;
        }
        ComPtr<IUnknown> found;
        if (FAILED(handler->QueryInterface(id, found.PutVoid())) || found.Get() != handler) {
            ReportFailure(L"a handler does not answer for its interface");
        }
        return result;
    }
    // Records a call and returns its result.
    template <typename... Arguments>
    HRESULT Asked(const std::wstring& method, Arguments... arguments) {
        return Record(method, {Text(arguments)...});
    }
    // The same for a call that registers a handler, and for one that reads a value.
    template <typename Handler>
    HRESULT Register(const std::wstring& method, Handler* handler, REFIID id, std::vector<ComPtr<Handler>>& handlers,
                     EventRegistrationToken& token) {
        const HRESULT result = WithHandler(Asked(method), handler, id);
        if (SUCCEEDED(result)) {
            handlers.emplace_back(handler);
            token.value = static_cast<INT64>(handlers.size());
        }
        return result;
    }
    template <typename Value>
    HRESULT Store(const std::wstring& method, const Value& value, Value& result) {
        const HRESULT code = Asked(method);
        if (SUCCEEDED(code)) {
            result = value;
        }
        return code;
    }
    HRESULT Record(const std::wstring& method, std::initializer_list<std::wstring> arguments);
    FakeObject& Make(std::wstring name, std::vector<FakeObject::Identity> identities);
    void MakeEnvironment();
    void MakeController();
    void MakeWebView();
    void MakeSettings();
    void MakeEventArguments();
    FakeObject& MakeSharedBuffer(UINT64 size);
    HRESULT GiveString(std::wstring_view text, LPWSTR* copy);

    std::vector<std::wstring> calls;
    std::map<std::pair<std::wstring, unsigned>, HRESULT> faults;
    std::map<std::wstring, unsigned> callCounts;
    std::vector<std::unique_ptr<FakeObject>> objects;
    std::vector<FakeObject*> sharedBuffers;
    FakeObject* environment = nullptr;
    FakeObject* controller = nullptr;
    FakeObject* webView = nullptr;
    FakeObject* eventSender = nullptr; // of all events; the receiver uses its own view instead
    FakeObject* settings = nullptr;
    FakeObject* messageArguments = nullptr;
    FakeObject* permissionArguments = nullptr;
    FakeObject* navigationArguments = nullptr;
    const wchar_t* message = nullptr; // of the event that is being raised, like the members below
    bool messageIsText = true;
    COREWEBVIEW2_PERMISSION_KIND permissionKind = COREWEBVIEW2_PERMISSION_KIND_UNKNOWN_PERMISSION;
    COREWEBVIEW2_PERMISSION_STATE permissionState = COREWEBVIEW2_PERMISSION_STATE_DEFAULT;
    BOOL navigationSuccess = FALSE;
    COREWEBVIEW2_WEB_ERROR_STATUS navigationStatus = COREWEBVIEW2_WEB_ERROR_STATUS_UNKNOWN;
    std::set<const void*> strings; // given to the receiver and not freed yet
    ComPtr<ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler> environmentHandler;
    ComPtr<ICoreWebView2CreateCoreWebView2ControllerCompletedHandler> controllerHandler;
    std::vector<ComPtr<ICoreWebView2WebMessageReceivedEventHandler>> messageHandlers;
    std::vector<ComPtr<ICoreWebView2PermissionRequestedEventHandler>> permissionHandlers;
    std::vector<ComPtr<ICoreWebView2NavigationCompletedEventHandler>> navigationHandlers;
};

} // namespace receiver
