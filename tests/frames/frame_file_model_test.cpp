// What the writer and the reader in examples/camera store to the shared frame file and load from it, compared with the
// steps that the model in tests/model/ searches: its text is compiled here as C++. The processor stops at every
// instruction that touches the file.
#include "examples/camera/frame_reader.h"
#include "frames/frame_file.h"
#include "frames/nv12_frame.h"
#include "frames/shared_frame_file.h"
#include "tests/frames/frame_pattern.h"
#include "tests/frames/shared_frame_file_fixture.h"
#include "tests/frames/shared_frame_file_pattern.h"
#include "tests/support/function_patch.h"
#include "tests/support/test_files.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace receiver {
namespace {

// The model's cells, in the order of the file.
enum Cell : int {
    NoCell,
    Format,
    Width,
    FrameSize,
    Sequence,
    ActiveBuffer,
    Timestamp,
    Buffer0Part0,
    Buffer0Part1,
    Buffer0Part2,
    Buffer1Part0,
    Buffer1Part1,
    Buffer1Part2,
    CellLimit
};

struct CellPlace {
    const char* name;
    std::size_t begin;
    std::size_t end;
};

// A small frame fills two parts of a buffer.
constexpr std::size_t HalfSmallFrame = Nv12Size(1280, 720) / 2;
constexpr std::size_t Buffer0 = sizeof(FrameFileHeader);
constexpr std::size_t Buffer1 = Buffer0 + MaxFrameSize;
constexpr CellPlace Places[CellLimit] = {
    {"another field", 0, 0},
    {"Format", offsetof(FrameFileHeader, magic), offsetof(FrameFileHeader, width)},
    {"Width", offsetof(FrameFileHeader, width), offsetof(FrameFileHeader, stride)},
    {"FrameSize", offsetof(FrameFileHeader, stride), offsetof(FrameFileHeader, sequence)},
    {"Sequence", offsetof(FrameFileHeader, sequence), offsetof(FrameFileHeader, activeBuffer)},
    {"ActiveBuffer", offsetof(FrameFileHeader, activeBuffer), offsetof(FrameFileHeader, reserved0)},
    {"Timestamp", offsetof(FrameFileHeader, timestamp), offsetof(FrameFileHeader, reserved1)},
    {"Buffer0Part0", Buffer0, Buffer0 + HalfSmallFrame},
    {"Buffer0Part1", Buffer0 + HalfSmallFrame, Buffer0 + 2 * HalfSmallFrame},
    {"Buffer0Part2", Buffer0 + 2 * HalfSmallFrame, Buffer1},
    {"Buffer1Part0", Buffer1, Buffer1 + HalfSmallFrame},
    {"Buffer1Part1", Buffer1 + HalfSmallFrame, Buffer1 + 2 * HalfSmallFrame},
    {"Buffer1Part2", Buffer1 + 2 * HalfSmallFrame, Buffer1 + MaxFrameSize},
};

struct Step {
    std::string_view kind;
    int cell;
    int value;

    [[nodiscard]] std::string Text() const {
        const std::string text(kind);
        return kind == "Barrier" ? text : text + " " + Places[cell].name + " " + std::to_string(value);
    }
};

std::vector<std::string> TextsOf(const std::vector<Step>& steps) {
    std::vector<std::string> texts;
    for (const Step& step : steps) {
        texts.push_back(step.Text());
    }
    return texts;
}

// A store of another process during a read.
struct Change {
    int afterLoadOf = NoCell; // after the first one
    int newSequence = 0;
};

// The model's steps, run on values of its cells.
class Model {
public:
    struct Cells {
        int values[CellLimit];
    };

    explicit Model(const Cells& start) : cells(start) {}

    void Reset() { ResetFrameFile(); }
    void Publish(int number) {
        frame = number;
        PublishFrame();
    }
    // As often as the reader in examples/camera tries.
    vistel::ReadResult Read(const Change& newChange = {}) {
        change = newChange;
        result.reset();
        for (int attempt = 0; attempt < 4 && !result; ++attempt) {
            refused = false;
            ReadFrame();
        }
        return result.value_or(vistel::ReadResult::Busy);
    }

