// Reads the newest video frame out of the shared frame file, as a virtual camera does, and tells the receiver that
// frames are wanted. One header for any C++17 compiler that targets 64-bit Windows; it needs nothing else of the
// receiver. docs/frame-file.md describes the file; print_frames.cpp beside this shows how the header is used.
//
// The file holds a 64-byte header and two frame buffers. The writer makes `sequence` odd, fills the buffer that
// `activeBuffer` does not name, switches `activeBuffer` over and makes `sequence` even. A copy is good when `sequence`
// was even before it and is the same after it.
#pragma once

#include <windows.h>

#include <sddl.h>

#ifdef _MSC_VER
#pragma comment(lib, "advapi32")
#endif

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

namespace vistel {

struct Frame {
    std::uint32_t width = 0; // pixels: 1280 x 720 or 1920 x 1080
    std::uint32_t height = 0;
    std::uint64_t sequence = 0; // grows by 2 with every frame; 0 means that there is no frame here
    std::uint64_t timestampMs = 0; // GetTickCount64() of the writer when it had completed the frame
    std::vector<std::uint8_t> nv12; // `height` rows of Y, then height / 2 rows of U,V pairs; `width` bytes in every row
};

// True for a frame that is no longer live: the receiver has ended, or its page sends nothing. A camera then shows that
// there is no picture instead of a frozen one. A time stamp from the future was made before the system was started
// anew.
[[nodiscard]] inline bool IsStale(const Frame& frame, std::uint64_t limitMs = 2000,
                                  std::uint64_t nowMs = GetTickCount64()) noexcept {
    return frame.sequence == 0 || frame.timestampMs > nowMs || nowMs - frame.timestampMs > limitMs;
}

// Tells the receiver that some application uses the camera: Signal() with every frame that is asked for. Three seconds
// may go by between two; the receiver takes a silence of four for the end.
class UsageSignal {
public:
    static constexpr const wchar_t* EventName = L"Global\\VistelVirtualCameraSample-v1";

    explicit UsageSignal(const wchar_t* eventName = EventName) {
        // Whoever comes first, camera or receiver, makes the event; its security must let the other one in.
        PSECURITY_DESCRIPTOR descriptor = nullptr;
        ConvertStringSecurityDescriptorToSecurityDescriptorW(L"D:(A;;GA;;;SY)(A;;GA;;;BA)(A;;GA;;;IU)(A;;0x0002;;;LS)",
                                                             SDDL_REVISION_1, &descriptor, nullptr);
        SECURITY_ATTRIBUTES attributes{sizeof(attributes), descriptor, FALSE};
        // The camera may do no more than signal.
        event_ = CreateEventExW(descriptor != nullptr ? &attributes : nullptr, eventName, 0, EVENT_MODIFY_STATE);
        LocalFree(descriptor);
    }
    ~UsageSignal() {
        if (event_ != nullptr) {
            CloseHandle(event_);
        }
    }
    UsageSignal(const UsageSignal&) = delete;
    UsageSignal& operator=(const UsageSignal&) = delete;

    // False when the event can be neither opened nor made; Signal() then does nothing.
    [[nodiscard]] bool IsOpen() const noexcept { return event_ != nullptr; }
    void Signal() const noexcept {
        if (event_ != nullptr) {
            SetEvent(event_);
        }
    }

private:
    HANDLE event_;
};

enum class ReadResult {
    NewFrame,
    NoNewFrame, // nothing was published since the last frame that was read
    Busy, // a frame is being written, or frames follow one another faster than they can be copied
    NoFile, // there is no frame file of this version yet
    Damaged, // the header contradicts itself although no frame is being written; told once
};

// For one thread at a time. The file is opened by the first call that finds it.
class FrameReader {
public:
    explicit FrameReader(std::wstring path) : path_(std::move(path)) { copy_.reserve(MaxFrameSize); }
    ~FrameReader() {
        if (view_ != nullptr) {
            UnmapViewOfFile(view_);
        }
    }
    FrameReader(const FrameReader&) = delete;
    FrameReader& operator=(const FrameReader&) = delete;

    // Copies the newest frame, unless it was read before. `frame` changes only with NewFrame. Never waits: after a few
    // attempts in vain the answer is Busy, and the caller asks again a little later.
    [[nodiscard]] ReadResult ReadNewFrame(Frame& frame) {
        if (view_ == nullptr && !Open()) {
            return ReadResult::NoFile;
        }
        for (int attempt = 0; attempt < MaxAttempts; ++attempt) {
            const std::uint64_t sequence = LoadSequence();
            if (sequence == 0) { // never written to, or just started anew
                lastSequence_ = 0;
                return ReadResult::NoNewFrame;
            }
            if (sequence == lastSequence_) {
                return ReadResult::NoNewFrame;
            }
            if (sequence % 2 == 0) {
                const Header header = LoadHeader();
                const bool valid = IsValid(header);
                if (valid) {
                    const std::uint8_t* const buffer = Buffer(header);
                    copy_.assign(buffer, buffer + header.frameSize);
                }
                if (IsSequenceStill(sequence)) {
                    return valid ? Accept(header, sequence, frame) : Refuse(header, sequence);
                }
            }
            ++retryCount_;
            SwitchToThread();
        }
        return ReadResult::Busy;
    }

