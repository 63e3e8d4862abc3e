// Runs the whole program on sequences of page texts, over the fake Windows of fuzz/windows/. Input: one text per line;
// lines that begin with an exclamation mark are events outside the page, see Apply(). Until a call is made to fail, the
// result, log lines and posted messages of every text are compared with those of a model.

#include "app/log_line.h"
#include "app/receiver_app.h"
#include "browser/page_json.h"
#include "frames/frame_message.h"
#include "frames/usage_state.h"
#include "fuzz/support/input_text.h"
#include "fuzz/support/require.h"
#include "fuzz/support/scratch_folder.h"
#include "fuzz/windows/fake_windows.h"

#include <algorithm>

int WINAPI wWinMain(HINSTANCE instance, HINSTANCE previous, PWSTR commandLine, int showCommand);

namespace receiver {
namespace {

constexpr std::size_t MaxLines = 32; // so that no input takes long

// What one event leads to.
struct Outcome {
    HRESULT result = S_OK;
    std::vector<std::string> logLines;
    std::vector<std::wstring> posted;

    void Log(std::wstring_view text, HRESULT code = S_OK) { logLines.push_back(FormatLogLine({3, 4, 5}, text, code)); }
};

// A model of the program: its expected state, and what each event is expected to lead to.
class Model {
public:
    Outcome OnText(const std::wstring& text);
    Outcome OnTimer(bool signalled, std::uint64_t nowMs);
    [[nodiscard]] std::uint64_t FramesPublished() const noexcept { return framesPublished_; }

private:
    void OnReady(Outcome& outcome);
    void OnOrientation(const std::wstring& mode, Outcome& outcome);
    void OnSnapshot(Outcome& outcome) const;
    void OnRecordStart(Outcome& outcome);
    void OnRecordStop(Outcome& outcome);
    void OnQuality(const std::wstring& value, Outcome& outcome);
    void OnFrame(const std::wstring& text, Outcome& outcome);
    HRESULT Convert(const std::wstring& descriptor);
    [[nodiscard]] std::uint64_t FrameBytes() const noexcept { return std::uint64_t{1} * width_ * height_ / 2 * 3; }