    // Another process stores it.
    void SetSequence(int value) { newest[Sequence] = value; }
    // Since the last call.
    [[nodiscard]] std::vector<std::string> TakeSteps() {
        std::vector<std::string> texts = TextsOf(steps);
        steps.clear();
        return texts;
    }

private:
#define STEPS(name) void name() {
#define STEPS_WITH(name, parameter) void name(int parameter) {
#define END_STEPS }
#include "tests/model/publishing_steps.pml"

    void Add(std::string_view kind, int cell, int value) { steps.push_back({kind, cell, value}); }

    void Store(int cell, int value) {
        newest[cell] = value;
        Add("Store", cell, value);
    }
    void Stream(int cell, int value) {
        newest[cell] = value;
        Add("Stream", cell, value);
    }
    void Interlocked(int cell, int value) {
        newest[cell] = value;
        Add("Interlocked", cell, value);
    }
    void Barrier() { Add("Barrier", NoCell, 0); }
    static void ImpliedBarrier() {}
    void CopyFrame() {
        for (int part = 0; part < SizeOf(frame); ++part) {
            Stream(Part(buffer, part), frame);
        }
    }

    int Load(int cell) {
        const int value = newest[cell];
        Add("Load", cell, value);
        if (cell == change.afterLoadOf) {
            newest[Sequence] = change.newSequence;
            change = {};
        }
        return value;
    }
    [[nodiscard]] bool IsOver() const { return refused || result; }
    void FirstLook() {
        sequence = Load(Sequence);
        if (sequence == 0) {
            lastSequence = AfterZero(lastSequence);
        }
        if (sequence == lastSequence) {
            result = vistel::ReadResult::NoNewFrame;
        } else {
            refused = !IsReadable(sequence);
        }
    }
    void LoadHeader() {
        if (!IsOver()) {
            format = Load(Format);
            width = Load(Width);
            frameSize = Load(FrameSize);
            buffer = Load(ActiveBuffer);
            Load(Timestamp);
        }
    }
    void LoadBuffer() {
        if (!IsOver() && IsValidForReader(format, width, frameSize)) {
            for (int part = 0; part < frameSize; ++part) {
                Load(Part(buffer, part));
            }
        }
    }
    void SecondLook() {
        if (IsOver()) {
            return;
        }
        const int now = Load(Sequence);
        if (!IsStill(now, sequence)) {
            refused = true;
            return;
        }
        lastSequence = sequence;
        if (IsValidForReader(format, width, frameSize)) {
            result = vistel::ReadResult::NewFrame;
        } else {
            result = format == OurFormat ? vistel::ReadResult::Damaged : vistel::ReadResult::OtherVersion;
        }
    }

    // Named by the steps.
    Cells cells;
    int (&newest)[CellLimit] = cells.values;
    int frame = 0;
    int buffer = 0;

