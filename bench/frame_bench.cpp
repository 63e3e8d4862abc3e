// frame_bench [--cold] [CASE]: measures the frame path in one process and prints a line of JSON for each measurement.
// CASE is a regular expression. bench.mjs runs several processes and prints the tables.
#include "bench/frame_cases.h"
#include "bench/peers.h"
#include "bench/side_by_side.h"
#include "browser/page_command.h"
#include "capture/nv12_to_bgr.h"
#include "frames/conversion/frame_converter.h"
#include "frames/conversion/frame_plan.h"
#include "frames/conversion/row_kernels.h"
#include "frames/frame_file.h"
#include "frames/frame_message.h"
#include "sample_camera/picture.h"
#include "tests/frames/conversion/reference_converter.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <exception>
#include <memory>
#include <new>
#include <random>
#include <regex>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace receiver {
namespace {

constexpr std::size_t ColdBytes = std::size_t{160} << 20; // more than the last cache holds
constexpr std::size_t PageBytes = 4096;

// Memory that begins with a page, as shared buffers and mapped files do.
class PagedBytes {
public:
    explicit PagedBytes(std::size_t newSize)
        : bytes(static_cast<std::uint8_t*>(::operator new (newSize, std::align_val_t{PageBytes}))), size(newSize) {
        std::mt19937_64 random(size);
        for (std::size_t i = 0; i < size; i += sizeof(std::uint64_t)) {
            const std::uint64_t noise = random();
            std::memcpy(bytes + i, &noise, std::min(size - i, sizeof(noise)));
        }
    }
    PagedBytes(const PagedBytes&) = delete;
    PagedBytes& operator=(const PagedBytes&) = delete;
    ~PagedBytes() { ::operator delete (bytes, std::align_val_t{PageBytes}); }

    [[nodiscard]] std::uint8_t* Data() const noexcept { return bytes; }
    [[nodiscard]] std::size_t Size() const noexcept { return size; }

private:
    std::uint8_t* bytes;
    std::size_t size;
};

void Require(HRESULT result) {
    if (result != S_OK) {
        throw std::runtime_error("a conversion failed");
    }
}

class FrameBench {
public:
    FrameBench(bool cold, const std::string& newFilter) : slots(SlotSize + (cold ? ColdBytes : 0)), filter(newFilter) {}

    void Run() {
        for (const FrameCase& frameCase : FrameCases()) {
            MeasureConversion(frameCase);
        }
        for (const char* name : {"720p NV12", "1080p NV12", "1080p RGBA"}) {
            MeasurePublishing(CaseOf(name));
        }
        for (const char* name : {"720p NV12 on 1080p", "1080p NV12 on 720p", "1080p RGBA on 720p",
                                 "720p NV12 rotated 90", "640x480 I420 on 720p"}) {
            MeasureFirstFrame(CaseOf(name));
        }
        MeasureMessage();
        MeasureSnapshot("720p snapshot", 1280, 720);
        MeasureSnapshot("1080p snapshot", 1920, 1080);
        for (const sample_camera::VideoFormat& format : sample_camera::VideoFormats) {
            MeasureCamera(sample_camera::Size720p, format);
            MeasureCamera(sample_camera::Size1080p, format);
        }
    }

private:
    static const FrameCase& CaseOf(std::string_view name) {
        return *std::find_if(FrameCases().begin(), FrameCases().end(),
                             [&](const FrameCase& each) { return each.name == name; });
    }
    [[nodiscard]] bool IsWanted(const std::string& name) const { return std::regex_search(name, filter); }
    // Cold sources of so many bytes follow each other through all of the memory; a warm one is always the same.
    void ReadSourcesOf(std::size_t bytes) {
        step = (bytes + PageBytes - 1) / PageBytes * PageBytes;
        slotCount = (slots.Size() - SlotSize) / step + 1;
    }
    [[nodiscard]] const std::uint8_t* Slot(std::size_t call) const { return slots.Data() + call % slotCount * step; }
    [[nodiscard]] std::span<const std::uint8_t> SlotSpan(std::size_t call) const { return {Slot(call), SlotSize}; }

    // memcpy of as many bytes as are read and written, halved: each is read and written there.
    [[nodiscard]] Work CopyOf(std::size_t traffic) const { return CopyTo(std::make_shared<PagedBytes>(traffic / 2)); }
    [[nodiscard]] Work CopyTo(std::shared_ptr<const PagedBytes> target) const {
        return [this, target = std::move(target)](std::size_t call) {
            std::memcpy(target->Data(), Slot(call), target->Size());
            KeepBytes(target->Data());
        };
    }

