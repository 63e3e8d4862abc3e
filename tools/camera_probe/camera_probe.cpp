// camera_probe.exe: a stand-in for the virtual camera. Reads every new frame from the shared frame file, signals the
// camera's event at the same time, can show the frames in a window, and reports what it read as a sentence, as JSON and
// as a picture.
#include "examples/camera/frame_reader.h"
#include "platform/handles.h"
#include "tools/camera_probe/doctor.h"
#include "tools/camera_probe/frame_picture.h"
#include "tools/camera_probe/judge_commands.h"
#include "tools/camera_probe/live_figures.h"
#include "tools/camera_probe/live_view.h"
#include "tools/camera_probe/probe_report.h"

#include <windows.h>

#include <objbase.h>
#include <timeapi.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace receiver {
namespace {

using Clock = ProbeReport::Clock;

constexpr char Usage[] =
    "usage: camera_probe [--watch] [--file PATH] [--seconds N] [--signal EVENT] [--report FILE.json]\n"
    "                    [--picture FILE.png]\n"
    "       camera_probe --check FILE [--seconds N]\n"
    "       camera_probe --play FILE [SCENARIO]\n"
    "       camera_probe --doctor [--json]\n"
    "Reads frames from the shared frame file until standard input ends.\n"
    "  --seconds N         reads for N whole seconds; 0 reads the newest frame only\n"
    "  --file PATH         reads this file instead of the receiver's\n"
    "  --signal EVENT      signals this event at every attempt to read, except with --seconds 0\n"
    "  --watch             shows the frames in a window until it is closed, and signals the\n"
    "                      receiver's event unless --signal names another one\n"
    "  --report FILE.json  writes counts, frame rate and ages of the frames\n"
    "  --picture FILE.png  writes the newest frame, with --watch the content of the window\n"
    "--check holds the writer of the file against the rules of docs/frame-file.md.\n"
    "--play writes the file in the receiver's place, also as it is after mishaps, and prints what\n"
    "a right reader does with it.\n"
    "--doctor looks for what keeps the picture from applications, and says what to do. It changes\n"
    "nothing. --json prints the same for programs. The exit code is 0, or the sum of:\n"
    "  4 no frame file        8 frame file denied     16 its size is wrong   32 its version is wrong\n"
    "  64 it is damaged       128 no current frame    256 another error of the frame file\n"
    "  512 no camera is registered                    1024 the registered camera's file is missing\n"
    "  2048 the usage event cannot be opened          4096 no WebView2 runtime\n"
    "  8192 no log\n";

// How often the figures are updated while no frame arrives.
constexpr std::chrono::milliseconds FiguresPeriod{500};

// How long to retry while a frame is being written, when only the newest frame is wanted.
constexpr std::chrono::seconds NewestFrameLimit{1};

struct Options {
    bool watch = false;
    std::wstring file;
    std::optional<std::chrono::seconds> duration; // empty: until standard input ends
    std::wstring usageEvent; // empty: no event is signaled
    std::wstring report;
    std::wstring picture;
};

// Decimal digits only, at most 999999.
std::optional<std::chrono::seconds> ParseSeconds(std::wstring_view text) {
    if (text.empty() || text.size() > 6) {
        return std::nullopt;
    }
    int value = 0;
    for (const wchar_t digit : text) {
        if (digit < L'0' || digit > L'9') {
            return std::nullopt;
        }
        value = value * 10 + (digit - L'0');
    }
    return std::chrono::seconds(value);
}

std::optional<Options> ParseOptions(int count, wchar_t** arguments) {
    Options options;
    for (int i = 1; i < count; ++i) {
        const std::wstring_view name = arguments[i];
        if (name == L"--watch") {
            options.watch = true;
            continue;
        }
        const std::wstring_view value = ++i < count ? arguments[i] : L"";
        if (value.empty()) {
            return std::nullopt;
        }
        if (name == L"--file") {
            options.file = value;
        } else if (name == L"--signal") {
            options.usageEvent = value;
        } else if (name == L"--report") {
            options.report = value;
        } else if (name == L"--picture") {
            options.picture = value;
        } else if (name == L"--seconds") {
            options.duration = ParseSeconds(value);
            if (!options.duration) {
                return std::nullopt;
            }
        } else {
            return std::nullopt;
        }
    }
    if (options.file.empty()) {
        options.file = vistel::DefaultPath().text;
    }
    if (options.watch && options.usageEvent.empty()) {
        options.usageEvent = vistel::UsageSignal::EventName;
    }
    return options;
}

// Signals `ended` at the end of standard input.
void WaitForInputEnd(HANDLE ended) {
    const HANDLE input = GetStdHandle(STD_INPUT_HANDLE);
    std::array<char, 256> bytes{};
    DWORD count = 0;
    while (ReadFile(input, bytes.data(), static_cast<DWORD>(bytes.size()), &count, nullptr) != FALSE && count != 0) {
    }
    SetEvent(ended);
}

class Probe {
public:
    explicit Probe(const Options& options) : reader(options.file.c_str()), startTickMs(GetTickCount64()) {
        if (options.watch) {
            view.emplace();
        }
    }

