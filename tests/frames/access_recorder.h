// The steps in which this thread touches the mapped shared frame file: the processor stops at every instruction that
// does. What is touched is named by the cells of the model in tests/model/.
#pragma once

#include "frames/frame_file.h"
#include "tests/support/function_patch.h"

#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace receiver {

// In the order of the file.
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

extern const CellPlace Places[CellLimit];

struct Step {
    std::string_view kind;
    int cell;
    int value;

    [[nodiscard]] std::string Text() const;
};

[[nodiscard]] std::vector<std::string> TextsOf(const std::vector<Step>& steps);

// A store of another process during a read.
struct Change {
    int afterLoadOf = NoCell; // after the first one
    int newSequence = 0;
};

// Records how this thread touches the view of the file that this program has mapped last.
class AccessRecorder {
public:
    // `newValueIn` gives what the file has in a cell.
    explicit AccessRecorder(int (*newValueIn)(const FrameFileLayout& file, int cell));
    AccessRecorder(const AccessRecorder&) = delete;
    AccessRecorder& operator=(const AccessRecorder&) = delete;
    ~AccessRecorder();

    // Consecutive accesses to the fields of one cell are one step.
    template <typename Operation>
    std::vector<std::string> StepsOf(Operation operation) {
        Begin();
        operation();
        recording = false; // the next exception ends the stepping
        return End();
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
    void Begin();
    [[nodiscard]] std::vector<std::string> End();

    static void* WINAPI MapAndProtect(HANDLE object, DWORD rights, DWORD offsetHigh, DWORD offsetLow, SIZE_T size);
    static LONG CALLBACK OnException(EXCEPTION_POINTERS* exception);
    // The instruction is going to be repeated.
    void BeginAccess(const std::uint8_t* address, const std::uint8_t* code);
    void OnInstruction(CONTEXT& context);
    // What has changed was stored. The tests have every store change its field.
    void EndAccess();
    // A call of memcpy or memset is done here, at once: stepping through it would take seconds.
    void RunBlockOperation(CONTEXT& context);
    void Add(std::string_view kind, std::size_t offset);

    [[nodiscard]] bool IsInView(const std::uint8_t* address) const noexcept;
    void Protect() noexcept { SetProtection(PAGE_NOACCESS); }
    void Unprotect() noexcept { SetProtection(protection); }
    void SetProtection(DWORD newProtection) noexcept;

    static inline AccessRecorder* current = nullptr;

    int (*const valueIn)(const FrameFileLayout& file, int cell);
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

} // namespace receiver
