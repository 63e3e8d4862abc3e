// Runs the whole program on sequences of page texts, over the fake Windows of fuzz/windows/. Input: one text per line;
// lines that begin with an exclamation mark are events outside the page, see Apply(). "!start COMMAND LINE" and
// "!id INSTALLATION ID" may come before all others. Until a call is made to fail, the result of every text, and the
// sequence of log lines, boxes, posted messages and recorder calls, are compared with those of a model.

#include "app/receiver_app.h"
#include "frames/frame_message.h"
#include "fuzz/support/input_text.h"
#include "fuzz/support/require.h"
#include "fuzz/support/scratch_folder.h"
#include "fuzz/windows/fake_windows.h"

#include <algorithm>
#include <cctype>
#include <cwchar>
#include <filesystem>
#include <fstream>
#include <initializer_list>

int WINAPI wWinMain(HINSTANCE instance, HINSTANCE previous, PWSTR commandLine, int showCommand);

namespace receiver {
namespace {

constexpr std::size_t MaxLines = 32; // so that no input takes long

// What one event leads to.
struct Outcome {
    HRESULT result = S_OK;
    std::vector<std::wstring> events{}; // see FakeWindows::events

    void Log(const std::wstring& text, HRESULT code = S_OK);
    void Post(std::wstring_view json) { events.push_back(L"PostWebMessageAsJson " + std::wstring(json)); }
    void CallWriter(std::initializer_list<const wchar_t*> calls) {
        for (const wchar_t* const call : calls) {
            events.push_back(std::wstring(L"writer ") + call);
        }
    }
};

// The log has one byte for each character: "?" for a control character and for one beyond Latin-1, which may be a pair
// of surrogates.
void Outcome::Log(const std::wstring& text, HRESULT code) {
    std::wstring line = L"log 03:04:05  ";
    bool afterHighSurrogate = false;
    for (const wchar_t unit : text) {
        const bool ofPair =
            std::exchange(afterHighSurrogate, unit >= 0xD800 && unit < 0xDC00) && unit >= 0xDC00 && unit < 0xE000;
        if (!ofPair) {
            line += unit < L' ' || unit > 0xFF ? L'?' : unit;
        }
    }
    if (code < 0) {
        wchar_t number[] = L" (HRESULT 0x00000000)";
        (void)std::swprintf(number, std::size(number), L" (HRESULT 0x%08X)", static_cast<unsigned>(code));
        line += number;
    }
    events.push_back(line);
}

// A model of the program: its expected state, and what each event is expected to lead to.
class Model {
public:
    Outcome OnText(const std::wstring& text);
    Outcome OnTimer(bool signaled, std::uint64_t nowMs);
    static Outcome OnNavigation(bool success, int status);
    [[nodiscard]] std::uint64_t FramesPublished() const noexcept { return framesPublished; }

private:
    void OnReady(Outcome& outcome);
    void OnOrientation(const std::wstring& mode, Outcome& outcome);
    void OnSnapshot(Outcome& outcome) const;
    void OnRecordStart(Outcome& outcome);
    void OnRecordStop(Outcome& outcome);
    void OnQuality(const std::wstring& value, Outcome& outcome);
    void OnFrame(const std::wstring& text, Outcome& outcome);
    HRESULT Convert(const std::wstring& descriptor, Outcome& outcome);
    [[nodiscard]] std::uint64_t FrameBytes() const noexcept { return std::uint64_t{1} * width * height / 2 * 3; }

