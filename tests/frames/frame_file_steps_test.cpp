// The shared frame file between any two instructions of its writer: at each of these points a reader may read it and
// the writer may end.
#include "frames/frame_file.h"

#include "tests/frames/frame_pattern.h"

#include <windows.h>

#include <intrin.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>

namespace receiver {
namespace {

constexpr std::uint32_t TrapFlag = 0x100; // the processor raises an exception after the next instruction

// Publishes pattern frames; pattern n ends at sequence 2n and has the time stamp n.
class FrameFileSteps : public testing::Test {
protected:
    FrameFileSteps() { ResetFrameFile(*file); }

    // Runs `step` and reads the file after each of its instructions.
    template <typename Step>
    auto SingleStepped(Step step) {
        steppedTest = this;
        void* const handler = AddVectoredExceptionHandler(1, ReadAndContinue);
        __writeeflags(__readeflags() | TrapFlag);
        const auto result = step();
        steppedTest = nullptr; // the next exception ends the stepping
        RemoveVectoredExceptionHandler(handler);
        return result;
    }

    void Publish(std::uint32_t number) {
        const PatternSize size = SizeOfPattern(number);
        std::uint8_t* const buffer = SingleStepped([&] { return BeginFrame(*file, size.width, size.height); });
        FillPattern(buffer, size.Bytes(), number);
        SingleStepped([&] {
            CompleteFrame(*file, buffer, number);
            return true;
        });
        EXPECT_EQ(file->header.sequence, std::uint64_t{2} * number);
    }

    const std::unique_ptr<FrameFileLayout> file = std::make_unique<FrameFileLayout>();
    int rejected = 0; // reads while the sequence was odd
    int accepted = 0;
    int torn = 0;

private:
    static LONG CALLBACK ReadAndContinue(EXCEPTION_POINTERS* exception) {
        if (exception->ExceptionRecord->ExceptionCode != EXCEPTION_SINGLE_STEP) {
            return EXCEPTION_CONTINUE_SEARCH;
        }
        DWORD& flags = exception->ContextRecord->EFlags;
        if (steppedTest != nullptr) {
            steppedTest->ReadFile();
            flags |= TrapFlag;
        } else {
            flags &= ~TrapFlag;
        }
        return EXCEPTION_CONTINUE_EXECUTION;
    }

    void ReadFile() {
        const FrameFileHeader& header = file->header;
        if (header.sequence % 2 != 0) {
            ++rejected;
            return;
        }
        const std::uint64_t number = header.sequence / 2;
        const std::uint8_t* const frame = file->buffers[header.activeBuffer == 0 ? 0 : 1];
        const bool whole = number == 0 || (IsHeaderValid(header) && header.timestamp == number &&
                                           ReadPattern(frame, header.width, header.height) == number);
        ++(whole ? accepted : torn);
    }

    static inline FrameFileSteps* steppedTest = nullptr;
};

TEST_F(FrameFileSteps, NoReadBetweenTwoInstructionsFindsATornFrame) {
    for (const std::uint32_t number : {1U, 2U, 3U}) {
        Publish(number);
    }
    EXPECT_EQ(torn, 0);
    EXPECT_GT(accepted, 0);
    EXPECT_GT(rejected, 0);
}

TEST_F(FrameFileSteps, NoReadDuringTheNextWritersRecoveryFindsATornFrame) {
    Publish(1);
    (void)BeginFrame(*file, 1280, 720); // The writer ends here.
    accepted = 0;
    Publish(3);
    EXPECT_EQ(torn, 0);
    EXPECT_GT(accepted, 0) << "after the last increment";
    EXPECT_GT(rejected, 0);
}

} // namespace
} // namespace receiver
