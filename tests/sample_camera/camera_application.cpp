// An application that has the sample camera open in each format of one size at once, for tests of the whole path:
//   camera_application DLL [HEIGHT FOLDER]
// Puts each frame into a file in FOLDER, named for the format, then prints the format and "frame"; for the camera's
// card only the format and "card", followed by "stale" when it equals the one without a running receiver. Without
// HEIGHT it only loads the DLL. Ends when its standard input ends.
#include "examples/camera/frame_reader.h"
#include "sample_camera/card.h"
#include "tests/sample_camera/capture_graph.h"
#include "tests/sample_camera/picture_reference.h"

#include <windows.h>

#include <objbase.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace sample_camera {
namespace {

void WaitForInputEnd() {
    std::array<char, 256> bytes{};
    DWORD count = 0;
    while (ReadFile(GetStdHandle(STD_INPUT_HANDLE), bytes.data(), static_cast<DWORD>(bytes.size()), &count, nullptr) !=
               FALSE &&
           count != 0) {
    }
}

std::string NameOf(const VideoFormat& format) {
    constexpr const char* Names[] = {"NV12", "YUY2", "I420"};
    return Names[static_cast<std::size_t>(format.pixels)];
}

// The card begins with rows of gray.
bool IsCard(const Sample& sample, PixelFormat pixels) {
    const std::size_t step = pixels == PixelFormat::Yuy2 ? 2 : 1;
    for (std::size_t i = 0; i < 64 * step; i += step) {
        if (sample.bytes[i] != 40) {
            return false;
        }
    }
    return true;
}

std::vector<std::uint8_t> StaleCard(const VideoFormat& format) {
    std::vector<std::uint8_t> nv12(ImageBytes({PixelFormat::Nv12, format.size}));
    DrawCard(std::string("No picture: ") + vistel::Text(vistel::PictureState::Stale), nv12.data(), format.size);
    return ReferenceConversion(nv12.data(), format);
}

struct Stream {
    VideoFormat format;
    std::vector<std::uint8_t> staleCard;
    std::unique_ptr<CaptureGraph> graph;
};

bool Open(const wchar_t* dll, std::uint32_t height, std::vector<Stream>& streams) {
    for (const VideoFormat& format : VideoFormats) {
        if (format.size.height != height) {
            continue;
        }
        auto graph = std::make_unique<CaptureGraph>(MakeCamera(dll));
        if (FAILED(graph->SetFormat({format, ShortestInterval100ns})) || FAILED(graph->Render(&PIN_CATEGORY_CAPTURE)) ||
            FAILED(graph->Run())) {
            return false;
        }
        streams.push_back({format, StaleCard(format), std::move(graph)});
    }
    return true;
}

void Take(const Stream& stream, const std::filesystem::path& folder) {
    while (const std::optional<Sample> sample = stream.graph->Next(std::chrono::milliseconds(0))) {
        const std::string name = NameOf(stream.format);
        const char* what = "frame";
        if (IsCard(*sample, stream.format.pixels)) {
            what = sample->bytes == stream.staleCard ? "card stale" : "card";
        } else {
            std::ofstream(folder / name, std::ios::binary)
                .write(reinterpret_cast<const char*>(sample->bytes.data()),
                       static_cast<std::streamsize>(sample->bytes.size()));
        }
        std::printf("%s %s\n", name.c_str(), what);
        std::fflush(stdout);
    }
}

int Main(int count, wchar_t** arguments) {
    if (count != 2 && count != 4) {
        return 2;
    }
    std::vector<Stream> streams;
    if (count == 2
            ? LoadLibraryW(arguments[1]) == nullptr
            : !Open(arguments[1], static_cast<std::uint32_t>(std::wcstoul(arguments[2], nullptr, 10)), streams)) {
        std::fputs("The camera could not be opened.\n", stderr);
        return 1;
    }
    std::puts("open");
    std::fflush(stdout);
    std::atomic<bool> ended = false;
    std::thread input([&ended] {
        WaitForInputEnd();
        ended = true;
    });
    while (!ended) {
        for (const Stream& stream : streams) {
            Take(stream, arguments[3]);
        }
        Sleep(1);
    }
    input.join();
    return 0;
}

} // namespace
} // namespace sample_camera

int wmain(int count, wchar_t** arguments) {
    const HRESULT result = CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    const int exitCode = SUCCEEDED(result) ? sample_camera::Main(count, arguments) : 1;
    CoUninitialize();
    return exitCode;
}