    static void Print(const std::string& row, const Timing& timing, bool identical) {
        std::printf("{\"row\":\"%s\",\"contender\":\"%s\",\"ratio\":%.5f,\"microseconds\":%.4f,\"identical\":%s}\n",
                    row.c_str(), timing.name.c_str(), timing.ratio, timing.microseconds, identical ? "true" : "false");
        std::fflush(stdout);
    }
    static void PrintAll(const std::string& row, const std::vector<Contender>& contenders,
                         const std::vector<bool>& identical, const Work& baseline) {
        const std::vector<Timing> timings = MeasureSideBySide(contenders, baseline);
        for (std::size_t i = 0; i < timings.size(); ++i) {
            Print(row, timings[i], identical[i]);
        }
    }

    void MeasureConversion(const FrameCase& frameCase) {
        const FrameDescriptor frame = frameCase.Descriptor();
        const PictureRectangle picture =
            FitPicture(frame.displayWidth, frame.displayHeight, frameCase.canvasWidth, frameCase.canvasHeight);
        if (picture.width == frameCase.canvasWidth && picture.height == frameCase.canvasHeight) {
            MeasureConversion(frameCase, frameCase.name, false);
        } else {
            MeasureConversion(frameCase, frameCase.name + ", bars cleared", true);
            MeasureConversion(frameCase, frameCase.name + ", bars kept", false);
        }
    }

    void MeasureConversion(const FrameCase& frameCase, const std::string& row, bool clearBars) {
        if (!IsWanted(row)) {
            return;
        }
        ReadSourcesOf(frameCase.SourceBytes());
        const FrameDescriptor frame = frameCase.Descriptor();
        const std::vector<std::uint8_t> expected =
            ReferenceConvert(SlotSpan(0), frame, frameCase.canvasWidth, frameCase.canvasHeight);
        const auto convert = [&](FrameConverter& converter, FrameCanvas& canvas, std::size_t call) {
            if (clearBars) {
                LeaveNothingBlack(frameCase, canvas);
            }
            Require(converter.Convert(SlotSpan(call), frame, frameCase.canvasWidth, frameCase.canvasHeight, canvas));
        };

        FrameConverter converter;
        FrameConverter plainConverter(ScalarKernels);
        FrameCanvas canvas;
        FrameCanvas plainCanvas;
        std::vector<Contender> contenders{
            {"receiver", [&](std::size_t call) { convert(converter, canvas, call); }},
            {"scalar", [&](std::size_t call) { convert(plainConverter, plainCanvas, call); }, true},
            {"reference",
             [&](std::size_t call) {
                 KeepBytes(
                     ReferenceConvert(SlotSpan(call), frame, frameCase.canvasWidth, frameCase.canvasHeight).data());
             },
             true},
        };
        convert(converter, canvas, 0);
        convert(plainConverter, plainCanvas, 0);
        RequireSame(canvas.Frame().bytes, expected);
        RequireSame(plainCanvas.Frame().bytes, expected);
        std::vector<bool> identical{true, true, true};
        const std::vector<std::uint8_t> black = BlackCanvas(frameCase.canvasWidth, frameCase.canvasHeight);
        const PagedBytes peerCanvas(frameCase.CanvasBytes());
        const auto addPeer = [&](const char* name, const PeerConversion& conversion) {
            if (!conversion) {
                return;
            }
            contenders.push_back(
                {name, [&, conversion](std::size_t call) { conversion(Slot(call), peerCanvas.Data()); }});
            std::memcpy(peerCanvas.Data(), black.data(), black.size()); // with the bars that may be kept
            conversion(Slot(0), peerCanvas.Data());
            identical.push_back(std::equal(expected.begin(), expected.end(), peerCanvas.Data()));
        };
        addPeer("libyuv", LibyuvConversion(frameCase, clearBars));
        addPeer("swscale", SwscaleConversion(frameCase, clearBars));

        PrintAll(row, contenders, identical, CopyOf(frameCase.SourceBytes() + frameCase.CanvasBytes()));
    }

    // As if the picture before had covered all of the canvas.
    static void LeaveNothingBlack(const FrameCase& frameCase, FrameCanvas& canvas) {
        canvas.Prepare(frameCase.canvasWidth, frameCase.canvasHeight,
                       {0, 0, frameCase.canvasWidth, frameCase.canvasHeight});
    }

    // What is fast and wrong is not worth measuring.
    static void RequireSame(std::span<const std::uint8_t> made, const std::vector<std::uint8_t>& expected) {
        if (!std::equal(expected.begin(), expected.end(), made.begin(), made.end())) {
            throw std::runtime_error("a conversion differs from the reference");
        }
    }

