// Conversion of hostile frames out of a slot that ends at an untouchable page, by every table of kernels: the plain
// reference must give the same bytes. A share of the inputs is converted before that while another thread rewrites the
// slot. Input: a frame to a line, "64x36 NV12:64:36:0:0:0:64:36:0,64;2304,64": the canvas, then a descriptor as in a
// frame message, whose numbers are brought inside the parser's limits. All frames go onto one canvas.

#include "frames/conversion/canvas.h"
#include "frames/conversion/frame_converter.h"
#include "frames/conversion/row_kernels.h"
#include "fuzz/support/guarded_memory.h"
#include "fuzz/support/input_text.h"
#include "fuzz/support/require.h"
#include "tests/frames/conversion/reference_converter.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <thread>

namespace receiver {
namespace {

constexpr std::size_t MaxFrames = 4;
constexpr std::uint32_t MaxCanvasSize = 1920;
constexpr std::uint32_t MaxCodedWidth = 4096;
constexpr std::uint32_t MaxCodedHeight = 2160;

// Frames and canvases may be as wide or as high as the real ones, but not both: real canvases would take a thousand
// times as long.
struct Areas {
    std::uint32_t canvas; // pixels
    std::uint32_t coded;
};
constexpr Areas SmallAreas{.canvas = 4096, .coded = 16384};
constexpr Areas LargeAreas{.canvas = 32768, .coded = MaxCodedWidth * MaxCodedHeight};

// The shares of the inputs that take longer.
bool HasLargeAreas(std::uint32_t hash) { return hash % 32 == 0; }
bool IsDisturbed(std::uint32_t hash) { return hash / 32 % 8 == 0; }

struct Input {
    std::uint32_t canvasWidth = 0;
    std::uint32_t canvasHeight = 0;
    std::shared_ptr<const std::wstring> format; // The descriptor's is part of it.
    FrameDescriptor frame;
};

// A number from 1 to `max` that is `number` itself if possible.
std::uint32_t Bring(std::uint64_t number, std::uint32_t max) {
    return number >= 1 && number <= max ? static_cast<std::uint32_t>(number)
                                        : static_cast<std::uint32_t>(number % max) + 1;
}
std::uint32_t BringEven(std::uint64_t number, std::uint32_t max) { return Bring(number / 2, max / 2) * 2; }

Input ReadInput(std::string_view line, const Areas& areas) {
    const std::size_t formatBegin = std::min(line.find(' '), line.size() - 1) + 1;
    const std::size_t formatEnd = std::min(line.find(':', formatBegin), line.size());
    const std::vector<std::uint64_t> canvas = NumbersIn(line.substr(0, formatBegin));
    const std::vector<std::uint64_t> numbers = NumbersIn(line.substr(formatEnd));
    const auto number = [&](std::size_t index) { return index < numbers.size() ? numbers[index] : 0; };

    Input input;
    input.canvasWidth = BringEven(canvas.empty() ? 0 : canvas[0], MaxCanvasSize);
    input.canvasHeight =
        BringEven(canvas.size() < 2 ? 0 : canvas[1], std::min(MaxCanvasSize, areas.canvas / input.canvasWidth));
    FrameDescriptor& frame = input.frame;
    input.format = std::make_shared<std::wstring>(ToUnits(line.substr(formatBegin, formatEnd - formatBegin)));
    frame.format = *input.format;
    frame.codedWidth = BringEven(number(0), MaxCodedWidth);
    frame.codedHeight = BringEven(number(1), std::min(MaxCodedHeight, areas.coded / frame.codedWidth));
    frame.flipA = number(2) % 2 != 0;
    frame.rotation = number(3) % 90 == 0 ? static_cast<std::uint32_t>(number(3) % 360)
                                         : static_cast<std::uint32_t>(number(3) % 4 * 90);
    frame.flipB = number(4) % 2 != 0;
    frame.displayWidth = Bring(number(5), 4096);
    frame.displayHeight = Bring(number(6), 4096);
    for (std::size_t i = 7; i < numbers.size() && frame.planeCount <= MaxPlanes; i += 2) {
        frame.AddPlane({number(i) % SlotSize, std::max<std::uint64_t>(number(i + 1), 1)});
    }
    return input;
}

// The result by the limits alone, in numbers that cannot wrap.
HRESULT ExpectedResult(const FrameDescriptor& frame) {
    if (std::ranges::find(SupportedFormats, frame.format) == SupportedFormats.end()) {
        return MF_E_INVALIDMEDIATYPE;
    }
    const std::vector<PlaneSize> planes = ReferencePlanes(frame.format, frame.codedWidth, frame.codedHeight);
    if (frame.planeCount < planes.size()) {
        return MF_E_INVALIDMEDIATYPE;
    }
    for (std::size_t i = 0; i < planes.size(); ++i) {
        const long double end =
            static_cast<long double>(frame.planes[i].stride) * static_cast<long double>(planes[i].rowCount - 1) +
            static_cast<long double>(frame.planes[i].offset + planes[i].rowBytes);
        if (end > SlotSize) {
            return E_INVALIDARG;
        }
    }
    return S_OK;
}

// The slot, and a page that rewrites it as long as it is let. At rest it holds the same bytes again.
class LivelySlot {
public:
    LivelySlot() : memory(SlotSize), restingBytes(SlotSize) {
        std::uint32_t state = 1;
        for (std::uint8_t& byte : restingBytes) {
            state = state * 1664525 + 1013904223;
            byte = static_cast<std::uint8_t>(state >> 24);
        }
        std::ranges::copy(restingBytes, memory.Bytes().begin());
        page = std::thread([this] { Rewrite(); });
    }
    LivelySlot(const LivelySlot&) = delete;
    LivelySlot& operator=(const LivelySlot&) = delete;
    ~LivelySlot() {
        Tell(Order::End);
        page.join();
    }

