// A host without the receiver's behavior, to test the runtime itself. Loads the DLL named by its argument, makes a
// browser that fills a window and then executes the lines of its standard input; every event is printed, one
// line each. A message "frame:SLOT:NUMBER:WORDS" is checked against the slot's content and answered {"checked":NUMBER}:
// word i is to be NUMBER * 2654435761 + i, modulo 2^32. A second argument "destroy-parent" destroys the window while
// the controller is being made.
#include "platform/com_object.h"
#include "platform/com_ptr.h"
#include "platform/handles.h"
#include "platform/hresult.h"

#include <WebView2.h>

#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <utility>

namespace {

using receiver::ComPtr;
using receiver::CoTaskString;

constexpr UINT CommandArrived = WM_APP;

// A handler of any kind: forwards Invoke to a function.
template <typename Interface, const IID& Id, typename... Arguments>
class Handler final : public receiver::ComObject<Interface, Id> {
public:
    using Function = std::function<HRESULT(Arguments...)>;
    static ComPtr<Interface> Make(Function function) {
        return ComPtr<Interface>::Attach(new Handler(std::move(function)));
    }
    HRESULT STDMETHODCALLTYPE Invoke(Arguments... arguments) noexcept override { return function(arguments...); }

private:
    explicit Handler(Function newFunction) : function(std::move(newFunction)) {}
    ~Handler() override = default;

    Function function;
};

using EnvironmentHandler =
    Handler<ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler,
            IID_ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler, HRESULT, ICoreWebView2Environment*>;
using ControllerHandler =
    Handler<ICoreWebView2CreateCoreWebView2ControllerCompletedHandler,
            IID_ICoreWebView2CreateCoreWebView2ControllerCompletedHandler, HRESULT, ICoreWebView2Controller*>;
using MessageHandler =
    Handler<ICoreWebView2WebMessageReceivedEventHandler, IID_ICoreWebView2WebMessageReceivedEventHandler,
            ICoreWebView2*, ICoreWebView2WebMessageReceivedEventArgs*>;
using PermissionHandler =
    Handler<ICoreWebView2PermissionRequestedEventHandler, IID_ICoreWebView2PermissionRequestedEventHandler,
            ICoreWebView2*, ICoreWebView2PermissionRequestedEventArgs*>;
using NavigationHandler =
    Handler<ICoreWebView2NavigationCompletedEventHandler, IID_ICoreWebView2NavigationCompletedEventHandler,
            ICoreWebView2*, ICoreWebView2NavigationCompletedEventArgs*>;

std::string Utf8(PCWSTR text) {
    if (text == nullptr) {
        return {};
    }
    const int bytes = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
    std::string result(static_cast<std::size_t>(bytes), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text, -1, result.data(), static_cast<int>(result.size()), nullptr, nullptr);
    result.pop_back();
    return result;
}

std::wstring Wide(const std::string& text) {
    std::wstring result(static_cast<std::size_t>(MultiByteToWideChar(CP_UTF8, 0, text.c_str(), -1, nullptr, 0)), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, text.c_str(), -1, result.data(), static_cast<int>(result.size()));
    result.pop_back();
    return result;
}

void Print(const std::string& line) {
    std::printf("%s\n", line.c_str());
    std::fflush(stdout);
}

void PrintResult(const std::string& what, HRESULT result, const std::string& more = {}) {
    char code[9];
    wsprintfA(code, "%08lx", result);
    Print(what + " " + code + (more.empty() ? "" : " " + more));
}

class TestHost {
public:
    HRESULT Run(PCWSTR library, bool newDestroyParent);

private:
    struct Slot {
        ComPtr<ICoreWebView2SharedBuffer> buffer;
        const std::uint32_t* words = nullptr;
        std::uint64_t wordCount = 0;
    };

    static LRESULT CALLBACK WindowProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
        if (message == WM_DESTROY) {
            Print("window destroyed");
        }
        return DefWindowProcW(window, message, wParam, lParam);
    }