    std::uint32_t width = 128;
    std::uint32_t height = 72;
    std::uint64_t canvasBytes = 0;
    std::uint64_t framesHandled = 0;
    unsigned buffersPosted = 0;
    std::uint64_t framesPublished = 0;
    std::uint64_t lastSignalMs = 0;
    std::wstring layout = L"setup";
    bool ready = false;
    bool recording = false;
    bool cameraInUse = false;
};

constexpr wchar_t UsageOn[] = LR"({"type":"virtual-camera-usage","active":true})";
constexpr wchar_t UsageOff[] = LR"({"type":"virtual-camera-usage","active":false})";

// A capture's path as the page reads it: in the known folder of the fake Windows, with its quotes.
constexpr wchar_t CaptureStem[] = LR"(C:\\Users\\\"a\"\\Vistel\\Vistel-20260102-030405-006.)";

void PostMedia(Outcome& outcome, const std::wstring& action, const std::wstring& extension) {
    const std::wstring path = extension.empty() ? extension : CaptureStem + extension;
    outcome.Post(LR"({"type":"media-result","action":")" + action + LR"(","success":)" +
                 (outcome.result >= 0 ? L"true" : L"false") + LR"(,"path":")" + path + LR"(","error":)" +
                 std::to_wstring(static_cast<std::uint32_t>(outcome.result)) + L"}");
}

Outcome Model::OnText(const std::wstring& text) {
    const auto after = [&](const wchar_t* prefix) { return text.substr(std::wstring_view(prefix).size()); };
    Outcome outcome;
    if (text == L"ready") {
        OnReady(outcome);
    } else if (text.starts_with(L"window:orientation:")) {
        OnOrientation(after(L"window:orientation:"), outcome);
    } else if (text == L"media:snapshot") {
        OnSnapshot(outcome);
    } else if (text == L"media:record:start") {
        OnRecordStart(outcome);
    } else if (text == L"media:record:stop") {
        OnRecordStop(outcome);
    } else if (text.starts_with(L"quality:")) {
        OnQuality(after(L"quality:"), outcome);
    } else if (text.starts_with(L"frame:")) {
        OnFrame(text, outcome);
    } else {
        outcome.Log(L"Web message: " + text);
    }
    return outcome;
}

Outcome Model::OnTimer(bool signaled, std::uint64_t nowMs) {
    Outcome outcome;
    const bool wasInUse = cameraInUse;
    if (signaled) {
        lastSignalMs = nowMs;
        cameraInUse = true;
    } else if (nowMs >= lastSignalMs + 4000) {
        cameraInUse = false;
    }
    if (cameraInUse == wasInUse) {
        return outcome;
    }
    outcome.Log(cameraInUse ? L"Virtual camera consumer started requesting frames"
                            : L"Virtual camera consumer stopped requesting frames");
    if (ready) {
        outcome.Post(cameraInUse ? UsageOn : UsageOff);
    }
    return outcome;
}

Outcome Model::OnNavigation(bool success, int status) {
    Outcome outcome;
    outcome.Log(L"Navigation completed: success=" + std::to_wstring(success ? 1 : 0) + L", status=" +
                std::to_wstring(status) + L", source=" + FakeWindows::Current().browser.source);
    return outcome;
}

void Model::OnReady(Outcome& outcome) {
    ready = true;
    outcome.Log(L"Web message: ready");
    for (const wchar_t* const slot : {L" 1 {\"slot\":0}", L" 1 {\"slot\":1}"}) {
        outcome.events.push_back(L"PostSharedBufferToScript SharedBuffer" + std::to_wstring(buffersPosted++) + slot);
    }
    outcome.Log(L"Shared frame buffers posted to script");
    outcome.Post(LR"({"type":"diagnostics","diagnostics":{"windowsVersion":"10.0.22631","buildNumber":22631,)"
                 LR"("architecture":"x64","osSupported":true,"webView2Ready":true,"virtualCameraRegistered":true,)"
                 LR"("appVersion":"0.1.3"}})");
    outcome.Log(L"System diagnostics posted to script");
    if (cameraInUse) {
        outcome.Post(UsageOn);
    }
}

void Model::OnOrientation(const std::wstring& mode, Outcome& outcome) {
    if (mode != L"landscape" && mode != L"portrait" && mode != L"setup") {
        outcome.result = E_INVALIDARG;
    } else if (FakeWindows::Current().minimized) {
        return;
    } else if (FakeWindows::Current().maximized) {
        layout = mode;
        outcome.Log(L"Receiver window layout changed while maximized; preserving maximized state");
    } else if (mode != layout) {
        layout = mode;
        outcome.Log(L"Receiver window layout: " + mode);
    }
}

void Model::OnSnapshot(Outcome& outcome) const {
    if (canvasBytes == 0) {
        outcome.result = MF_E_NOT_AVAILABLE;
    } else if (canvasBytes < FrameBytes()) {
        outcome.result = E_INVALIDARG; // The quality was raised since the last frame.
    }
    outcome.Log(L"Snapshot requested", outcome.result);
    PostMedia(outcome, L"snapshot", canvasBytes == 0 ? L"" : L"jpg");
}

void Model::OnRecordStart(Outcome& outcome) {
    const bool again = std::exchange(recording, true);
    if (!again) {
        outcome.CallWriter({L"Create", L"AddStream", L"SetInputMediaType", L"BeginWriting"});
    }
    outcome.result = again ? HRESULT_FROM_WIN32(ERROR_ALREADY_EXISTS) : S_OK;
    outcome.Log(L"Recording started", outcome.result);
    PostMedia(outcome, L"recording-started", again ? L"" : L"mp4");
}

void Model::OnRecordStop(Outcome& outcome) {
    const bool running = std::exchange(recording, false);
    if (running) {
        outcome.CallWriter({L"Finalize", L"released"});
    }
    outcome.result = running ? S_OK : S_FALSE;
    outcome.Log(L"Recording stopped", outcome.result);
    PostMedia(outcome, L"recording-stopped", running ? L"mp4" : L"");
}

void Model::OnQuality(const std::wstring& value, Outcome& outcome) {
    if (std::exchange(recording, false)) {
        outcome.CallWriter({L"Finalize", L"released"});
        PostMedia(outcome, L"recording-stopped", L"mp4");
    }
    if (value != L"720p" && value != L"1080p") {
        outcome.result = E_INVALIDARG;
        return;
    }
    width = value == L"720p" ? 128 : 192;
    height = value == L"720p" ? 72 : 108;
    outcome.Log(L"Video quality selected: " + value);
}

void Model::OnFrame(const std::wstring& text, Outcome& outcome) {
    if (text.size() < 9 || text[7] != L':' || (text[6] != L'0' && text[6] != L'1') || !ready) {
        outcome.result = E_INVALIDARG;
        return;
    }
    const bool first = framesHandled++ == 0;
    if (first) {
        outcome.Log(L"First frame descriptor: " + text);
    }
    outcome.result = Convert(text.substr(8), outcome);
    if (first) {
        outcome.Log(L"First browser frame published", outcome.result);
    }
}

// The parser and the geometry have their own targets; the model uses the product's.
HRESULT Model::Convert(const std::wstring& text, Outcome& outcome) {
    FrameDescriptor descriptor;
    if (!ParseFrameDescriptor(text, descriptor)) {
        return E_INVALIDARG;
    }
    const PixelFormat* const format = FindPixelFormat(descriptor.format, descriptor.planeCount);
    if (format != nullptr && !FitsSlot(descriptor, *format, SlotSize)) {
        return E_INVALIDARG;
    }
    canvasBytes = FrameBytes();
    if (format == nullptr) {
        return MF_E_INVALIDMEDIATYPE;
    }
    ++framesPublished;
    if (recording) {
        outcome.CallWriter({L"WriteSample"});
    }
    return S_OK;
}

// What the program finds when it starts.
struct Start {
    std::wstring commandLine = L"--embedded";
    std::string installationId; // the first line of its file
};

// Removes the lines about the start.
Start TakeStart(std::vector<std::string_view>& lines) {
    Start start;
    const auto take = [&](std::string_view name) {
        std::optional<std::string_view> value;
        if (lines.size() > 1 && lines.front().starts_with(name)) {
            value = lines.front().substr(name.size());
            lines.erase(lines.begin());
        }
        return value;
    };
    if (const auto commandLine = take("!start ")) {
        start.commandLine = ToUnits(*commandLine).c_str(); // It ends at its first zero.
    }
    start.installationId = take("!id ").value_or("");
    return start;
}

bool IsId(const std::string& text) {
    std::size_t hyphens = 0;
    for (const std::size_t place : {8U, 13U, 18U, 23U}) {
        hyphens += place < text.size() && text[place] == '-' ? 1U : 0U;
    }
    const auto digits = std::ranges::count_if(text, [](unsigned char byte) { return std::isxdigit(byte) != 0; });
    return text.size() == 36 && hyphens == 4 && digits == 32;
}

// The address that the program opens; empty: the built-in page.
std::wstring ExpectedAddress(const Start& start) {
    const std::wstring& commandLine = start.commandLine;
    std::wstring address = L"" VISTEL_RECEIVER_URL;
    if (commandLine.starts_with(L"--url=")) {
        address = commandLine.substr(6);
        if (address.size() > 1 && address.starts_with(L'"') && address.ends_with(L'"')) {
            address = address.substr(1, address.size() - 2);
        }
    }
    if (commandLine == L"--embedded" || address.empty()) {
        return {};
    }
    std::wstring query = L"clientVersion=0.1.3";
    if (IsId(start.installationId)) {
        query =
            L"installationId=" + std::wstring(start.installationId.begin(), start.installationId.end()) + L"&" + query;
    }
    return address + (address.find(L'?') < address.size() ? L"&" : L"?") + query;
}

// One run of the program, controlled through its message loop.
class Session {
public:
    Session(FakeWindows& machine, std::wstring newAddress, std::vector<std::string_view> newLines)
        : windows(machine), address(std::move(newAddress)), lines(std::move(newLines)) {
        lines.resize(std::min(lines.size(), MaxLines));
        windows.nextMessage = [this](MSG& message) { return Next(message); };
        if (lines.front().starts_with("!fail")) {
            Apply(lines.front()); // The start of the program can fail too.
        }
    }
    [[nodiscard]] const Model& Expected() const noexcept { return model; }

private:
    bool Next(MSG& message);
    void Apply(std::string_view line);
    void Post(const std::optional<std::wstring>& text, bool asNull = false);
    void Tick(bool signaled);
    void Navigate(bool success, int status);
    void RequestPermission(int kind);
    void CheckStart() const;
    void Check(HRESULT result, const Outcome& expected) const;
    void Forget() {
        windows.events.clear();
        (void)windows.browser.TakeCalls();
        windows.writers.samples.clear();
    }