    // Polls for new frames once a millisecond until `ended` is signaled, `duration` is over or the view was closed, and
    // signals `usage`, which may be null, with each poll.
    void Watch(HANDLE ended, std::optional<std::chrono::seconds> duration, const vistel::UsageSignal* usage) {
        const Clock::time_point start = Clock::now();
        while (WaitForSingleObject(ended, 1) == WAIT_TIMEOUT && (!duration || Clock::now() - start < *duration) &&
               !(view && view->IsClosed())) {
            if (usage != nullptr) {
                usage->Signal();
            }
            ReadOnce();
            UpdateView();
        }
        TakeNewest();
    }

    // Reads the newest frame unless it was read before; retries while a frame is being written.
    void TakeNewest() {
        const Clock::time_point start = Clock::now();
        while (ReadOnce() == vistel::ReadResult::Busy && Clock::now() - start < NewestFrameLimit) {
            Sleep(1);
        }
        UpdateView();
    }

    [[nodiscard]] Picture NewestPicture() { return view ? view->Content() : ToPicture(frame); }
    [[nodiscard]] const ProbeReport& Report() noexcept {
        report.SetRetries(reader.RetryCount());
        return report;
    }

private:
    vistel::ReadResult ReadOnce() {
        vistel::FrameInfo info;
        const vistel::ReadResult result = reader.Read(info, [this](std::uint32_t width, std::uint32_t height) {
            copy.resize(std::size_t{width} * height * 3 / 2);
            return vistel::Destination{copy.data(), width};
        });
        if (result == vistel::ReadResult::NewFrame) {
            frame.info = info;
            frame.nv12.swap(copy);
            const Clock::time_point now = Clock::now();
            const std::uint64_t nowMs = GetTickCount64();
            // A time stamp in the future was made before the system was restarted.
            const std::uint64_t ageMs = nowMs > info.timestampMs ? nowMs - info.timestampMs : 0;
            const bool current = info.timestampMs >= startTickMs && info.timestampMs <= nowMs;
            report.AddFrame(info, ageMs, current, now);
            if (view) {
                figures.AddFrame(now, ageMs);
            }
            if (reader.IsContradicted(info, {frame.nv12.data(), info.width})) {
                report.AddTornRead();
            }
        } else if (result == vistel::ReadResult::Damaged) {
            report.AddTornRead();
        }
        return result;
    }

    // Shows a new frame; without one, updates the figures after FiguresPeriod.
    void UpdateView() {
        const Clock::time_point now = Clock::now();
        if (view && (frame.info.sequence != shownSequence || now - shownTime > FiguresPeriod)) {
            view->Show(frame, figures.Text(now, frame.info, vistel::IsStale(frame.info), report.TornReads()));
            shownSequence = frame.info.sequence;
            shownTime = now;
        }
    }