    std::vector<Step> steps;
    int sequence = 0;
    int lastSequence = 0;
    int format = 0;
    int width = 0;
    int frameSize = 0;
    bool refused = false; // this attempt
    std::optional<vistel::ReadResult> result;
    Change change;
};

// The number of the pattern frame that the part belongs to; -1 when it is mixed.
int PartValue(const FrameFileLayout& file, int cell) {
    const CellPlace& place = Places[cell];
    const auto* const bytes = reinterpret_cast<const std::uint8_t*>(&file);
    const std::size_t buffer = place.begin < Buffer1 ? Buffer0 : Buffer1;
    std::uint64_t first = 0;
    std::memcpy(&first, bytes + place.begin, sizeof(first));
    const auto number = static_cast<std::uint32_t>(first >> 32);
    for (std::size_t offset = place.begin; offset < place.end; offset += sizeof(first)) {
        std::uint64_t word = 0;
        std::memcpy(&word, bytes + offset, sizeof(word));
        if (word != (number == 0 ? 0 : PatternWord(number, (offset - buffer) / sizeof(word)))) {
            return -1;
        }
    }
    return static_cast<int>(number);
}

// What the file has in a cell, as the model says it. -1 and -2 contradict each other.
int ValueIn(const FrameFileLayout& file, int cell) {
    const FrameFileHeader& header = file.header;
    switch (cell) {
    case NoCell:
        return 0;
    case Format:
        return header.magic == FrameFileMagic && header.version == FrameFileVersion ? OurFormat : -1;
    case Width:
        if (header.width == 1280 && header.height == 720) {
            return Small;
        }
        return header.width == 1920 && header.height == 1080 ? Large : -1;
    case FrameSize:
        if (header.stride == 1280 && header.frameSize == Nv12Size(1280, 720)) {
            return Small;
        }
        return header.stride == 1920 && header.frameSize == Nv12Size(1920, 1080) ? Large : -2;
    case Sequence:
        return static_cast<int>(header.sequence);
    case ActiveBuffer:
        return static_cast<int>(header.activeBuffer);
    case Timestamp:
        return static_cast<int>(header.timestamp);
    default:
        return PartValue(file, cell);
    }
}

Model::Cells CellsIn(const FrameFileLayout& file) {
    Model::Cells cells{};
    for (int cell = Format; cell < CellLimit; ++cell) {
        cells.values[cell] = ValueIn(file, cell);
    }
    return cells;
}

int CellAt(std::size_t offset) {
    for (int cell = Format; cell < CellLimit; ++cell) {
        if (Places[cell].begin <= offset && offset < Places[cell].end) {
            return cell;
        }
    }
    return NoCell;
}

// Instructions that wait for all stores before them.
bool IsBarrier(const std::uint8_t* code) {
    constexpr std::uint8_t LockPrefix = 0xF0;
    constexpr std::uint8_t MemoryFence[] = {0x0F, 0xAE, 0xF0};
    if (code[0] == LockPrefix || std::memcmp(code, MemoryFence, sizeof(MemoryFence)) == 0) {
        return true;
    }
    const bool hasRexPrefix = (code[0] & 0xF0) == 0x40;
    const std::uint8_t* const opcode = hasRexPrefix ? code + 1 : code;
    return (opcode[0] == 0x86 || opcode[0] == 0x87) && opcode[1] < 0xC0; // xchg with memory
}

// Not a part of a DLL: the system has barriers of its own.
bool IsInThisProgram(const std::uint8_t* code) {
    MEMORY_BASIC_INFORMATION region{};
    VirtualQuery(code, &region, sizeof(region));
    return region.AllocationBase == GetModuleHandleW(nullptr);
}

// Records how this thread touches the view of the file that this program has mapped last.
class AccessRecorder {
public:
    AccessRecorder()
        : mapping("kernel32.dll", "MapViewOfFile", reinterpret_cast<void*>(&MapAndProtect)),
          handler(AddVectoredExceptionHandler(1, OnException)) {
        current = this;
    }
    AccessRecorder(const AccessRecorder&) = delete;
    AccessRecorder& operator=(const AccessRecorder&) = delete;
    ~AccessRecorder() { RemoveVectoredExceptionHandler(handler); }

    // Consecutive accesses to the fields of one cell are one step.
    template <typename Operation>
    std::vector<std::string> StepsOf(Operation operation) {
        steps.clear();
        steps.reserve(100); // allocates nothing while the system's allocation is stepped through
        lastOffset = 0;
        access = false;
        barrierIsNext = false;
        recording = true;
        Protect();
        operation();
        recording = false; // the next exception ends the stepping
        Unprotect();
        return TextsOf(steps);
    }

    // During the next operation.
    void SetChange(FrameFileLayout& file, const Change& newChange) noexcept {
        changedFile = &file;
        change = newChange;
    }
    // Another one is going to be mapped.
    void ForgetView() noexcept { view = nullptr; }

    [[nodiscard]] FrameFileLayout& File() const noexcept { return *reinterpret_cast<FrameFileLayout*>(view); }

private:
    static constexpr DWORD TrapFlag = 0x100; // the processor raises an exception after the next instruction