    // True when the file shows something else under the frame's own sequence than what was read: the frame was torn.
    // Meant for tests of a writer; false also when the frame has been replaced since.
    [[nodiscard]] bool IsContradicted(const Frame& frame) const {
        if (view_ == nullptr || LoadSequence() != frame.sequence) {
            return false;
        }
        const Header header = LoadHeader();
        const bool same = IsValid(header) && header.width == frame.width && header.height == frame.height &&
                          header.timestamp == frame.timestampMs && header.frameSize == frame.nv12.size() &&
                          std::memcmp(Buffer(header), frame.nv12.data(), frame.nv12.size()) == 0;
        return IsSequenceStill(frame.sequence) && !same;
    }

    // Attempts so far that found the sequence odd or changed.
    [[nodiscard]] std::uint64_t RetryCount() const noexcept { return retryCount_; }

private:
    struct Header {
        std::uint32_t magic;
        std::uint32_t version;
        std::uint32_t width;
        std::uint32_t height;
        std::uint32_t stride;
        std::uint32_t frameSize;
        std::uint64_t sequence;
        std::uint32_t activeBuffer;
        std::uint32_t reserved0;
        std::uint64_t timestamp;
        std::uint64_t reserved1[2];
    };
    static_assert(sizeof(Header) == 64 && offsetof(Header, sequence) == 24 && offsetof(Header, timestamp) == 40);

    static constexpr std::uint32_t Magic = 0x4C545356; // the bytes "VSTL"
    static constexpr std::uint32_t Version = 2;
    static constexpr std::size_t MaxFrameSize = 1920 * 1080 * 3 / 2;
    static constexpr std::size_t FileSize = sizeof(Header) + 2 * MaxFrameSize;
    static constexpr int MaxAttempts = 4;

    [[nodiscard]] bool Open() {
        constexpr DWORD ShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
        const HANDLE file =
            CreateFileW(path_.c_str(), GENERIC_READ, ShareAll, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
        if (file == INVALID_HANDLE_VALUE) {
            return false;
        }
        // Only at its exact size: Windows does not let the writer cut a longer file while somebody maps it.
        LARGE_INTEGER size{};
        if (GetFileSizeEx(file, &size) != FALSE && size.QuadPart == LONGLONG{FileSize}) {
            const HANDLE mapping = CreateFileMappingW(file, nullptr, PAGE_READONLY, 0, 0, nullptr);
            if (mapping != nullptr) {
                view_ = static_cast<const std::uint8_t*>(MapViewOfFile(mapping, FILE_MAP_READ, 0, 0, FileSize));
                CloseHandle(mapping);
            }
        }
        CloseHandle(file); // the view keeps the file's contents reachable
        return view_ != nullptr;
    }

    // The view is read-only, so that no interlocked operation can touch it; an aligned 64-bit load is atomic on x64.
    [[nodiscard]] std::uint64_t LoadSequence() const noexcept {
        const std::uint64_t sequence =
            *reinterpret_cast<const volatile std::uint64_t*>(view_ + offsetof(Header, sequence));
        // No later read of header or buffer may come before this one.
        std::atomic_thread_fence(std::memory_order_acquire);
        return sequence;
    }

    [[nodiscard]] bool IsSequenceStill(std::uint64_t sequence) const noexcept {
        // Every read of header and buffer comes before the one of the sequence.
        std::atomic_thread_fence(std::memory_order_acquire);
        return LoadSequence() == sequence;
    }

    [[nodiscard]] Header LoadHeader() const noexcept {
        Header header;
        std::memcpy(&header, view_, sizeof(header));
        return header;
    }

    [[nodiscard]] static bool IsFrameFile(const Header& header) noexcept {
        return header.magic == Magic && header.version == Version;
    }

    [[nodiscard]] static bool IsValid(const Header& header) noexcept {
        const bool knownSize =
            (header.width == 1280 && header.height == 720) || (header.width == 1920 && header.height == 1080);
        return IsFrameFile(header) && knownSize && header.stride == header.width &&
               header.frameSize == header.width * header.height * 3 / 2;
    }

    [[nodiscard]] const std::uint8_t* Buffer(const Header& header) const noexcept {
        return view_ + sizeof(Header) + (header.activeBuffer == 0 ? 0 : MaxFrameSize);
    }

    [[nodiscard]] ReadResult Accept(const Header& header, std::uint64_t sequence, Frame& frame) noexcept {
        lastSequence_ = sequence;
        frame.width = header.width;
        frame.height = header.height;
        frame.sequence = sequence;
        frame.timestampMs = header.timestamp;
        frame.nv12.swap(copy_);
        return ReadResult::NewFrame;
    }

    [[nodiscard]] ReadResult Refuse(const Header& header, std::uint64_t sequence) noexcept {
        if (!IsFrameFile(header)) {
            return ReadResult::NoFile;
        }
        lastSequence_ = sequence;
        return ReadResult::Damaged;
    }

    std::wstring path_;
    const std::uint8_t* view_ = nullptr;
    std::uint64_t lastSequence_ = 0;
    std::uint64_t retryCount_ = 0;
    std::vector<std::uint8_t> copy_;
};

} // namespace vistel
