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
    HRESULT STDMETHODCALLTYPE Invoke(Arguments... arguments) noexcept override { return function_(arguments...); }

private:
    explicit Handler(Function function) : function_(std::move(function)) {}
    ~Handler() override = default;

    Function function_;
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
    HRESULT Run(PCWSTR library, bool destroyParent);

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

    HRESULT OnEnvironment(HRESULT result, ICoreWebView2Environment* environment);
    HRESULT OnController(HRESULT result, ICoreWebView2Controller* controller);
    HRESULT OnMessage(ICoreWebView2WebMessageReceivedEventArgs* args);
    HRESULT OnPermission(ICoreWebView2PermissionRequestedEventArgs* args);
    HRESULT OnNavigation(ICoreWebView2NavigationCompletedEventArgs* args);
    void AddCommands();
    void RunMessageLoop(const bool& goOn);
    void Execute(const std::string& line);
    HRESULT MakeSlot(int number, UINT64 bytes);
    HRESULT CheckFrame(const std::string& text);

    HWND window_ = nullptr;
    ComPtr<ICoreWebView2Environment> environment_;
    ComPtr<ICoreWebView2Controller> controller_;
    ComPtr<ICoreWebView2> webView_;
    EventRegistrationToken messageToken_{};
    std::map<std::string, std::function<HRESULT(const std::string&)>> commands_;
    std::map<int, Slot> slots_;
    int allowedPermission_ = -1;
    unsigned goodFrames_ = 0;
    unsigned badFrames_ = 0;
    bool destroyParent_ = false;
    bool nestOnNextMessage_ = false;
    bool nested_ = false;
};

