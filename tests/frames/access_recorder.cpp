#include "tests/frames/access_recorder.h"

#include "frames/nv12_frame.h"

#include <cstring>

namespace receiver {
namespace {

// A small frame fills two parts of a buffer.
constexpr std::size_t HalfSmallFrame = Nv12Size(1280, 720) / 2;
constexpr std::size_t Buffer0 = sizeof(FrameFileHeader);
constexpr std::size_t Buffer1 = Buffer0 + MaxFrameSize;

constexpr DWORD TrapFlag = 0x100; // the processor raises an exception after the next instruction

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

} // namespace

const CellPlace Places[CellLimit] = {
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

std::string Step::Text() const {
    const std::string text(kind);
    return kind == "Barrier" ? text : text + " " + Places[cell].name + " " + std::to_string(value);
}

std::vector<std::string> TextsOf(const std::vector<Step>& steps) {
    std::vector<std::string> texts;
    for (const Step& step : steps) {
        texts.push_back(step.Text());
    }
    return texts;
}

AccessRecorder::AccessRecorder(int (*newValueIn)(const FrameFileLayout& file, int cell))
    : valueIn(newValueIn), mapping("kernel32.dll", "MapViewOfFile", reinterpret_cast<void*>(&MapAndProtect)),
      handler(AddVectoredExceptionHandler(1, OnException)) {
    current = this;
}

AccessRecorder::~AccessRecorder() { RemoveVectoredExceptionHandler(handler); }

void AccessRecorder::Begin() {
    steps.clear();
    steps.reserve(100); // allocates nothing while the system's allocation is stepped through
    lastOffset = 0;
    access = false;
    barrierIsNext = false;
    recording = true;
    Protect();
}

std::vector<std::string> AccessRecorder::End() {
    Unprotect();
    return TextsOf(steps);
}

void* WINAPI AccessRecorder::MapAndProtect(HANDLE object, DWORD rights, DWORD offsetHigh, DWORD offsetLow,
                                           SIZE_T size) {
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

LONG CALLBACK AccessRecorder::OnException(EXCEPTION_POINTERS* exception) {
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

void AccessRecorder::BeginAccess(const std::uint8_t* address, const std::uint8_t* code) {
    Unprotect();
    access = true;
    accessOffset = static_cast<std::size_t>(address - view);
    headerBefore = File().header;
    storeKind = IsBarrier(code) ? "Interlocked" : "Store";
    barrierIsNext = false;
}

void AccessRecorder::OnInstruction(CONTEXT& context) {
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

void AccessRecorder::EndAccess() {
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

void AccessRecorder::RunBlockOperation(CONTEXT& context) {
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

void AccessRecorder::Add(std::string_view kind, std::size_t offset) {
    const int cell = CellAt(offset);
    const int value = valueIn(File(), cell);
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

bool AccessRecorder::IsInView(const std::uint8_t* address) const noexcept {
    return view != nullptr && view <= address && address < view + sizeof(FrameFileLayout);
}

void AccessRecorder::SetProtection(DWORD newProtection) noexcept {
    if (view != nullptr) {
        DWORD old = 0;
        VirtualProtect(view, sizeof(FrameFileLayout), newProtection, &old);
    }
}

} // namespace receiver