    vistel::FrameReader reader;
    Frame frame; // the newest
    std::vector<std::uint8_t> copy; // of a frame that may turn out to be torn
    ProbeReport report;
    LiveFigures figures;
    std::optional<LiveView> view;
    std::uint64_t shownSequence = 0;
    Clock::time_point shownTime;
    std::uint64_t startTickMs;
};

bool WriteText(const std::wstring& path, std::string_view text) {
    const UniqueFile file(CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_ALWAYS,
                                      FILE_ATTRIBUTE_NORMAL, nullptr));
    DWORD written = 0;
    return file && WriteFile(file.Get(), text.data(), static_cast<DWORD>(text.size()), &written, nullptr) != FALSE &&
           written == text.size();
}

// An event that is signaled at the end of standard input. Never closed: the input thread may still wait when the
// program ends.
HANDLE InputEndEvent() {
    const HANDLE ended = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    std::thread(WaitForInputEnd, ended).detach();
    return ended;
}

// The exit code of --check, --play and --doctor; empty for other arguments.
std::optional<int> RunCommand(int count, wchar_t** arguments) {
    const std::wstring_view command = count > 1 ? arguments[1] : L"";
    const bool asJson = count == 3 && std::wstring_view(arguments[2]) == L"--json";
    if (command == L"--doctor" && (count == 2 || asJson)) {
        return RunDoctor(asJson);
    }
    if (count < 3) {
        return std::nullopt;
    }
    if (command == L"--play" && count <= 4) {
        return PlayFrames(arguments[2], count == 4 ? arguments[3] : L"", InputEndEvent());
    }
    if (command != L"--check") {
        return std::nullopt;
    }
    std::optional<std::chrono::seconds> duration;
    if (count == 5 && std::wstring_view(arguments[3]) == L"--seconds") {
        duration = ParseSeconds(arguments[4]);
    }
    if (count != 3 && !duration) {
        return std::nullopt;
    }
    return CheckWriter(arguments[2], duration, InputEndEvent());
}

// False when the named event can be neither opened nor created.
bool Run(Probe& probe, const Options& options) {
    if (options.duration == std::chrono::seconds(0)) {
        probe.TakeNewest();
        return true;
    }
    std::optional<vistel::UsageSignal> usage;
    if (!options.usageEvent.empty() && !usage.emplace(options.usageEvent.c_str()).IsOpen()) {
        return false;
    }
    const HANDLE ended = options.duration ? CreateEventW(nullptr, TRUE, FALSE, nullptr) : InputEndEvent();
    timeBeginPeriod(1);
    probe.Watch(ended, options.duration, usage ? &*usage : nullptr);
    timeEndPeriod(1);
    return true;
}

int Main(int count, wchar_t** arguments) {
    if (const std::optional<int> exitCode = RunCommand(count, arguments)) {
        return *exitCode;
    }
    const std::optional<Options> options = ParseOptions(count, arguments);
    if (!options) {
        std::fputs(Usage, stderr);
        return 2;
    }
    Probe probe(*options);
    if (!Run(probe, *options)) {
        std::fputs("The event could not be opened.\n", stderr);
        return 1;
    }

    const ProbeReport& report = probe.Report();
    if (report.FramesRead() == 0) {
        std::puts("No frame was seen in the shared frame file.");
    } else {
        std::printf("%llu frames read, %llu torn, %.2f frames per second.\n",
                    static_cast<unsigned long long>(report.FramesRead()),
                    static_cast<unsigned long long>(report.TornReads()), report.FramesPerSecond());
    }
    int exitCode = 0;
    if (!options->report.empty() && !WriteText(options->report, report.ToJson())) {
        std::fputs("The report could not be written.\n", stderr);
        exitCode = 1;
    }
    if (!options->picture.empty()) {
        Picture picture = probe.NewestPicture();
        const HRESULT result = WritePng(picture, options->picture);
        if (FAILED(result)) {
            std::fprintf(stderr, "The picture could not be written: 0x%08lX.\n", static_cast<unsigned long>(result));
            exitCode = 1;
        }
    }
    return exitCode;
}

} // namespace
} // namespace receiver

int wmain(int count, wchar_t** arguments) {
    const HRESULT result = CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    if (FAILED(result)) {
        std::fprintf(stderr, "COM could not be initialized: 0x%08lX.\n", static_cast<unsigned long>(result));
        return 1;
    }
    const int exitCode = receiver::Main(count, arguments);
    CoUninitialize();
    return exitCode;
}