    // Baseline: two copies, from the slot to a canvas and from there to the file.
    void MeasurePublishing(const FrameCase& frameCase) {
        const std::string row = frameCase.name + ", converted and published";
        if (!IsWanted(row)) {
            return;
        }
        ReadSourcesOf(frameCase.SourceBytes());
        const FrameDescriptor frame = frameCase.Descriptor();
        FrameConverter converter;
        FrameCanvas canvas;
        const PagedBytes memory(sizeof(FrameFileLayout));
        auto& file = *reinterpret_cast<FrameFileLayout*>(memory.Data());
        ResetFrameFile(file);
        const auto publish = [&](std::size_t call) {
            Require(converter.Convert(SlotSpan(call), frame, frameCase.canvasWidth, frameCase.canvasHeight, canvas));
            std::uint8_t* const buffer = BeginFrame(file, frameCase.canvasWidth, frameCase.canvasHeight);
            std::memcpy(buffer, canvas.Frame().bytes.data(), canvas.Frame().bytes.size());
            CompleteFrame(file, buffer, call);
        };
        const auto copy = std::make_shared<const PagedBytes>((frameCase.SourceBytes() + frameCase.CanvasBytes()) / 2);
        const Work copyFrame = CopyTo(copy);
        const PagedBytes buffers(2 * frameCase.CanvasBytes()); // The file has two as well.
        PrintAll(row, {{"receiver", publish}}, {true}, [&](std::size_t call) {
            copyFrame(call);
            std::uint8_t* const buffer = buffers.Data() + call % 2 * frameCase.CanvasBytes();
            std::memcpy(buffer, copy->Data(), frameCase.CanvasBytes());
            KeepBytes(buffer);
        });
    }

    // Baseline: the conversion of a later frame that clears the bars, as the first one must.
    void MeasureFirstFrame(const FrameCase& frameCase) {
        const std::string row = frameCase.name + ", first frame";
        const std::string planRow = "plan alone";
        if (!IsWanted(row + ", " + planRow)) {
            return;
        }
        ReadSourcesOf(frameCase.SourceBytes());
        const FrameDescriptor frame = frameCase.Descriptor();
        FrameConverter converter;
        FrameCanvas canvas;
        const auto convert = [&](std::size_t call, FrameConverter& with) {
            LeaveNothingBlack(frameCase, canvas);
            Require(with.Convert(SlotSpan(call), frame, frameCase.canvasWidth, frameCase.canvasHeight, canvas));
        };
        const PixelFormat& format = *FindPixelFormat(frame.format, frame.planeCount);
        PrintAll(row,
                 {{"receiver",
                   [&](std::size_t call) {
                       FrameConverter fresh;
                       convert(call, fresh);
                   }},
                  {planRow,
                   [&](std::size_t) {
                       const FramePlan plan(frame, format, frameCase.canvasWidth, frameCase.canvasHeight);
                       KeepBytes(&plan);
                   }}},
                 {true, true}, [&](std::size_t call) { convert(call, converter); });
    }

    // Baseline: the conversion of the frame that the message describes.
    void MeasureMessage() {
        const std::string row = "message of a 720p NV12 frame";
        if (!IsWanted(row + ", parsed") && !IsWanted(row + ", dispatched and parsed")) {
            return;
        }
        ReadSourcesOf(CaseOf("720p NV12").SourceBytes());
        constexpr std::size_t messages = 1000;
        const std::wstring text = L"frame:1:NV12:1280:720:0:0:0:1280:720:0,1280;921600,1280";
        const std::wstring_view descriptor = std::wstring_view(text).substr(8);
        const FrameCase& frameCase = CaseOf("720p NV12");
        const FrameDescriptor frame = frameCase.Descriptor();
        FrameConverter converter;
        FrameCanvas canvas;
        FrameDescriptor parsed; // The receiver keeps it from message to message.
        const std::vector<Contender> contenders{
            {"parsed",
             [&](std::size_t) {
                 for (std::size_t i = 0; i < messages; ++i) {
                     if (!ParseFrameDescriptor(descriptor, parsed)) {
                         throw std::runtime_error("the message is refused");
                     }
                     KeepBytes(&parsed);
                 }
             }},
            {"dispatched and parsed",
             [&](std::size_t) {
                 for (std::size_t i = 0; i < messages; ++i) {
                     const PageCommand command = RecognizePageCommand(text);
                     if (command.kind != PageCommandKind::Frame ||
                         !ParseFrameDescriptor(command.argument.substr(2), parsed)) {
                         throw std::runtime_error("the message is refused");
                     }
                     KeepBytes(&parsed);
                 }
             }},
        };
        for (Timing timing : MeasureSideBySide(contenders, [&](std::size_t call) {
                 Require(converter.Convert(SlotSpan(call), frame, 1280, 720, canvas));
             })) {
            timing.ratio /= messages;
            timing.microseconds /= messages;
            Print(row, timing, true);
        }
    }