    HRESULT OnEnvironment(HRESULT result, ICoreWebView2Environment* newEnvironment);
    HRESULT OnController(HRESULT result, ICoreWebView2Controller* newController);
    HRESULT OnMessage(ICoreWebView2WebMessageReceivedEventArgs* args);
    HRESULT OnPermission(ICoreWebView2PermissionRequestedEventArgs* args);
    HRESULT OnNavigation(ICoreWebView2NavigationCompletedEventArgs* args);
    void AddCommands();
    void RunMessageLoop(const bool& goOn);
    void Execute(const std::string& line);
    HRESULT MakeSlot(int number, UINT64 bytes);
    HRESULT CheckFrame(const std::string& text);

    HWND window = nullptr;
    ComPtr<ICoreWebView2Environment> environment;
    ComPtr<ICoreWebView2Controller> controller;
    ComPtr<ICoreWebView2> webView;
    EventRegistrationToken messageToken{};
    std::map<std::string, std::function<HRESULT(const std::string&)>> commands;
    std::map<int, Slot> slots;
    int allowedPermission = -1;
    unsigned goodFrames = 0;
    unsigned badFrames = 0;
    bool destroyParent = false;
    bool nestOnNextMessage = false;
    bool nested = false;
};

HRESULT TestHost::Run(PCWSTR library, bool newDestroyParent) {
    using CreateFunction = HRESULT(STDMETHODCALLTYPE*)(bool, int, PCWSTR, IUnknown*,
                                                       ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler*);
    destroyParent = newDestroyParent;
    AddCommands();
    WNDCLASSW windowClass{};
    windowClass.lpfnWndProc = WindowProcedure;
    windowClass.lpszClassName = L"RigTestHost";
    RegisterClassW(&windowClass);
    window = CreateWindowExW(0, L"RigTestHost", L"Rig test host", WS_OVERLAPPEDWINDOW | WS_VISIBLE, 40, 40, 760, 520,
                             nullptr, nullptr, nullptr, nullptr);
    const HMODULE module = LoadLibraryW(library);
    if (module == nullptr) {
        return receiver::LastErrorResult();
    }
    const auto create = reinterpret_cast<CreateFunction>(
        reinterpret_cast<void*>(GetProcAddress(module, "CreateWebViewEnvironmentWithOptionsInternal")));
    auto handler = EnvironmentHandler::Make(
        [this](HRESULT result, ICoreWebView2Environment* created) { return OnEnvironment(result, created); });
    wchar_t folder[MAX_PATH];
    GetTempPathW(MAX_PATH, folder);
    PrintResult("environment-call",
                create(true, 0, (std::wstring(folder) + L"rig-test-host").c_str(), nullptr, handler.Get()));
    handler.Reset();

    const DWORD thread = GetCurrentThreadId();
    std::thread([thread] {
        for (std::string line; std::getline(std::cin, line);) {
            PostThreadMessageW(thread, CommandArrived, 0, reinterpret_cast<LPARAM>(new std::string(line)));
        }
        PostThreadMessageW(thread, WM_QUIT, 0, 0);
    }).detach();
    const bool forever = true;
    RunMessageLoop(forever);
    return S_OK;
}

void TestHost::RunMessageLoop(const bool& goOn) {
    MSG message;
    while (goOn && GetMessageW(&message, nullptr, 0, 0) > 0) {
        if (message.hwnd == nullptr && message.message == CommandArrived) {
            const std::unique_ptr<std::string> line(reinterpret_cast<std::string*>(message.lParam));
            Execute(*line);
        } else {
            DispatchMessageW(&message);
        }
    }
}