    std::uint32_t width_ = 1280;
    std::uint32_t height_ = 720;
    std::uint64_t canvasBytes_ = 0;
    std::uint64_t framesHandled_ = 0;
    std::uint64_t framesPublished_ = 0;
    std::uint64_t lastSignalMs_ = 0;
    std::wstring layout_ = L"setup";
    bool ready_ = false;
    bool recording_ = false;
    bool cameraInUse_ = false;
};

// A capture's path as the page reads it: in the known folder of the fake Windows, with its quotes.
constexpr wchar_t CaptureStem[] = LR"(C:\\Users\\\"a\"\\Vistel\\Vistel-20260102-030405-006.)";

void PostMedia(Outcome& outcome, const std::wstring& action, const std::wstring& extension) {
    const std::wstring path = extension.empty() ? extension : CaptureStem + extension;
    outcome.posted.push_back(LR"({"type":"media-result","action":")" + action + LR"(","success":)" +
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

Outcome Model::OnTimer(bool signalled, std::uint64_t nowMs) {
    Outcome outcome;
    if (const auto change = OnUsagePoll(signalled, nowMs, lastSignalMs_, cameraInUse_)) {
        const bool started = *change == UsageChange::Started;
        outcome.Log(started ? L"Virtual camera consumer started requesting frames"
                            : L"Virtual camera consumer stopped requesting frames");
        if (ready_) {
            outcome.posted.emplace_back(started ? UsageOnJson : UsageOffJson);
        }
    }
    return outcome;
}

void Model::OnReady(Outcome& outcome) {
    ready_ = true;
    outcome.Log(L"Web message: ready");
    outcome.Log(L"Shared frame buffers posted to script");
    outcome.Log(L"System diagnostics posted to script");
    outcome.posted = {L"slot {\"slot\":0}", L"slot {\"slot\":1}", DiagnosticsJson({10, 0, 22631}, true)};
    if (cameraInUse_) {
        outcome.posted.emplace_back(UsageOnJson);
    }
}

void Model::OnOrientation(const std::wstring& mode, Outcome& outcome) {
    if (mode != L"landscape" && mode != L"portrait" && mode != L"setup") {
        outcome.result = E_INVALIDARG;
    } else if (FakeWindows::Current().minimized) {
        return;
    } else if (FakeWindows::Current().maximized) {
        layout_ = mode;
        outcome.Log(L"Receiver window layout changed while maximized; preserving maximized state");
    } else if (mode != layout_) {
        layout_ = mode;
        outcome.Log(L"Receiver window layout: " + mode);
    }
}

void Model::OnSnapshot(Outcome& outcome) const {
    if (canvasBytes_ == 0) {
        outcome.result = MF_E_NOT_AVAILABLE;
    } else if (canvasBytes_ < FrameBytes()) {
        outcome.result = E_INVALIDARG; // The quality was raised since the last frame.
    }
    outcome.Log(L"Snapshot requested", outcome.result);
    PostMedia(outcome, L"snapshot", canvasBytes_ == 0 ? L"" : L"jpg");
}

void Model::OnRecordStart(Outcome& outcome) {
    const bool again = std::exchange(recording_, true);
    outcome.result = again ? HRESULT_FROM_WIN32(ERROR_ALREADY_EXISTS) : S_OK;
    outcome.Log(L"Recording started", outcome.result);
    PostMedia(outcome, L"recording-started", again ? L"" : L"mp4");
}

void Model::OnRecordStop(Outcome& outcome) {
    const bool running = std::exchange(recording_, false);
    outcome.result = running ? S_OK : S_FALSE;
    outcome.Log(L"Recording stopped", outcome.result);
    PostMedia(outcome, L"recording-stopped", running ? L"mp4" : L"");
}

void Model::OnQuality(const std::wstring& value, Outcome& outcome) {
    if (std::exchange(recording_, false)) {
        PostMedia(outcome, L"recording-stopped", L"mp4");
    }
    if (value != L"720p" && value != L"1080p") {
        outcome.result = E_INVALIDARG;
        return;
    }
    width_ = value == L"720p" ? 1280 : 1920;
    height_ = value == L"720p" ? 720 : 1080;
    outcome.Log(L"Video quality selected: " + value);
}

void Model::OnFrame(const std::wstring& text, Outcome& outcome) {
    if (text.size() < 9 || text[7] != L':' || (text[6] != L'0' && text[6] != L'1') || !ready_) {
        outcome.result = E_INVALIDARG;
        return;
    }
    outcome.result = Convert(text.substr(8));
    if (framesHandled_++ == 0) {
        outcome.Log(L"First frame descriptor: " + text);
        outcome.Log(L"First browser frame published", outcome.result);
    }
}

// The parser and the geometry have their own targets; the model uses the product's.
HRESULT Model::Convert(const std::wstring& text) {
    FrameDescriptor descriptor;
    if (!ParseFrameDescriptor(text, descriptor)) {
        return E_INVALIDARG;
    }
    const auto layout = RecognizeFormat(descriptor.format, descriptor.planeCount);
    if (layout && !FitsSlot(MakeGeometry(descriptor, *layout, width_, height_), SlotSize)) {
        return E_INVALIDARG;
    }
    canvasBytes_ = FrameBytes();
    if (!layout) {
        return MF_E_INVALIDMEDIATYPE;
    }
    ++framesPublished_;
    return S_OK;
}

// One run of the program, controlled through its message loop.
class Session {
public:
    Session(FakeWindows& machine, std::vector<std::string_view> lines) : windows_(machine), lines_(std::move(lines)) {
        lines_.resize(std::min(lines_.size(), MaxLines));
        windows_.nextMessage = [this](MSG& message) { return Next(message); };
        if (lines_.front().starts_with("!fail")) {
            Apply(lines_.front()); // The start of the program can fail too.
        }
    }
    [[nodiscard]] const Model& Expected() const noexcept { return model_; }

private:
    bool Next(MSG& message);
    void Apply(std::string_view line);
    void Post(const std::optional<std::wstring>& text, bool asNull = false);
    void Tick(bool signalled);
    void Check(HRESULT result, const Outcome& expected) const;
    void Forget() {
        windows_.logLines.clear();
        (void)windows_.browser.TakeCalls();
        windows_.writers.samples.clear();
    }
    [[nodiscard]] std::vector<std::wstring> TakePosted() const;

    FakeWindows& windows_;
    std::vector<std::string_view> lines_;
    std::size_t nextLine_ = 0;
    Model model_;
    bool browserCompleted_ = false;
};

// The message loop is reached only when the environment has been requested.
bool Session::Next(MSG& message) {
    if (!std::exchange(browserCompleted_, true)) {
        const HRESULT environment = Answer();
        if (SUCCEEDED(windows_.browser.CompleteEnvironment(environment, SUCCEEDED(environment)))) {
            const HRESULT controller = Answer();
            (void)windows_.browser.CompleteController(controller, SUCCEEDED(controller));
        }
    } else if (nextLine_ < lines_.size()) {
        const std::string_view line = lines_[nextLine_++];
        Forget();
        if (line.starts_with('!')) {
            Apply(line);
        } else {
            Post(ToUnits(line));
        }
    } else if (windows_.windowExists) {
        message = {windows_.Window(), WM_DESTROY, 0, 0};
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
        windows_.minimized = line == "!minimize";
        windows_.maximized = line == "!maximize";
    } else if (line.starts_with("!later")) {
        windows_.nowMs += number % 1'000'000'000;
    } else if (line.starts_with("!fail")) {
        windows_.callsUntilFailure = static_cast<unsigned>(number % 1000); // counted from here
    }
}

void Session::Post(const std::optional<std::wstring>& text, bool asNull) {
    if (!windows_.browser.AcceptsWebMessages()) {
        return; // A call failed while the browser was opened.
    }
    const std::wstring box = windows_.boxText;
    const HRESULT result = text ? windows_.browser.RaiseWebMessage(asNull ? nullptr : text->c_str())
                                : windows_.browser.RaiseObjectMessage();
    Require(windows_.boxText == box, "a text opens no message box");
    if (!text) {
        Check(result, {E_INVALIDARG, {}, {}});
    } else {
        Check(result, model_.OnText(text->c_str())); // A text ends at its first zero.
    }
}

void Session::Tick(bool signalled) {
    windows_.eventSignalled = signalled;
    (void)windows_.windowProcedure(windows_.Window(), WM_TIMER, UsageTimer, 0);
    Check(S_OK, model_.OnTimer(signalled, windows_.nowMs));
}

std::vector<std::wstring> Session::TakePosted() const {
    constexpr std::wstring_view Text = L"PostWebMessageAsJson ";
    constexpr std::wstring_view Slot = L"PostSharedBufferToScript ";
    std::vector<std::wstring> posted;
    for (const std::wstring& call : windows_.browser.TakeCalls()) {
        if (call.starts_with(Text)) {
            posted.push_back(call.substr(Text.size()));
        } else if (call.starts_with(Slot)) {
            posted.push_back(L"slot " + call.substr(call.find(L'{')));
        }
    }
    return posted;
}

void Session::Check(HRESULT result, const Outcome& expected) const {
    if (!windows_.failed) {
        Require(result == expected.result, "a text has the expected result");
        Require(windows_.logLines == expected.logLines, "a text has the expected log lines");
        Require(TakePosted() == expected.posted, "a text has the expected posted messages");
    }
}

} // namespace
} // namespace receiver

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace receiver;
    static const ScratchFolder scratch;
    static const GuardedMemory memory(sizeof(FrameFileLayout));
    auto& file = *reinterpret_cast<FrameFileLayout*>(memory.Bytes().data());
    file.header = {FrameFileMagic, FrameFileVersion, 1280, 720, 1280, 1382400, 0, 0, 0, 0, {}};

    FakeWindows windows(memory.Bytes());
    windows.programData = scratch.AsVariable();
    windows.frameFileSize = memory.Bytes().size();
    const Session session(windows, SplitLines(AsText(data, size)));
    wchar_t commandLine[] = L"--embedded";
    const int exitCode = wWinMain(nullptr, nullptr, commandLine, SW_SHOWNORMAL);

    Require(exitCode == 0 || (exitCode == 1 && windows.failed), "the exit code is that of the run");
    Require(windows.failed || windows.boxText.empty(), "nothing fails unless a call was made to fail");
    Require(windows.failed || file.header.sequence == 2 * session.Expected().FramesPublished(), "frames are published");
    Require(file.header.sequence % 2 == 0, "the sequence is even");
    const std::string leaks = windows.Leaks();
    Require(leaks.empty(), leaks.c_str());
    return 0;
}