    static void* WINAPI MapAndProtect(HANDLE object, DWORD rights, DWORD offsetHigh, DWORD offsetLow, SIZE_T size) {
        AccessRecorder& self = *current;
        auto* const original = reinterpret_cast<decltype(&MapViewOfFile)>(self.mapping.Original());
        void* const mapped = original(object, rights, offsetHigh, offsetLow, size);
        self.view = static_cast<std::uint8_t*>(mapped);
        self.protection = (rights & FILE_MAP_WRITE) != 0 ? PAGE_READWRITE : PAGE_READONLY;
        if (self.recording) {
            self.Protect();
        }
        return mapped;
    }

    static LONG CALLBACK OnException(EXCEPTION_POINTERS* exception) {
        AccessRecorder& self = *current;
        const EXCEPTION_RECORD& record = *exception->ExceptionRecord;
        CONTEXT& context = *exception->ContextRecord;
        if (record.ExceptionCode == EXCEPTION_ACCESS_VIOLATION) {
            const auto* const address = reinterpret_cast<const std::uint8_t*>(record.ExceptionInformation[1]);
            if (!self.recording || !self.IsInView(address)) {
                return EXCEPTION_CONTINUE_SEARCH;
            }
            self.BeginAccess(address, reinterpret_cast<const std::uint8_t*>(context.Rip));
        } else if (record.ExceptionCode == EXCEPTION_SINGLE_STEP) {
            if (!self.recording) {
                context.EFlags &= ~TrapFlag;
                return EXCEPTION_CONTINUE_EXECUTION;
            }
            self.OnInstruction(context);
        } else {
            return EXCEPTION_CONTINUE_SEARCH;
        }
        context.EFlags |= TrapFlag;
        return EXCEPTION_CONTINUE_EXECUTION;
    }

    // The instruction is going to be repeated.
    void BeginAccess(const std::uint8_t* address, const std::uint8_t* code) {
        Unprotect();
        access = true;
        accessOffset = static_cast<std::size_t>(address - view);
        headerBefore = File().header;
        storeKind = IsBarrier(code) ? "Interlocked" : "Store";
        barrierIsNext = false;
    }

    void OnInstruction(CONTEXT& context) {
        if (access) {
            EndAccess();
            access = false;
            Protect();
        } else if (barrierIsNext) {
            steps.push_back({"Barrier", NoCell, 0});
        }
        RunBlockOperation(context);
        const auto* const next = reinterpret_cast<const std::uint8_t*>(context.Rip);
        barrierIsNext = IsBarrier(next) && IsInThisProgram(next);
    }

    // What has changed was stored. The tests have every store change its field.
    void EndAccess() {
        constexpr std::size_t Word = sizeof(std::uint32_t);
        const auto* const before = reinterpret_cast<const std::uint8_t*>(&headerBefore);
        bool stored = false;
        for (std::size_t offset = 0; offset < sizeof(headerBefore); offset += Word) {
            if (std::memcmp(before + offset, view + offset, Word) != 0) {
                Add(storeKind, offset);
                stored = true;
            }
        }
        if (!stored) {
            Add("Load", accessOffset);
        }
    }

    // A call of memcpy or memset is done here, at once: stepping through it would take seconds.
    void RunBlockOperation(CONTEXT& context) {
        const bool copies = context.Rip == reinterpret_cast<DWORD64>(&std::memcpy);
        if (!copies && context.Rip != reinterpret_cast<DWORD64>(&std::memset)) {
            return;
        }
        auto* const destination = reinterpret_cast<std::uint8_t*>(context.Rcx);
        const auto* const source = reinterpret_cast<const std::uint8_t*>(context.Rdx); // of a copy
        const bool stores = IsInView(destination);
        if (!stores && !(copies && IsInView(source))) {
            return;
        }
        Unprotect();
        if (copies) {
            std::memcpy(destination, source, context.R8);
        } else {
            std::memset(destination, static_cast<int>(context.Rdx), context.R8);
        }
        const auto begin = static_cast<std::size_t>((stores ? destination : source) - view);
        const std::size_t end = begin + context.R8;
        for (const CellPlace& place : Places) {
            if (place.begin < end && begin < place.end) {
                Add(stores ? "Stream" : "Load", place.begin);
            }
        }
        Protect();
        context.Rax = context.Rcx;
        context.Rip = *reinterpret_cast<const DWORD64*>(context.Rsp); // returns
        context.Rsp += sizeof(DWORD64);
    }