    FakeWindows& windows;
    std::wstring address; // of the page; empty: the built-in one
    std::vector<std::string_view> lines;
    std::size_t nextLine = 0;
    Model model;
    bool browserCompleted = false;
};

// The message loop is reached only when the environment has been requested.
bool Session::Next(MSG& message) {
    if (!std::exchange(browserCompleted, true)) {
        const HRESULT environment = Answer();
        if (SUCCEEDED(windows.browser.CompleteEnvironment(environment, SUCCEEDED(environment)))) {
            const HRESULT controller = Answer();
            (void)windows.browser.CompleteController(controller, SUCCEEDED(controller));
        }
        CheckStart();
    } else if (nextLine < lines.size()) {
        const std::string_view line = lines[nextLine++];
        Forget();
        if (line.starts_with('!')) {
            Apply(line);
        } else {
            Post(ToUnits(line));
        }
    } else if (windows.windowExists) {
        message = {windows.Window(), WM_DESTROY, 0, 0};
    } else {
        return false;
    }
    return true;
}

void Session::Apply(std::string_view line) {
    const std::vector<std::uint64_t> numbers = NumbersIn(line);
    const std::uint64_t number = numbers.empty() ? 1 : numbers[0];
    if (line == "!object") {
        Post(std::nullopt);
    } else if (line == "!null") {
        Post(std::wstring(), true);
    } else if (line == "!signal" || line == "!quiet") {
        Tick(line == "!signal");
    } else if (line == "!minimize" || line == "!maximize" || line == "!restore") {
        windows.minimized = line == "!minimize";
        windows.maximized = line == "!maximize";
    } else if (line.starts_with("!navigated")) {
        Navigate(number % 2 != 0, static_cast<int>(number / 2 % 19));
    } else if (line.starts_with("!permission")) {
        RequestPermission(static_cast<int>(number % 16));
    } else if (line.starts_with("!later")) {
        windows.nowMs += number % 1'000'000'000;
    } else if (line.starts_with("!fail")) {
        windows.callsUntilFailure = static_cast<unsigned>(number % 1000); // counted from here
    }
}

void Session::Post(const std::optional<std::wstring>& text, bool asNull) {
    if (!windows.browser.AcceptsWebMessages()) {
        return; // A call failed while the browser was opened.
    }
    const HRESULT result =
        text ? windows.browser.RaiseWebMessage(asNull ? nullptr : text->c_str()) : windows.browser.RaiseObjectMessage();
    if (!text) {
        Check(result, {E_INVALIDARG});
    } else {
        Check(result, model.OnText(text->c_str())); // A text ends at its first zero.
    }
}

void Session::Tick(bool signaled) {
    windows.eventSignaled = signaled;
    (void)windows.windowProcedure(windows.Window(), WM_TIMER, UsageTimer, 0);
    Check(S_OK, model.OnTimer(signaled, windows.nowMs));
}

// After a failure the handlers of these events may be missing.
void Session::Navigate(bool success, int status) {
    if (!windows.failed) {
        const HRESULT result = windows.browser.RaiseNavigationCompleted(
            success ? TRUE : FALSE, static_cast<COREWEBVIEW2_WEB_ERROR_STATUS>(status));
        Check(result, Model::OnNavigation(success, status));
    }
}

void Session::RequestPermission(int kind) {
    if (!windows.failed) {
        auto state = COREWEBVIEW2_PERMISSION_STATE_DEFAULT;
        const HRESULT result =
            windows.browser.RaisePermissionRequest(static_cast<COREWEBVIEW2_PERMISSION_KIND>(kind), state);
        Check(result, {S_OK});
        const bool allowed = state == COREWEBVIEW2_PERMISSION_STATE_ALLOW;
        Require(windows.failed || allowed == (kind == COREWEBVIEW2_PERMISSION_KIND_AUTOPLAY),
                "only autoplay is allowed");
    }
}

void Session::CheckStart() const {
    if (!windows.failed) {
        Outcome expected;
        for (const wchar_t* const line : {L"Receiver starting", L"Virtual camera usage monitor initialized",
                                          L"WebView2 environment request accepted", L"WebView2 environment callback",
                                          L"WebView2 controller callback"}) {
            expected.Log(line);
        }
        if (!address.empty()) {
            expected.Log(L"Receiver URL: " + address);
        }
        expected.Log(L"Receiver page navigation requested");
        Require(windows.events == expected.events, "the start opens the page of the command line");
    }
}

void Session::Check(HRESULT result, const Outcome& expected) const {
    if (!windows.failed) {
        Require(result == expected.result, "a text has the expected result");
        Require(windows.events == expected.events, "a text has the expected events");
    }
}

} // namespace
} // namespace receiver

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace receiver;
    static const ScratchFolder scratch;
    static const GuardedMemory memory(sizeof(FrameFileLayout));
    auto& file = *reinterpret_cast<FrameFileLayout*>(memory.Bytes().data());
    file.header = {FrameFileMagic, FrameFileVersion, 128, 72, 128, 13824, 0, 0, 0, 0, {}};

    {
        FakeWindows windows(memory.Bytes());
        windows.programData = scratch.AsVariable();
        windows.frameFileSize = memory.Bytes().size();
        std::vector<std::string_view> lines = SplitLines(AsText(data, size));
        Start start = TakeStart(lines);
        const Session session(windows, ExpectedAddress(start), std::move(lines));
        const std::filesystem::path idFile(windows.programData + L"Vistel\\installation-id.txt");
        if (!start.installationId.empty()) {
            std::ofstream(idFile, std::ios::binary) << start.installationId << '\n';
        }
        const int exitCode = wWinMain(nullptr, nullptr, start.commandLine.data(), SW_SHOWNORMAL);
        if (!start.installationId.empty()) {
            std::filesystem::remove(idFile);
        }

        Require(exitCode == 0 || (exitCode == 1 && windows.failed), "the exit code is that of the run");
        Require(windows.failed || !windows.boxShown, "nothing fails unless a call was made to fail");
        Require(windows.failed || file.header.sequence == 2 * session.Expected().FramesPublished(),
                "frames are published");
        Require(file.header.sequence % 2 == 0, "the sequence is even");
        const std::string leaks = windows.Leaks();
        Require(leaks.empty(), leaks.c_str());
    }
    return 0;
}