HRESULT TestHost::OnEnvironment(HRESULT result, ICoreWebView2Environment* newEnvironment) {
    CoTaskString version;
    if (newEnvironment != nullptr) {
        (void)newEnvironment->get_BrowserVersionString(version.Put());
    }
    PrintResult("environment", result, newEnvironment == nullptr ? "null" : Utf8(version.Get()));
    if (FAILED(result) || newEnvironment == nullptr) {
        return result;
    }
    environment = ComPtr(newEnvironment);
    const auto handler = ControllerHandler::Make(
        [this](HRESULT code, ICoreWebView2Controller* created) { return OnController(code, created); });
    const HRESULT call = newEnvironment->CreateCoreWebView2Controller(window, handler.Get());
    PrintResult("controller-call", call, GetWindow(window, GW_CHILD) == nullptr ? "no-child" : "child");
    if (destroyParent) {
        DestroyWindow(window);
    }
    return call;
}

HRESULT TestHost::OnController(HRESULT result, ICoreWebView2Controller* newController) {
    PrintResult("controller", result, newController == nullptr ? "null" : "");
    if (FAILED(result) || newController == nullptr) {
        return result;
    }
    controller = ComPtr(newController);
    const HRESULT got = newController->get_CoreWebView2(webView.Put());
    if (FAILED(got)) {
        PrintResult("get_CoreWebView2", got);
        return got;
    }
    RECT client;
    GetClientRect(window, &client);
    (void)newController->put_Bounds(client);
    EventRegistrationToken token;
    PrintResult("add_WebMessageReceived",
                webView->add_WebMessageReceived(
                    MessageHandler::Make([this](ICoreWebView2*, ICoreWebView2WebMessageReceivedEventArgs* args) {
                        return OnMessage(args);
                    }).Get(),
                    &messageToken));
    (void)webView->add_PermissionRequested(
        PermissionHandler::Make([this](ICoreWebView2*, ICoreWebView2PermissionRequestedEventArgs* args) {
            return OnPermission(args);
        }).Get(),
        &token);
    (void)webView->add_NavigationCompleted(
        NavigationHandler::Make([this](ICoreWebView2*, ICoreWebView2NavigationCompletedEventArgs* args) {
            return OnNavigation(args);
        }).Get(),
        &token);
    return S_OK;
}

HRESULT TestHost::OnMessage(ICoreWebView2WebMessageReceivedEventArgs* args) {
    CoTaskString text;
    CoTaskString json;
    CoTaskString source;
    const HRESULT result = args->TryGetWebMessageAsString(text.Put());
    if (SUCCEEDED(result) && Utf8(text.Get()).starts_with("frame:")) {
        return CheckFrame(Utf8(text.Get()));
    }
    (void)args->get_WebMessageAsJson(json.Put());
    (void)args->get_Source(source.Put());
    PrintResult("message", result, Utf8(source.Get()) + " " + Utf8(json.Get()));
    if (std::exchange(nestOnNextMessage, false)) {
        Print("nested");
        nested = true;
        RunMessageLoop(nested);
        Print("unnested");
    }
    return result;
}

HRESULT TestHost::OnPermission(ICoreWebView2PermissionRequestedEventArgs* args) {
    COREWEBVIEW2_PERMISSION_KIND kind{};
    COREWEBVIEW2_PERMISSION_STATE state{};
    CoTaskString uri;
    (void)args->get_PermissionKind(&kind);
    (void)args->get_State(&state);
    (void)args->get_Uri(uri.Put());
    Print("permission " + std::to_string(kind) + " " + std::to_string(state) + " " + Utf8(uri.Get()));
    return kind == allowedPermission ? args->put_State(COREWEBVIEW2_PERMISSION_STATE_ALLOW) : S_OK;
}

HRESULT TestHost::OnNavigation(ICoreWebView2NavigationCompletedEventArgs* args) {
    BOOL isSuccess = FALSE;
    COREWEBVIEW2_WEB_ERROR_STATUS status{};
    CoTaskString source;
    (void)args->get_IsSuccess(&isSuccess);
    (void)args->get_WebErrorStatus(&status);
    (void)webView->get_Source(source.Put());
    Print("navigation " + std::to_string(isSuccess) + " " + std::to_string(status) + " " + Utf8(source.Get()));
    return S_OK;
}