    void Add(std::string_view kind, std::size_t offset) {
        const int cell = CellAt(offset);
        const int value = ValueIn(File(), cell);
        const bool continues = !steps.empty() && steps.back().kind == kind && steps.back().cell == cell;
        if (continues && offset > lastOffset) {
            steps.back().value = value;
        } else {
            steps.push_back({kind, cell, value});
        }
        lastOffset = offset;
        if (cell == change.afterLoadOf && cell != NoCell) {
            changedFile->header.sequence = static_cast<std::uint64_t>(change.newSequence);
            change = {};
        }
    }

    [[nodiscard]] bool IsInView(const std::uint8_t* address) const noexcept {
        return view != nullptr && view <= address && address < view + sizeof(FrameFileLayout);
    }
    void Protect() noexcept { SetProtection(PAGE_NOACCESS); }
    void Unprotect() noexcept { SetProtection(protection); }
    void SetProtection(DWORD newProtection) noexcept {
        if (view != nullptr) {
            DWORD old = 0;
            VirtualProtect(view, sizeof(FrameFileLayout), newProtection, &old);
        }
    }

    static inline AccessRecorder* current = nullptr;

    std::vector<Step> steps;
    std::size_t lastOffset = 0; // of the last step
    volatile bool recording = false; // the processor may stop anywhere
    std::uint8_t* view = nullptr;
    DWORD protection = PAGE_NOACCESS;
    bool access = false; // the instruction touches the file
    std::size_t accessOffset = 0;
    FrameFileHeader headerBefore{};
    std::string_view storeKind;
    bool barrierIsNext = false; // the next instruction is one
    FrameFileLayout* changedFile = nullptr;
    Change change;
    ImportRedirection mapping;
    void* handler;
};

std::uint64_t nowMs = 0;

std::uint64_t WINAPI Now() noexcept { return nowMs; }

BOOL WINAPI DoNotSwitch() noexcept { return FALSE; }

struct ReadCase {
    int sequence;
    Change change;
};

// The clock shows the number of the frame that is published.
class FrameFileModel : public SharedFrameFileTest {
protected:
    // The writer's stores and barriers. Only its own stores change what it loads from the header.
    template <typename Operation>
    std::vector<std::string> StoresOf(Operation operation) {
        std::vector<std::string> steps = recorder.StepsOf(operation);
        for (int cell = Format; cell <= Timestamp; ++cell) {
            const std::string load = std::string("Load ") + Places[cell].name + " ";
            std::erase_if(steps, [&load](const std::string& step) { return step.starts_with(load); });
        }
        while (!steps.empty() && steps.back() == "Barrier") {
            steps.pop_back(); // after the last store, when memory is released
        }
        return steps;
    }

    std::vector<std::string> StoresOfPublishing(std::uint32_t number) {
        nowMs = number;
        HRESULT result = E_FAIL;
        const std::vector<std::string> steps = StoresOf([&] { result = PublishPattern(file, number); });
        EXPECT_EQ(result, S_OK);
        return steps;
    }