HRESULT TestHost::Run(PCWSTR library, bool destroyParent) {
    using CreateFunction = HRESULT(STDMETHODCALLTYPE*)(bool, int, PCWSTR, IUnknown*,
                                                       ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler*);
    destroyParent_ = destroyParent;
    AddCommands();
    WNDCLASSW windowClass{};
    windowClass.lpfnWndProc = WindowProcedure;
    windowClass.lpszClassName = L"RigTestHost";
    RegisterClassW(&windowClass);
    window_ = CreateWindowExW(0, L"RigTestHost", L"Rig test host", WS_OVERLAPPEDWINDOW | WS_VISIBLE, 40, 40, 760, 520,
                              nullptr, nullptr, nullptr, nullptr);
    const HMODULE module = LoadLibraryW(library);
    if (module == nullptr) {
        return receiver::LastErrorResult();
    }
    const auto create = reinterpret_cast<CreateFunction>(
        reinterpret_cast<void*>(GetProcAddress(module, "CreateWebViewEnvironmentWithOptionsInternal")));
    auto handler = EnvironmentHandler::Make(
        [this](HRESULT result, ICoreWebView2Environment* environment) { return OnEnvironment(result, environment); });
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

HRESULT TestHost::OnEnvironment(HRESULT result, ICoreWebView2Environment* environment) {
    CoTaskString version;
    if (environment != nullptr) {
        (void)environment->get_BrowserVersionString(version.Put());
    }
    PrintResult("environment", result, environment == nullptr ? "null" : Utf8(version.Get()));
    if (FAILED(result) || environment == nullptr) {
        return result;
    }
    environment_ = ComPtr(environment);
    const auto handler = ControllerHandler::Make(
        [this](HRESULT code, ICoreWebView2Controller* controller) { return OnController(code, controller); });
    const HRESULT call = environment->CreateCoreWebView2Controller(window_, handler.Get());
    PrintResult("controller-call", call, GetWindow(window_, GW_CHILD) == nullptr ? "no-child" : "child");
    if (destroyParent_) {
        DestroyWindow(window_);
    }
    return call;
}

HRESULT TestHost::OnController(HRESULT result, ICoreWebView2Controller* controller) {
    PrintResult("controller", result, controller == nullptr ? "null" : "");
    if (FAILED(result) || controller == nullptr) {
        return result;
    }
    controller_ = ComPtr(controller);
    const HRESULT got = controller->get_CoreWebView2(webView_.Put());
    if (FAILED(got)) {
        PrintResult("get_CoreWebView2", got);
        return got;
    }
    RECT client;
    GetClientRect(window_, &client);
    (void)controller->put_Bounds(client);
    EventRegistrationToken token;
    PrintResult("add_WebMessageReceived",
                webView_->add_WebMessageReceived(
                    MessageHandler::Make([this](ICoreWebView2*, ICoreWebView2WebMessageReceivedEventArgs* args) {
                        return OnMessage(args);
                    }).Get(),
                    &messageToken_));
    (void)webView_->add_PermissionRequested(
        PermissionHandler::Make([this](ICoreWebView2*, ICoreWebView2PermissionRequestedEventArgs* args) {
            return OnPermission(args);
        }).Get(),
        &token);
    (void)webView_->add_NavigationCompleted(
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
    if (std::exchange(nestOnNextMessage_, false)) {
        Print("nested");
        nested_ = true;
        RunMessageLoop(nested_);
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
    return kind == allowedPermission_ ? args->put_State(COREWEBVIEW2_PERMISSION_STATE_ALLOW) : S_OK;
}

HRESULT TestHost::OnNavigation(ICoreWebView2NavigationCompletedEventArgs* args) {
    BOOL isSuccess = FALSE;
    COREWEBVIEW2_WEB_ERROR_STATUS status{};
    CoTaskString source;
    (void)args->get_IsSuccess(&isSuccess);
    (void)args->get_WebErrorStatus(&status);
    (void)webView_->get_Source(source.Put());
    Print("navigation " + std::to_string(isSuccess) + " " + std::to_string(status) + " " + Utf8(source.Get()));
    return S_OK;
}

HRESULT TestHost::MakeSlot(int number, UINT64 bytes) {
    ComPtr<ICoreWebView2Environment12> environment;
    ComPtr<ICoreWebView2_17> webView;
    RETURN_IF_FAILED(environment_.As(IID_ICoreWebView2Environment12, environment));
    RETURN_IF_FAILED(webView_.As(IID_ICoreWebView2_17, webView));
    Slot& slot = slots_[number];
    slot.buffer.Reset();
    RETURN_IF_FAILED(environment->CreateSharedBuffer(bytes, slot.buffer.Put()));
    BYTE* data = nullptr;
    RETURN_IF_FAILED(slot.buffer->get_Buffer(&data));
    slot.words = reinterpret_cast<const std::uint32_t*>(data);
    slot.wordCount = bytes / sizeof(std::uint32_t);
    return webView->PostSharedBufferToScript(slot.buffer.Get(), COREWEBVIEW2_SHARED_BUFFER_ACCESS_READ_WRITE,
                                             (L"{\"slot\":" + std::to_wstring(number) + L"}").c_str());
}

HRESULT TestHost::CheckFrame(const std::string& text) {
    int number = 0;
    std::uint32_t frame = 0;
    std::uint64_t words = 0;
    if (std::sscanf(text.c_str(), "frame:%d:%" SCNu32 ":%" SCNu64, &number, &frame, &words) != 3 ||
        !slots_.contains(number) || words > slots_[number].wordCount) {
        return E_INVALIDARG;
    }
    const std::uint32_t* const slot = slots_[number].words;
    const std::uint32_t first = frame * 2654435761U;
    std::uint32_t good = 0;
    while (good < words && slot[good] == first + good) {
        ++good;
    }
    (void)webView_->PostWebMessageAsJson((L"{\"checked\":" + std::to_wstring(frame) + L"}").c_str());
    if (good < words) {
        ++badFrames_;
        Print("bad-frame " + text + " at " + std::to_string(good));
        return E_FAIL;
    }
    ++goodFrames_;
    return S_OK;
}

void TestHost::AddCommands() {
    commands_["navigate"] = [this](const std::string& text) { return webView_->Navigate(Wide(text).c_str()); };
    commands_["html"] = [this](const std::string& text) { return webView_->NavigateToString(Wide(text).c_str()); };
    commands_["html-bytes"] = [this](const std::string& text) {
        return webView_->NavigateToString(std::wstring(std::stoul(text), L'x').c_str());
    };
    commands_["json"] = [this](const std::string& text) { return webView_->PostWebMessageAsJson(Wide(text).c_str()); };
    commands_["slot"] = [this](const std::string& text) {
        std::istringstream values(text);
        int number = 0;
        UINT64 bytes = 0;
        values >> number >> bytes;
        return MakeSlot(number, bytes);
    };
    commands_["repost"] = [this](const std::string& text) { // Slot 0 again, with other additional data.
        ComPtr<ICoreWebView2_17> webView;
        RETURN_IF_FAILED(webView_.As(IID_ICoreWebView2_17, webView));
        return webView->PostSharedBufferToScript(slots_[0].buffer.Get(), COREWEBVIEW2_SHARED_BUFFER_ACCESS_READ_WRITE,
                                                 text.empty() ? nullptr : Wide(text).c_str());
    };
    commands_["slot-close"] = [this](const std::string&) { return slots_[0].buffer->Close(); };
    commands_["slot-size"] = [this](const std::string&) {
        UINT64 bytes = 0;
        return slots_[0].buffer->get_Size(&bytes);
    };
    commands_["word"] = [this](const std::string& text) {
        std::istringstream values(text);
        int number = 0;
        std::size_t index = 0;
        values >> number >> index;
        Print("word-is " + std::to_string(slots_[number].words[index]));
        return S_OK;
    };
    commands_["byte"] = [this](const std::string& text) {
        std::istringstream values(text);
        int number = 0;
        std::size_t index = 0;
        values >> number >> index;
        Print("byte-is " + std::to_string(reinterpret_cast<const BYTE*>(slots_[number].words)[index]));
        return S_OK;
    };
    commands_["frames"] = [this](const std::string&) {
        Print("frames-are " + std::to_string(goodFrames_) + " " + std::to_string(badFrames_));
        return S_OK;
    };
    commands_["allow"] = [this](const std::string& text) {
        allowedPermission_ = std::stoi(text);
        return S_OK;
    };
    commands_["nest"] = [this](const std::string&) { // The next message runs a message loop until "unnest".
        nestOnNextMessage_ = true;
        return S_OK;
    };
    commands_["unnest"] = [this](const std::string&) {
        nested_ = false;
        return S_OK;
    };
    commands_["pixel"] = [this](const std::string& text) {
        std::istringstream values(text);
        int x = 0;
        int y = 0;
        values >> x >> y;
        const HWND child = GetWindow(window_, GW_CHILD);
        const HDC context = GetDC(child);
        const COLORREF color = GetPixel(context, x, y);
        ReleaseDC(child, context);
        Print("pixel-is " + std::to_string(GetRValue(color)) + " " + std::to_string(GetGValue(color)) + " " +
              std::to_string(GetBValue(color)));
        return S_OK;
    };
    commands_["bounds"] = [this](const std::string& text) {
        std::istringstream values(text);
        RECT bounds{};
        values >> bounds.right >> bounds.bottom;
        return controller_->put_Bounds(bounds);
    };
    commands_["web-messages"] = [this](const std::string& text) {
        ComPtr<ICoreWebView2Settings> settings;
        RETURN_IF_FAILED(webView_->get_Settings(settings.Put()));
        return settings->put_IsWebMessageEnabled(text == "on");
    };
    commands_["remove"] = [this](const std::string&) { return webView_->remove_WebMessageReceived(messageToken_); };
    commands_["stub"] = [this](const std::string&) { return webView_->OpenDevToolsWindow(); };
    commands_["other-thread"] = [this](const std::string&) {
        HRESULT result = S_OK;
        std::thread([&] { result = webView_->Navigate(L"about:blank"); }).join();
        return result;
    };
    commands_["ancestors"] = [this](const std::string&) {
        for (const IID* const id : {&IID_IUnknown, &IID_ICoreWebView2, &IID_ICoreWebView2_2, &IID_ICoreWebView2_9,
                                    &IID_ICoreWebView2_16, &IID_ICoreWebView2_17}) {
            ComPtr<IUnknown> found;
            RETURN_IF_FAILED(webView_.As(*id, found));
        }
        ComPtr<IUnknown> other;
        return webView_.As(IID_ICoreWebView2Environment, other);
    };
    commands_["close"] = [this](const std::string&) { return controller_->Close(); };
    commands_["destroy"] = [this](const std::string&) { return DestroyWindow(window_) ? S_OK : E_FAIL; };
    commands_["release"] = [this](const std::string&) {
        webView_.Reset();
        controller_.Reset();
        environment_.Reset();
        slots_.clear();
        return S_OK;
    };
}

void TestHost::Execute(const std::string& line) {
    const std::size_t blank = line.find(' ');
    const std::string name = line.substr(0, blank);
    const auto found = commands_.find(name);
    if (found == commands_.end()) {
        Print("unknown " + line);
        return;
    }
    if (!webView_ && name != "frames") {
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