    void MeasureSnapshot(const std::string& row, std::uint32_t width, std::uint32_t height) {
        if (!IsWanted(row)) {
            return;
        }
        const std::uint32_t frameBytes = Nv12Size(width, height);
        ReadSourcesOf(frameBytes);
        const std::size_t pixelBytes = std::size_t{3} * width * height;
        std::vector<std::uint8_t> pixels;
        std::vector<std::uint8_t> plainPixels;
        const PagedBytes peerPixels(pixelBytes);
        const PeerConversion swscale = SwscaleSnapshot(width, height);
        const std::vector<Contender> contenders{
            {"receiver",
             [&](std::size_t call) { Require(ConvertNv12ToBgr24(Slot(call), frameBytes, width, height, &pixels)); }},
            {"scalar",
             [&](std::size_t call) {
                 Require(ConvertNv12ToBgr24(Slot(call), frameBytes, width, height, &plainPixels, ScalarKernels));
             },
             true},
            {"reference", [&](std::size_t call) { KeepBytes(ReferenceSnapshot(SlotSpan(call), width, height).data()); },
             true},
            {"libyuv", [&](std::size_t call) { LibyuvSnapshot(Slot(call), width, height, peerPixels.Data()); }},
            {"swscale", [&](std::size_t call) { swscale(Slot(call), peerPixels.Data()); }},
        };
        const std::vector<std::uint8_t> expected = ReferenceSnapshot(SlotSpan(0), width, height);
        contenders[0].run(0);
        contenders[1].run(0);
        RequireSame(pixels, expected);
        RequireSame(plainPixels, expected);
        std::vector<bool> identical{true, true, true};
        for (std::size_t peer = identical.size(); peer < contenders.size(); ++peer) {
            contenders[peer].run(0);
            identical.push_back(std::equal(expected.begin(), expected.end(), peerPixels.Data()));
        }
        PrintAll(row, contenders, identical, CopyOf(frameBytes + pixelBytes));
    }

    // What the sample camera does with a frame of the file, from there to the application's sample.
    void MeasureCamera(sample_camera::PictureSize frameSize, const sample_camera::VideoFormat& format) {
        constexpr const char* Formats[] = {"NV12", "YUY2", "I420"};
        const auto name = [](sample_camera::PictureSize size) { return std::to_string(size.height) + "p"; };
        const std::string row = "camera: " + name(frameSize) + " frame as " + name(format.size) + " " +
                                Formats[static_cast<std::size_t>(format.pixels)];
        if (!IsWanted(row)) {
            return;
        }
        const std::size_t frameBytes = Nv12Size(frameSize.width, frameSize.height);
        ReadSourcesOf(frameBytes);
        const bool asItIs = format == sample_camera::VideoFormat{sample_camera::PixelFormat::Nv12, frameSize};
        const PagedBytes source(frameBytes);
        const PagedBytes scaled(Nv12Size(format.size.width, format.size.height));
        const PagedBytes picture(sample_camera::ImageBytes(format));
        const PagedBytes peerPicture(picture.Size());
        const PeerConversion libyuv = LibyuvCamera(frameSize, format);
        const auto read = [&](std::size_t call) { std::memcpy(source.Data(), Slot(call), frameBytes); };
        const std::vector<Contender> contenders{
            {"receiver",
             [&](std::size_t call) {
                 if (asItIs) { // read straight into the sample
                     std::memcpy(picture.Data(), Slot(call), frameBytes);
                     KeepBytes(picture.Data());
                     return;
                 }
                 read(call);
                 sample_camera::ConvertFrame(source.Data(), frameSize, scaled.Data(), picture.Data(), format);
             }},
            {"libyuv",
             [&](std::size_t call) {
                 if (asItIs) {
                     libyuv(Slot(call), peerPicture.Data());
                     return;
                 }
                 read(call);
                 libyuv(source.Data(), peerPicture.Data());
             }},
        };
        for (const Contender& contender : contenders) {
            contender.run(0);
        }
        const bool identical = std::equal(picture.Data(), picture.Data() + picture.Size(), peerPicture.Data());
        PrintAll(row, contenders, {true, identical}, CopyOf(frameBytes + picture.Size()));
    }

    const PagedBytes slots;
    std::size_t step = 0;
    std::size_t slotCount = 1;
    const std::regex filter;
};

} // namespace
} // namespace receiver

int main(int argc, char** argv) try {
    const bool cold = argc > 1 && std::string_view(argv[1]) == "--cold";
    const int filter = cold ? 2 : 1;
    std::printf("{\"kernels\":\"%s\",\"compiler\":\"%s\"}\n", receiver::BestKernels().name, __VERSION__);
    receiver::FrameBench(cold, argc > filter ? argv[filter] : "").Run();
} catch (const std::exception& error) {
    std::fprintf(stderr, "frame_bench: %s\n", error.what());
    return 1;
}
