#include "tests/support/webview2_fakes.h"

#include <cstring>

namespace receiver {
namespace {

BrowserFakes* currentFakes = nullptr;

// Calls one of the receiver's handlers as the runtime does.
template <typename Handler, typename... Arguments>
HRESULT Invoke(const ComPtr<Handler>& handler, Arguments... arguments) {
    const AllocationResume product;
    return handler->Invoke(arguments...);
}

} // namespace

// One object

FakeObject::FakeObject(BrowserFakes& owner, std::wstring ownName, std::vector<Identity> newIdentities)
    : fakes(owner), name(std::move(ownName)), identities(std::move(newIdentities)) {
    FillTable(std::make_index_sequence<TableSize>());
    table = functions.data();
    functions[0] = reinterpret_cast<void*>(&Query);
    functions[1] = reinterpret_cast<void*>(&AddReference);
    functions[2] = reinterpret_cast<void*>(&ReleaseReference);
}

template <std::size_t... Slots>
void FakeObject::FillTable(std::index_sequence<Slots...>) {
    functions = {reinterpret_cast<void*>(&Unexpected<Slots>)...};
}

template <std::size_t Slot>
HRESULT STDMETHODCALLTYPE FakeObject::Unexpected(FakeObject* self) {
    const AllocationPause pause;
    ReportFailure(L"unexpected call of method " + std::to_wstring(Slot) + L" of " + self->name);
    return E_NOTIMPL;
}

bool FakeObject::IsReferenced() const {
    if (references == 0) {
        ReportFailure(L"call without a reference to " + name);
    }
    return references > 0;
}

HRESULT STDMETHODCALLTYPE FakeObject::Query(FakeObject* self, REFIID id, void** object) {
    const AllocationPause pause;
    *object = nullptr;
    if (!self->IsReferenced()) {
        return E_UNEXPECTED;
    }
    for (const Identity& identity : self->identities) {
        if (IsEqualIID(identity.id, id)) {
            const HRESULT result = self->fakes.Asked(identity.name);
            return SUCCEEDED(result) ? self->HandOut(reinterpret_cast<IUnknown**>(object)) : result;
        }
    }
    ReportFailure(self->name + L" was queried for an interface that it does not have");
    return E_NOINTERFACE;
}

ULONG STDMETHODCALLTYPE FakeObject::AddReference(FakeObject* self) { return ++self->references; }

ULONG STDMETHODCALLTYPE FakeObject::ReleaseReference(FakeObject* self) {
    const AllocationPause pause;
    if (!self->IsReferenced()) {
        return 0;
    }
    const ULONG left = --self->references;
    if (left == 0 && self->onReleased) {
        self->onReleased();
    }
    return left;
}

// The runtime

BrowserFakes::BrowserFakes() {
    currentFakes = this;
    MakeEnvironment();
    MakeController();
    MakeWebView();
    MakeSettings();
    MakeEventArguments();
}

BrowserFakes::~BrowserFakes() { currentFakes = nullptr; }

BrowserFakes& BrowserFakes::Current() { return *currentFakes; }

FakeObject& BrowserFakes::Make(std::wstring name, std::vector<FakeObject::Identity> identities) {
    FakeObject& object =
        *objects.emplace_back(std::make_unique<FakeObject>(*this, std::move(name), std::move(identities)));
    object.onReleased = [this, &object] { Note(L"released " + object.name); };
    return object;
}

void BrowserFakes::MakeEnvironment() {
    environment = &Make(L"Environment", {{L"ICoreWebView2Environment", IID_ICoreWebView2Environment},
                                         {L"ICoreWebView2Environment12", IID_ICoreWebView2Environment12}});
    environment->Answer(
        &ICoreWebView2Environment::CreateCoreWebView2Controller,
        [](FakeObject& self, HWND window, ICoreWebView2CreateCoreWebView2ControllerCompletedHandler* handler) {
            const HRESULT result =
                WithHandler(self.fakes.Asked(L"CreateCoreWebView2Controller", static_cast<void*>(window)), handler,
                            IID_ICoreWebView2CreateCoreWebView2ControllerCompletedHandler);
            if (SUCCEEDED(result)) {
                self.fakes.controllerHandler = ComPtr(handler);
            }
            return result;
        });
    environment->Answer(&ICoreWebView2Environment12::CreateSharedBuffer,
                        [](FakeObject& self, UINT64 size, ICoreWebView2SharedBuffer** buffer) {
                            const HRESULT result = self.fakes.Asked(L"CreateSharedBuffer", size);
                            return SUCCEEDED(result) ? self.fakes.MakeSharedBuffer(size).HandOut(buffer) : result;
                        });
}

void BrowserFakes::MakeController() {
    controller = &Make(L"Controller", {{L"ICoreWebView2Controller", IID_ICoreWebView2Controller}});
    controller->Answer(&ICoreWebView2Controller::put_Bounds, [](FakeObject& self, RECT bounds) {
        return self.fakes.Asked(L"put_Bounds", bounds.left, bounds.top, bounds.right, bounds.bottom);
    });
    controller->Answer(&ICoreWebView2Controller::get_CoreWebView2, [](FakeObject& self, ICoreWebView2** value) {
        const HRESULT result = self.fakes.Asked(L"get_CoreWebView2");
        return SUCCEEDED(result) ? self.fakes.webView->HandOut(value) : result;
    });
}

void BrowserFakes::MakeWebView() {
    webView = &Make(L"WebView", {{L"ICoreWebView2", IID_ICoreWebView2}, {L"ICoreWebView2_17", IID_ICoreWebView2_17}});
    webView->Answer(&ICoreWebView2::get_Settings, [](FakeObject& self, ICoreWebView2Settings** value) {
        const HRESULT result = self.fakes.Asked(L"get_Settings");
        return SUCCEEDED(result) ? self.fakes.settings->HandOut(value) : result;
    });
    webView->Answer(&ICoreWebView2::get_Source, [](FakeObject& self, LPWSTR* copy) {
        const HRESULT result = self.fakes.Asked(L"get_Source");
        return SUCCEEDED(result) ? self.fakes.GiveString(self.fakes.source, copy) : result;
    });
    webView->Answer(&ICoreWebView2::Navigate,
                    [](FakeObject& self, LPCWSTR address) { return self.fakes.Asked(L"Navigate", address); });
    webView->Answer(&ICoreWebView2::NavigateToString,
                    [](FakeObject& self, LPCWSTR page) { return self.fakes.Asked(L"NavigateToString", page); });
    webView->Answer(&ICoreWebView2::PostWebMessageAsJson,
                    [](FakeObject& self, LPCWSTR json) { return self.fakes.Asked(L"PostWebMessageAsJson", json); });
    webView->Answer(&ICoreWebView2::add_WebMessageReceived, [](FakeObject& self,
                                                               ICoreWebView2WebMessageReceivedEventHandler* handler,
                                                               EventRegistrationToken* token) {
        return self.fakes.Register(L"add_WebMessageReceived", handler, IID_ICoreWebView2WebMessageReceivedEventHandler,
                                   self.fakes.messageHandlers, *token);
    });
    webView->Answer(
        &ICoreWebView2::add_PermissionRequested,
        [](FakeObject& self, ICoreWebView2PermissionRequestedEventHandler* handler, EventRegistrationToken* token) {
            return self.fakes.Register(L"add_PermissionRequested", handler,
                                       IID_ICoreWebView2PermissionRequestedEventHandler, self.fakes.permissionHandlers,
                                       *token);
        });
    webView->Answer(
        &ICoreWebView2::add_NavigationCompleted,
        [](FakeObject& self, ICoreWebView2NavigationCompletedEventHandler* handler, EventRegistrationToken* token) {
            return self.fakes.Register(L"add_NavigationCompleted", handler,
                                       IID_ICoreWebView2NavigationCompletedEventHandler, self.fakes.navigationHandlers,
                                       *token);
        });
    webView->Answer(&ICoreWebView2_17::PostSharedBufferToScript, [](FakeObject& self, ICoreWebView2SharedBuffer* buffer,
                                                                    COREWEBVIEW2_SHARED_BUFFER_ACCESS access,
                                                                    LPCWSTR additionalData) {
        const FakeObject& posted = *reinterpret_cast<FakeObject*>(buffer);
        return self.fakes.Asked(L"PostSharedBufferToScript", posted.name.c_str(), access, additionalData);
    });
}

void BrowserFakes::MakeSettings() {
    settings = &Make(L"Settings", {{L"ICoreWebView2Settings", IID_ICoreWebView2Settings}});
    settings->Answer(&ICoreWebView2Settings::put_AreDefaultContextMenusEnabled, [](FakeObject& self, BOOL enabled) {
        return self.fakes.Asked(L"put_AreDefaultContextMenusEnabled", enabled);
    });
    settings->Answer(&ICoreWebView2Settings::put_AreDevToolsEnabled, [](FakeObject& self, BOOL enabled) {
        return self.fakes.Asked(L"put_AreDevToolsEnabled", enabled);
    });
    settings->Answer(&ICoreWebView2Settings::put_IsStatusBarEnabled, [](FakeObject& self, BOOL enabled) {
        return self.fakes.Asked(L"put_IsStatusBarEnabled", enabled);
    });
}

void BrowserFakes::MakeEventArguments() {
    messageArguments = &Make(L"WebMessageReceivedEventArgs", {});
    messageArguments->Answer(&ICoreWebView2WebMessageReceivedEventArgs::TryGetWebMessageAsString,
                             [](FakeObject& self, LPWSTR* text) {
                                 const HRESULT result = self.fakes.Asked(L"TryGetWebMessageAsString");
                                 if (!self.fakes.messageIsText) {
                                     return E_INVALIDARG;
                                 }
                                 if (FAILED(result) || self.fakes.message == nullptr) {
                                     return result;
                                 }
                                 return self.fakes.GiveString(self.fakes.message, text);
                             });

    permissionArguments = &Make(L"PermissionRequestedEventArgs", {});
    permissionArguments->Answer(&ICoreWebView2PermissionRequestedEventArgs::get_PermissionKind,
                                [](FakeObject& self, COREWEBVIEW2_PERMISSION_KIND* kind) {
                                    return self.fakes.Store(L"get_PermissionKind", self.fakes.permissionKind, *kind);
                                });
    permissionArguments->Answer(&ICoreWebView2PermissionRequestedEventArgs::put_State,
                                [](FakeObject& self, COREWEBVIEW2_PERMISSION_STATE state) {
                                    const HRESULT result = self.fakes.Asked(L"put_State", state);
                                    if (SUCCEEDED(result)) {
                                        self.fakes.permissionState = state;
                                    }
                                    return result;
                                });

    navigationArguments = &Make(L"NavigationCompletedEventArgs", {});
    navigationArguments->Answer(&ICoreWebView2NavigationCompletedEventArgs::get_IsSuccess,
                                [](FakeObject& self, BOOL* success) {
                                    return self.fakes.Store(L"get_IsSuccess", self.fakes.navigationSuccess, *success);
                                });
    navigationArguments->Answer(&ICoreWebView2NavigationCompletedEventArgs::get_WebErrorStatus,
                                [](FakeObject& self, COREWEBVIEW2_WEB_ERROR_STATUS* status) {
                                    return self.fakes.Store(L"get_WebErrorStatus", self.fakes.navigationStatus,
                                                            *status);
                                });

    eventSender = &Make(L"Sender", {});
    for (FakeObject* borrowed : {eventSender, messageArguments, permissionArguments, navigationArguments}) {
        borrowed->onReleased = nullptr; // Every handler only borrows them; that is not recorded.
    }
}

FakeObject& BrowserFakes::MakeSharedBuffer(UINT64 size) {
    FakeObject& buffer = Make(L"SharedBuffer" + std::to_wstring(sharedBuffers.size()), {});
    sharedBuffers.push_back(&buffer);
    buffer.memory.emplace(static_cast<std::size_t>(size));
    buffer.onReleased = [this, &buffer] {
        buffer.memory.reset();
        Note(L"released " + buffer.name);
    };
    buffer.Answer(&ICoreWebView2SharedBuffer::get_Buffer, [](FakeObject& self, BYTE** memory) {
        return self.fakes.Store(L"get_Buffer", self.memory->All().data(), *memory);
    });
    return buffer;
}

void BrowserFakes::Note(std::wstring text) {
    if (onRecord) {
        onRecord(text);
    }
    calls.push_back(std::move(text));
}

HRESULT BrowserFakes::Record(const std::wstring& method, std::initializer_list<std::wstring> arguments) {
    std::wstring call = method;
    for (const std::wstring& argument : arguments) {
        call += L' ' + argument;
    }
    Note(std::move(call));
    const auto fault = faults.find({method, callCounts[method]++});
    if (fault != faults.end()) {
        return fault->second;
    }
    return onCall ? onCall(method) : S_OK;
}

HRESULT BrowserFakes::GiveString(std::wstring_view text, LPWSTR* copy) {
    const std::size_t bytes = text.size() * sizeof(wchar_t);
    *copy = static_cast<LPWSTR>(CoTaskMemAlloc(bytes + sizeof(wchar_t)));
    std::memcpy(*copy, text.data(), bytes);
    (*copy)[text.size()] = L'\0';
    strings.insert(*copy);
    return S_OK;
}

HRESULT BrowserFakes::RequestEnvironment(PCWSTR browserFolder, PCWSTR userDataFolder,
                                         ICoreWebView2EnvironmentOptions* options,
                                         ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler* handler) {
    const AllocationPause pause;
    const HRESULT result = WithHandler(Asked(L"CreateCoreWebView2EnvironmentWithOptions", browserFolder, userDataFolder,
                                             static_cast<const void*>(options)),
                                       handler, IID_ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler);
    if (SUCCEEDED(result)) {
        environmentHandler = ComPtr(handler);
    }
    return result;
}

HRESULT BrowserFakes::CompleteEnvironment(HRESULT result, bool withObject) {
    const auto created =
        withObject ? environment->Reference<ICoreWebView2Environment>() : ComPtr<ICoreWebView2Environment>();
    return Invoke(environmentHandler, result, created.Get());
}

HRESULT BrowserFakes::CompleteController(HRESULT result, bool withObject) {
    const auto created =
        withObject ? controller->Reference<ICoreWebView2Controller>() : ComPtr<ICoreWebView2Controller>();
    return Invoke(controllerHandler, result, created.Get());
}

void BrowserFakes::CompleteBoth() {
    if (CompleteEnvironment() != S_OK || CompleteController() != S_OK) {
        ReportFailure(L"the browser cannot be opened");
    }
}

HRESULT BrowserFakes::RaiseWebMessage(const wchar_t* text) {
    message = text;
    const auto sender = eventSender->Reference<ICoreWebView2>();
    const auto arguments = messageArguments->Reference<ICoreWebView2WebMessageReceivedEventArgs>();
    return Invoke(messageHandlers.at(messageHandlers.size() - 1), sender.Get(), arguments.Get());
}

HRESULT BrowserFakes::RaiseObjectMessage() {
    messageIsText = false;
    const HRESULT result = RaiseWebMessage(nullptr);
    messageIsText = true;
    return result;
}

HRESULT BrowserFakes::RaisePermissionRequest(COREWEBVIEW2_PERMISSION_KIND kind, COREWEBVIEW2_PERMISSION_STATE& state) {
    permissionKind = kind;
    permissionState = state;
    const auto sender = eventSender->Reference<ICoreWebView2>();
    const auto arguments = permissionArguments->Reference<ICoreWebView2PermissionRequestedEventArgs>();
    const HRESULT result = Invoke(permissionHandlers.at(permissionHandlers.size() - 1), sender.Get(), arguments.Get());
    state = permissionState;
    return result;
}

HRESULT BrowserFakes::RaiseNavigationCompleted(BOOL success, COREWEBVIEW2_WEB_ERROR_STATUS status) {
    navigationSuccess = success;
    navigationStatus = status;
    const auto sender = eventSender->Reference<ICoreWebView2>();
    const auto arguments = navigationArguments->Reference<ICoreWebView2NavigationCompletedEventArgs>();
    return Invoke(navigationHandlers.at(navigationHandlers.size() - 1), sender.Get(), arguments.Get());
}

std::vector<std::wstring> BrowserFakes::Leaks() {
    std::vector<std::wstring> leaks;
    for (const auto& object : objects) {
        if (object->references > 0) {
            leaks.push_back(object->name + L": " + std::to_wstring(object->references));
        }
    }
    if (!strings.empty()) {
        leaks.push_back(L"strings: " + std::to_wstring(strings.size()));
    }
    const auto release = [&leaks](auto& handler, const wchar_t* name) {
        if (handler) {
            handler->AddRef();
            if (handler->Release() != 1) {
                leaks.push_back(name);
            }
            handler.Reset();
        }
    };
    release(environmentHandler, L"environment handler");
    release(controllerHandler, L"controller handler");
    for (auto& handler : messageHandlers) {
        release(handler, L"message handler");
    }
    for (auto& handler : permissionHandlers) {
        release(handler, L"permission handler");
    }
    for (auto& handler : navigationHandlers) {
        release(handler, L"navigation handler");
    }
    return leaks;
}

} // namespace receiver

// Takes the place of the loader's.
HRESULT STDMETHODCALLTYPE CreateCoreWebView2EnvironmentWithOptions(
    PCWSTR browserExecutableFolder, PCWSTR userDataFolder, ICoreWebView2EnvironmentOptions* environmentOptions,
    ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler* environmentCreatedHandler) {
    return receiver::BrowserFakes::Current().RequestEnvironment(browserExecutableFolder, userDataFolder,
                                                                environmentOptions, environmentCreatedHandler);
}