HRESULT TestHost::MakeSlot(int number, UINT64 bytes) {
    ComPtr<ICoreWebView2Environment12> environment12;
    ComPtr<ICoreWebView2_17> webView17;
    RETURN_IF_FAILED(environment.As(IID_ICoreWebView2Environment12, environment12));
    RETURN_IF_FAILED(webView.As(IID_ICoreWebView2_17, webView17));
    Slot& slot = slots[number];
    slot.buffer.Reset();
    RETURN_IF_FAILED(environment12->CreateSharedBuffer(bytes, slot.buffer.Put()));
    BYTE* data = nullptr;
    RETURN_IF_FAILED(slot.buffer->get_Buffer(&data));
    slot.words = reinterpret_cast<const std::uint32_t*>(data);
    slot.wordCount = bytes / sizeof(std::uint32_t);
    return webView17->PostSharedBufferToScript(slot.buffer.Get(), COREWEBVIEW2_SHARED_BUFFER_ACCESS_READ_WRITE,
                                               (L"{\"slot\":" + std::to_wstring(number) + L"}").c_str());
}

HRESULT TestHost::CheckFrame(const std::string& text) {
    int number = 0;
    std::uint32_t frame = 0;
    std::uint64_t words = 0;
    if (std::sscanf(text.c_str(), "frame:%d:%" SCNu32 ":%" SCNu64, &number, &frame, &words) != 3 ||
        !slots.contains(number) || words > slots[number].wordCount) {
        return E_INVALIDARG;
    }
    const std::uint32_t* const slot = slots[number].words;
    const std::uint32_t first = frame * 2654435761U;
    std::uint32_t good = 0;
    while (good < words && slot[good] == first + good) {
        ++good;
    }
    (void)webView->PostWebMessageAsJson((L"{\"checked\":" + std::to_wstring(frame) + L"}").c_str());
    if (good < words) {
        ++badFrames;
        Print("bad-frame " + text + " at " + std::to_string(good));
        return E_FAIL;
    }
    ++goodFrames;
    return S_OK;
}