    [[nodiscard]] std::span<const std::uint8_t> Bytes() const noexcept { return memory.Bytes(); }

    // Returns once bytes from `offset` on are being rewritten.
    void Disturb(std::uint64_t offset) {
        begin = static_cast<std::size_t>(std::min<std::uint64_t>(offset, SlotSize - WindowSize));
        writing = false;
        Tell(Order::Write);
        writing.wait(false);
    }
    // Returns once all is as it was.
    void Rest() {
        Tell(Order::Rest);
        writing.wait(true);
    }

private:
    enum class Order : int { Rest, Write, End };
    static constexpr std::size_t WindowSize = 16384;

    void Tell(Order newOrder) {
        order = newOrder;
        order.notify_one();
    }
    void Report(bool newWriting) {
        writing = newWriting;
        writing.notify_one();
    }
    void Rewrite() {
        const std::span<std::uint8_t> slot = memory.Bytes();
        for (;;) {
            order.wait(Order::Rest);
            if (order == Order::End) {
                return;
            }
            Report(true);
            const std::span<std::uint8_t> window = slot.subspan(begin, WindowSize);
            for (std::uint8_t value = 0; order == Order::Write; ++value) {
                std::memset(window.data(), value, window.size());
                std::this_thread::yield(); // Both threads may have to share a core.
            }
            std::memcpy(window.data(), restingBytes.data() + begin, window.size());
            Report(false);
        }
    }

    GuardedMemory memory;
    std::vector<std::uint8_t> restingBytes;
    std::size_t begin = 0; // of what is rewritten
    std::atomic<Order> order = Order::Rest;
    std::atomic<bool> writing = false;
    std::thread page;
};

// One table of kernels with all that lives from frame to frame.
struct Painter {
    explicit Painter(const RowKernels& kernels) : converter(kernels) {}

    FrameConverter converter;
    FrameCanvas canvas;
};

std::vector<Painter> MakePainters() {
    static const bool hasAvx2 = Avx2Usable();
    std::vector<Painter> painters;
    painters.emplace_back(ScalarKernels);
    if (hasAvx2) {
        painters.emplace_back(Avx2Kernels);
    }
    return painters;
}

HRESULT Draw(const LivelySlot& slot, const Input& input, Painter& painter) {
    return painter.converter.Convert(slot.Bytes(), input.frame, input.canvasWidth, input.canvasHeight, painter.canvas);
}

void CheckDisturbed(const LivelySlot& slot, const std::vector<Input>& inputs) {
    std::vector<Painter> painters = MakePainters();
    for (const Input& input : inputs) {
        for (Painter& painter : painters) {
            const std::size_t oldSize = painter.canvas.Frame().bytes.size();
            const std::size_t newSize = std::size_t{input.canvasWidth} * input.canvasHeight / 2 * 3;
            const HRESULT result = Draw(slot, input, painter);
            Require(result == ExpectedResult(input.frame), "the limits alone decide");
            Require(painter.canvas.Frame().bytes.size() == (result == E_INVALIDARG ? oldSize : newSize),
                    "a canvas has its size");
        }
    }
}

void CheckAtRest(const LivelySlot& slot, const std::vector<Input>& inputs) {
    std::vector<Painter> painters = MakePainters();
    const auto firstBytes = painters[0].canvas.Frame().bytes;
    std::vector<std::uint8_t> canvas(firstBytes.begin(), firstBytes.end()); // what all painters should have
    for (const Input& input : inputs) {
        const HRESULT expected = ExpectedResult(input.frame);
        if (expected == S_OK) {
            canvas = ReferenceConvert(slot.Bytes(), input.frame, input.canvasWidth, input.canvasHeight);
        } else if (expected == MF_E_INVALIDMEDIATYPE) {
            canvas = BlackCanvas(input.canvasWidth, input.canvasHeight);
        }
        for (Painter& painter : painters) {
            Require(Draw(slot, input, painter) == expected, "the limits alone decide, at rest");
            Require(std::ranges::equal(painter.canvas.Frame().bytes, canvas), "a frame is drawn as the formulas say");
        }
    }
}

} // namespace
} // namespace receiver

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace receiver;
    static LivelySlot slot;
    const std::string_view text = AsText(data, size);
    const std::uint32_t hash = Hash(text);
    std::vector<Input> inputs;
    for (const std::string_view line : SplitLines(text)) {
        if (!line.empty() && inputs.size() < MaxFrames) {
            inputs.push_back(ReadInput(line, HasLargeAreas(hash) ? LargeAreas : SmallAreas));
        }
    }
    if (inputs.empty()) {
        return 0;
    }
    if (IsDisturbed(hash)) {
        slot.Disturb(inputs[0].frame.planes[0].offset);
        CheckDisturbed(slot, inputs);
        slot.Rest();
    }
    CheckAtRest(slot, inputs);
    return 0;
}
