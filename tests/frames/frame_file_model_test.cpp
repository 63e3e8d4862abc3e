// What the writer and the reader in examples/camera store to the shared frame file and load from it, compared with the
// steps that the model in tests/model/ searches: its text is compiled here as C++. The processor stops at every
// instruction that touches the file.
#include "examples/camera/frame_reader.h"
#include "frames/frame_file.h"
#include "frames/nv12_frame.h"
#include "frames/shared_frame_file.h"
#include "tests/frames/access_recorder.h"
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

// The model's steps, run on values of its cells.
class Model {
public:
    struct Cells {
        int values[CellLimit];
    };

    explicit Model(const Cells& start) : cells(start) {}

    void Open();
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

void Model::Open() {
    if (!IsValidForWriter(newest[Format], newest[Width], newest[FrameSize])) {
        ResetFrameFile();
    }
}

// The number of the pattern frame that the part belongs to; -1 when it is mixed.
int PartValue(const FrameFileLayout& file, int cell) {
    const CellPlace& place = Places[cell];
    const auto* const bytes = reinterpret_cast<const std::uint8_t*>(&file);
    const std::size_t buffer = Places[cell < Buffer1Part0 ? Buffer0Part0 : Buffer1Part0].begin;
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

    std::vector<std::string> StoresOfOpening() {
        HRESULT result = E_FAIL;
        const std::vector<std::string> steps = StoresOf([&] { result = file.OpenSharedFrameFile(); });
        EXPECT_EQ(result, S_OK);
        return steps;
    }
    static std::vector<std::string> StoresOfOpening(Model& model) {
        model.Open();
        return model.TakeSteps();
    }
    void CloseFile() {
        file.CloseSharedFrameFile();
        recorder.ForgetView();
    }

    AccessRecorder recorder{ValueIn};

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
    EXPECT_EQ(StoresOfOpening(), StoresOfOpening(model));
}

// Of a large frame, so that every field changes.
TEST_F(FrameFileModel, TheWriterResetsAForeignFileInTheModelsSteps) {
    for (std::uint32_t FrameFileHeader::*const field : {&FrameFileHeader::magic, &FrameFileHeader::version}) {
        ASSERT_EQ(PublishPattern(file, 3), S_OK);
        ++(recorder.File().header.*field);
        Model model(CellsIn(recorder.File()));
        CloseFile();
        EXPECT_EQ(StoresOfOpening(), StoresOfOpening(model));
    }
}

TEST_F(FrameFileModel, TheWriterOpensAValidFileWithoutAStore) {
    ASSERT_EQ(PublishPattern(file, 2), S_OK);
    Model model(CellsIn(recorder.File()));
    CloseFile();
    EXPECT_EQ(StoresOfOpening(), std::vector<std::string>());
    EXPECT_EQ(StoresOfOpening(model), std::vector<std::string>());
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