void TestHost::AddCommands() {
    commands["navigate"] = [this](const std::string& text) { return webView->Navigate(Wide(text).c_str()); };
    commands["html"] = [this](const std::string& text) { return webView->NavigateToString(Wide(text).c_str()); };
    commands["html-bytes"] = [this](const std::string& text) {
        return webView->NavigateToString(std::wstring(std::stoul(text), L'x').c_str());
    };
    commands["json"] = [this](const std::string& text) { return webView->PostWebMessageAsJson(Wide(text).c_str()); };
    commands["slot"] = [this](const std::string& text) {
        std::istringstream values(text);
        int number = 0;
        UINT64 bytes = 0;
        values >> number >> bytes;
        return MakeSlot(number, bytes);
    };
    commands["repost"] = [this](const std::string& text) { // Slot 0 again, with other additional data.
        ComPtr<ICoreWebView2_17> webView17;
        RETURN_IF_FAILED(webView.As(IID_ICoreWebView2_17, webView17));
        return webView17->PostSharedBufferToScript(slots[0].buffer.Get(), COREWEBVIEW2_SHARED_BUFFER_ACCESS_READ_WRITE,
                                                   text.empty() ? nullptr : Wide(text).c_str());
    };
    commands["slot-close"] = [this](const std::string&) { return slots[0].buffer->Close(); };
    commands["slot-size"] = [this](const std::string&) {
        UINT64 bytes = 0;
        return slots[0].buffer->get_Size(&bytes);
    };
    commands["word"] = [this](const std::string& text) {
        std::istringstream values(text);
        int number = 0;
        std::size_t index = 0;
        values >> number >> index;
        Print("word-is " + std::to_string(slots[number].words[index]));
        return S_OK;
    };
    commands["byte"] = [this](const std::string& text) {
        std::istringstream values(text);
        int number = 0;
        std::size_t index = 0;
        values >> number >> index;
        Print("byte-is " + std::to_string(reinterpret_cast<const BYTE*>(slots[number].words)[index]));
        return S_OK;
    };
    commands["frames"] = [this](const std::string&) {
        Print("frames-are " + std::to_string(goodFrames) + " " + std::to_string(badFrames));
        return S_OK;
    };
    commands["allow"] = [this](const std::string& text) {
        allowedPermission = std::stoi(text);
        return S_OK;
    };
    commands["nest"] = [this](const std::string&) { // The next message runs a message loop until "unnest".
        nestOnNextMessage = true;
        return S_OK;
    };
    commands["unnest"] = [this](const std::string&) {
        nested = false;
        return S_OK;
    };
    commands["pixel"] = [this](const std::string& text) {
        std::istringstream values(text);
        int x = 0;
        int y = 0;
        values >> x >> y;
        const HWND child = GetWindow(window, GW_CHILD);
        const HDC context = GetDC(child);
        const COLORREF color = GetPixel(context, x, y);
        ReleaseDC(child, context);
        Print("pixel-is " + std::to_string(GetRValue(color)) + " " + std::to_string(GetGValue(color)) + " " +
              std::to_string(GetBValue(color)));
        return S_OK;
    };
    commands["bounds"] = [this](const std::string& text) {
        std::istringstream values(text);
        RECT bounds{};
        values >> bounds.right >> bounds.bottom;
        return controller->put_Bounds(bounds);
    };
    commands["web-messages"] = [this](const std::string& text) {
        ComPtr<ICoreWebView2Settings> settings;
        RETURN_IF_FAILED(webView->get_Settings(settings.Put()));
        return settings->put_IsWebMessageEnabled(text == "on");
    };
    commands["remove"] = [this](const std::string&) { return webView->remove_WebMessageReceived(messageToken); };
    commands["stub"] = [this](const std::string&) { return webView->OpenDevToolsWindow(); };
    commands["other-thread"] = [this](const std::string&) {
        HRESULT result = S_OK;
        std::thread([&] { result = webView->Navigate(L"about:blank"); }).join();
        return result;
    };
    commands["ancestors"] = [this](const std::string&) {
        for (const IID* const id : {&IID_IUnknown, &IID_ICoreWebView2, &IID_ICoreWebView2_2, &IID_ICoreWebView2_9,
                                    &IID_ICoreWebView2_16, &IID_ICoreWebView2_17}) {
            ComPtr<IUnknown> found;
            RETURN_IF_FAILED(webView.As(*id, found));
        }
        ComPtr<IUnknown> other;
        return webView.As(IID_ICoreWebView2Environment, other);
    };
    commands["close"] = [this](const std::string&) { return controller->Close(); };
    commands["destroy"] = [this](const std::string&) { return DestroyWindow(window) ? S_OK : E_FAIL; };
    commands["release"] = [this](const std::string&) {
        webView.Reset();
        controller.Reset();
        environment.Reset();
        slots.clear();
        return S_OK;
    };
}

void TestHost::Execute(const std::string& line) {
    const std::size_t blank = line.find(' ');
    const std::string name = line.substr(0, blank);
    const auto found = commands.find(name);
    if (found == commands.end()) {
        Print("unknown " + line);
        return;
    }
    if (!webView && name != "frames") {
        Print("no-web-view " + line);
        return;
    }
    PrintResult(name, found->second(blank == std::string::npos ? "" : line.substr(blank + 1)));
}

} // namespace

int wmain(int argumentCount, wchar_t** arguments) {
    const bool destroyParent = argumentCount == 3 && std::wstring(arguments[2]) == L"destroy-parent";
    if (argumentCount != 2 && !destroyParent) {
        std::fputs("usage: rig_test_host CLIENT-DLL [destroy-parent]\n", stderr);
        return 2;
    }
    if (FAILED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED))) {
        return 1;
    }
    const HRESULT result = TestHost().Run(arguments[1], destroyParent);
    CoUninitialize();
    return SUCCEEDED(result) ? 0 : 1;
}