    AccessRecorder recorder;

private:
    const ImportRedirection clock{"kernel32.dll", "GetTickCount64", reinterpret_cast<void*>(&Now)};
    const ImportRedirection switching{"kernel32.dll", "SwitchToThread", reinterpret_cast<void*>(&DoNotSwitch)};
};

TEST_F(FrameFileModel, TheWriterPublishesInTheModelsSteps) {
    ASSERT_EQ(file.OpenSharedFrameFile(), S_OK);
    for (const std::uint32_t number : {3U, 4U, 5U, 6U}) {
        Model model(CellsIn(recorder.File()));
        model.Publish(static_cast<int>(number));
        EXPECT_EQ(StoresOfPublishing(number), model.TakeSteps()) << "frame " << number;
    }
}

TEST_F(FrameFileModel, TheWriterRecoversInTheModelsSteps) {
    ASSERT_EQ(PublishPattern(file, 2), S_OK);
    recorder.File().header.sequence = 7;
    Model model(CellsIn(recorder.File()));
    model.Publish(3);
    EXPECT_EQ(StoresOfPublishing(3), model.TakeSteps());
    EXPECT_EQ(recorder.File().header.sequence, 10U);
}

TEST_F(FrameFileModel, TheWriterResetsAFileInTheModelsSteps) {
    std::filesystem::create_directory(dataFolder);
    WriteBytes(path, std::string(FrameFileSize, '\xA5'));
    Model model(Model::Cells{});
    model.Reset();
    HRESULT result = E_FAIL;
    EXPECT_EQ(StoresOf([&] { result = file.OpenSharedFrameFile(); }), model.TakeSteps());
    EXPECT_EQ(result, S_OK);
}

TEST_F(FrameFileModel, TheWriterOpensAValidFileWithoutAStore) {
    ASSERT_EQ(PublishPattern(file, 2), S_OK);
    file.CloseSharedFrameFile();
    recorder.ForgetView();
    HRESULT result = E_FAIL;
    EXPECT_EQ(StoresOf([&] { result = file.OpenSharedFrameFile(); }), std::vector<std::string>());
    EXPECT_EQ(result, S_OK);
}

TEST_F(FrameFileModel, TheReaderReadsInTheModelsSteps) {
    ASSERT_EQ(PublishPattern(file, 2), S_OK);
    ASSERT_EQ(PublishPattern(file, 3), S_OK);
    FrameFileLayout& layout = recorder.File();
    const FrameFileHeader published = layout.header;
    FrameFileHeader foreign = published;
    foreign.version = 1;
    FrameFileHeader damaged = published;
    damaged.frameSize = 0;
    FrameFileHeader small = published;
    small.activeBuffer = 1;
    small.width = small.stride = 1280;
    small.height = 720;
    small.frameSize = Nv12Size(1280, 720);
    std::vector<std::uint8_t> copy(MaxFrameSize);
    for (const FrameFileHeader& header : {published, small, foreign, damaged}) {
        layout.header = header;
        const Model::Cells cells = CellsIn(layout);
        const int lastPart = header.activeBuffer == 0 ? Buffer0Part1 : Buffer1Part1;
        std::vector<ReadCase> cases{{0, {}}, {4, {}}, {5, {}}, {5, {Sequence, 6}}};
        for (const int changedCell : {int{Sequence}, int{Timestamp}, lastPart}) {
            for (const int newSequence : {0, 2, 6, 7}) {
                cases.push_back({4, {changedCell, newSequence}});
            }
        }
        for (const ReadCase& readCase : cases) {
            Model model(cells);
            const auto setSequence = [&](int value) {
                layout.header.sequence = static_cast<std::uint64_t>(value);
                model.SetSequence(value);
            };
            recorder.ForgetView();
            vistel::FrameReader reader(path.c_str());
            const auto expectSameRead = [&](const Change& change) {
                vistel::FrameInfo info;
                vistel::ReadResult result{};
                recorder.SetChange(layout, change);
                std::vector<std::string> steps = recorder.StepsOf([&] {
                    result = reader.Read(info, [&copy](std::uint32_t width, std::uint32_t /*height*/) {
                        return vistel::Destination{copy.data(), width};
                    });
                });
                std::erase(steps, "Barrier"); // the reader needs none
                EXPECT_EQ(result, model.Read(change));
                EXPECT_EQ(steps, model.TakeSteps())
                    << "width " << header.width << ", version " << header.version << ", sequence " << readCase.sequence
                    << ", changed to " << readCase.change.newSequence << " after "
                    << Places[readCase.change.afterLoadOf].name;
            };
            setSequence(readCase.sequence);
            expectSameRead(readCase.change);
            expectSameRead({});
            setSequence(0);
            expectSameRead({});
            setSequence(readCase.sequence); // again, as many frames after a reset
            expectSameRead({});
        }
    }
}

} // namespace
} // namespace receiver
