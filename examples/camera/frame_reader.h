// Reads the newest video frame from the shared frame file, as a virtual camera does, and tells the receiver that frames
// are wanted. One header for any C++17 compiler that targets 64-bit Windows; it needs nothing else of the receiver.
// docs/frame-file.md describes the file; print_frames.cpp in this folder shows how the header is used.
//
// Nothing here throws, allocates memory or needs exceptions enabled. The header includes <windows.h> with
// WIN32_LEAN_AND_MEAN, so that winsock2.h may come before or after it; a program that wants more of <windows.h>
// includes that first.
#pragma once

#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#include <windows.h>
#undef WIN32_LEAN_AND_MEAN
#else
#include <windows.h>
#endif

#include <sddl.h>

#ifdef _MSC_VER
#pragma comment(lib, "advapi32")
#endif

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace vistel {

// The file's first 64 bytes. The writer makes `sequence` odd, fills the buffer that `activeBuffer` does not name,
// switches `activeBuffer` over and makes `sequence` even. A copy is good when `sequence` was even before it and is the
// same after it.
struct FileHeader {
    static constexpr std::uint32_t Magic = 0x4C545356; // the bytes "VSTL"
    static constexpr std::uint32_t Version = 2;

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
static_assert(sizeof(FileHeader) == 64 && offsetof(FileHeader, sequence) == 24 && offsetof(FileHeader, timestamp) == 40,
              "the layout of the shared frame file");

constexpr std::size_t MaxFrameSize = std::size_t{1920} * 1080 * 3 / 2;
constexpr std::size_t FileSize = sizeof(FileHeader) + 2 * MaxFrameSize;

struct FrameInfo {
    std::uint32_t width = 0; // pixels: 1280 x 720 or 1920 x 1080
    std::uint32_t height = 0;
    std::uint64_t sequence = 0; // grows by 2 with every frame; 0 means that there is no frame
    std::uint64_t timestampMs = 0; // GetTickCount64() of the writer when it had completed the frame
};

// Where a frame's `height` rows of Y and, after them, height / 2 rows of U,V pairs are copied to.
struct Destination {
    std::uint8_t* data; // null: the frame is not wanted
    std::size_t pitch; // bytes from the start of a row to the start of the next; at least the frame's width
};

// True for a frame that is no longer live: the receiver has ended, or its page sends nothing. A camera then shows that
// there is no picture instead of a frozen one. A time stamp in the future was made before the system was restarted.
[[nodiscard]] inline bool IsStale(const FrameInfo& frame, std::uint64_t limitMs = 2000,
                                  std::uint64_t nowMs = GetTickCount64()) noexcept {
    return frame.sequence == 0 || frame.timestampMs > nowMs || nowMs - frame.timestampMs > limitMs;
}

// A path that is kept without allocating memory.
struct FilePath {
    static constexpr std::size_t Capacity = 1024; // characters, the terminating null included

    wchar_t text[Capacity];
};

// The file of the receiver on this machine.
[[nodiscard]] inline FilePath DefaultPath() noexcept {
    constexpr DWORD FolderCapacity = 260; // as in the receiver, which uses the fixed folder for a longer name
    FilePath path{};
    const DWORD length = GetEnvironmentVariableW(L"ProgramData", path.text, FolderCapacity);
    if (length == 0 || length >= FolderCapacity) {
        lstrcpyW(path.text, L"C:\\ProgramData");
    }
    lstrcatW(path.text, L"\\Vistel\\frame-buffer.bin");
    return path;
}

// Tells the receiver that an application uses the camera: call Signal() with every frame that is asked for. The
// receiver takes a silence of four seconds for the end; up to three seconds between two signals are safe.
class UsageSignal {
public:
    static constexpr const wchar_t* EventName = L"Global\\VistelVirtualCameraSample-v1";

    explicit UsageSignal(const wchar_t* eventName = EventName) noexcept {
        // The first of camera and receiver creates the event; its security must let the other one in.
        PSECURITY_DESCRIPTOR descriptor = nullptr;
        ConvertStringSecurityDescriptorToSecurityDescriptorW(L"D:(A;;GA;;;SY)(A;;GA;;;BA)(A;;GA;;;IU)(A;;0x0002;;;LS)",
                                                             SDDL_REVISION_1, &descriptor, nullptr);
        SECURITY_ATTRIBUTES attributes{sizeof(attributes), descriptor, FALSE};
        // The camera may do no more than signal.
        event = CreateEventExW(descriptor != nullptr ? &attributes : nullptr, eventName, 0, EVENT_MODIFY_STATE);
        LocalFree(descriptor);
    }
    ~UsageSignal() {
        if (event != nullptr) {
            CloseHandle(event);
        }
    }
    UsageSignal(const UsageSignal&) = delete;
    UsageSignal& operator=(const UsageSignal&) = delete;

    // False when the event can be neither opened nor created; Signal() then does nothing.
    [[nodiscard]] bool IsOpen() const noexcept { return event != nullptr; }
    void Signal() const noexcept {
        if (event != nullptr) {
            SetEvent(event);
        }
    }

private:
    HANDLE event = nullptr;
};

enum class ReadResult {
    NewFrame,
    NoNewFrame, // nothing was published since the last frame that was read
    Busy, // a frame is being written, or frames follow one another faster than they can be copied
    NotWanted, // the caller named no destination; the same frame is offered again
    NoFile, // State() tells why
    OtherVersion, // not a frame file, or one of another version; reported once for each change of the sequence
    Damaged, // the header contradicts itself although no frame is being written; reported once in the same way
};

// Why a camera has, or has not, a picture to show.
enum class PictureState {
    Live,
    Stale, // the last frame is too old: no receiver runs, or its page sends nothing
    NoFrameYet, // the file is there, and no frame has been written to it
    Missing, // there is no file: the receiver has not run on this machine
    Denied, // the file may not be read by this account
    WrongSize, // not the size of a frame file
    OtherVersion, // not a frame file, or one of another version
    Damaged, // the header contradicts itself
    Failed, // another error of the system
};

[[nodiscard]] inline const char* Text(PictureState state) noexcept {
    switch (state) {
    case PictureState::Live:
        return "the picture is live";
    case PictureState::Stale:
        return "the receiver is not running, or its page sends no frames";
    case PictureState::NoFrameYet:
        return "the receiver has not written a frame yet";
    case PictureState::Missing:
        return "there is no frame file: the receiver has not run here";
    case PictureState::Denied:
        return "access to the frame file is denied";
    case PictureState::WrongSize:
        return "the frame file has the wrong size";
    case PictureState::OtherVersion:
        return "the frame file has another version";
    case PictureState::Damaged:
        return "the frame file is damaged";
    case PictureState::Failed:
        break;
    }
    return "the frame file cannot be opened";
}

// For one thread at a time. Opens the file with the first Read() that finds it, and the new file when it is replaced.
class FrameReader {
public:
    explicit FrameReader(const wchar_t* newPath = DefaultPath().text) noexcept {
        pathFits = static_cast<std::size_t>(lstrlenW(newPath)) < FilePath::Capacity;
        if (pathFits) {
            lstrcpyW(path.text, newPath);
        }
    }
    ~FrameReader() { Close(); }
    FrameReader(const FrameReader&) = delete;
    FrameReader& operator=(const FrameReader&) = delete;

    // Copies the newest frame, unless it was read before, to where `destinationOf(width, height)`, which returns a
    // Destination, says; it may be called several times. Only after NewFrame is the copy whole and `frame` set. Never
    // waits: after a few unsuccessful attempts the result is Busy, and the caller asks again a little later.
    template <typename DestinationOf>
    [[nodiscard]] ReadResult Read(FrameInfo& frame, DestinationOf&& destinationOf) {
        if (view == nullptr && !Open()) {
            return ReadResult::NoFile;
        }
        const ReadResult result = ReadOpenFile(frame, destinationOf);
        if (result == ReadResult::NewFrame) {
            lastChangeMs = GetTickCount64();
        } else if (result != ReadResult::NotWanted && IsReplaced()) {
            Close();
        }
        return result;
    }

    // Whether the last frame that was read is still live, and if not, why there is no newer one.
    [[nodiscard]] PictureState State(std::uint64_t nowMs = GetTickCount64()) const noexcept {
        if (!IsStale(lastFrame, StaleLimitMs, nowMs)) {
            return PictureState::Live;
        }
        if (view == nullptr || fileState != PictureState::Live) {
            return fileState;
        }
        return lastFrame.sequence == 0 ? PictureState::NoFrameYet : PictureState::Stale;
    }

    // The system's error code when the file could not be opened; else 0.
    [[nodiscard]] DWORD SystemError() const noexcept { return systemError; }

    // True when the file shows something else under the frame's own sequence than what was read: the frame was torn.
    // Meant for tests of a writer; false also when the frame has been replaced since.
    [[nodiscard]] bool IsContradicted(const FrameInfo& frame, const Destination& copy) const noexcept {
        if (view == nullptr || LoadSequence() != frame.sequence) {
            return false;
        }
        const FileHeader header = LoadHeader();
        bool same = IsValid(header) && header.width == frame.width && header.height == frame.height &&
                    header.timestamp == frame.timestampMs;
        const std::uint8_t* row = Buffer(header);
        for (std::size_t y = 0; same && y < std::size_t{header.height} * 3 / 2; ++y, row += header.width) {
            same = std::memcmp(row, copy.data + y * copy.pitch, header.width) == 0;
        }
        return IsSequenceStill(frame.sequence) && !same;
    }

    // Attempts so far that found the sequence odd or changed.
    [[nodiscard]] std::uint64_t RetryCount() const noexcept { return retryCount; }

private:
    static constexpr int MaxAttempts = 4;
    static constexpr std::uint64_t StaleLimitMs = 2000;
    static constexpr std::uint64_t ReplacedCheckMs = 1000; // without a new frame, until the path is looked at again
    static constexpr DWORD ShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

    template <typename DestinationOf>
    [[nodiscard]] ReadResult ReadOpenFile(FrameInfo& frame, DestinationOf& destinationOf) {
        for (int attempt = 0; attempt < MaxAttempts; ++attempt) {
            const std::uint64_t sequence = LoadSequence();
            if (sequence == 0) { // never written to, or just reset
                lastSequence = 0;
                fileState = PictureState::Live;
                return ReadResult::NoNewFrame;
            }
            if (sequence == lastSequence) {
                return ReadResult::NoNewFrame;
            }
            if (sequence % 2 == 0) {
                const FileHeader header = LoadHeader();
                const bool valid = IsValid(header);
                if (valid) {
                    const Destination destination = destinationOf(header.width, header.height);
                    if (destination.data == nullptr) {
                        return ReadResult::NotWanted;
                    }
                    Copy(header, destination);
                }
                if (IsSequenceStill(sequence)) {
                    lastSequence = sequence;
                    return valid ? Accept(header, sequence, frame) : Refuse(header);
                }
            }
            ++retryCount;
            SwitchToThread();
        }
        return ReadResult::Busy;
    }

    [[nodiscard]] bool Open() noexcept {
        fileState = PictureState::Failed;
        const HANDLE file = OpenPath(GENERIC_READ);
        systemError = file == INVALID_HANDLE_VALUE ? OpeningError() : 0;
        if (file == INVALID_HANDLE_VALUE) {
            if (systemError == ERROR_FILE_NOT_FOUND || systemError == ERROR_PATH_NOT_FOUND) {
                fileState = PictureState::Missing;
            } else if (systemError == ERROR_ACCESS_DENIED) {
                fileState = PictureState::Denied;
            }
            return false;
        }
        // Only at its exact size: Windows does not let the writer truncate a longer file while a reader maps it.
        if (GetFileInformationByHandle(file, &identity) == FALSE) {
            systemError = GetLastError();
        } else if (identity.nFileSizeHigh != 0 || identity.nFileSizeLow != FileSize) {
            fileState = PictureState::WrongSize;
        } else {
            Map(file);
        }
        CloseHandle(file); // the view keeps the file's contents reachable
        return view != nullptr;
    }

    void Map(HANDLE file) noexcept {
        const HANDLE mapping = CreateFileMappingW(file, nullptr, PAGE_READONLY, 0, 0, nullptr);
        if (mapping == nullptr) {
            systemError = GetLastError();
            return;
        }
        view = static_cast<const std::uint8_t*>(MapViewOfFile(mapping, FILE_MAP_READ, 0, 0, FileSize));
        if (view == nullptr) {
            systemError = GetLastError();
        } else {
            fileState = PictureState::Live;
            lastSequence = 0;
            lastChangeMs = GetTickCount64();
        }
        CloseHandle(mapping);
    }

    void Close() noexcept {
        if (view != nullptr) {
            UnmapViewOfFile(view);
            view = nullptr;
            fileState = PictureState::Missing; // until another one is opened
        }
    }

    [[nodiscard]] HANDLE OpenPath(DWORD access) const noexcept {
        return pathFits
                   ? CreateFileW(path.text, access, ShareAll, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr)
                   : INVALID_HANDLE_VALUE;
    }
    [[nodiscard]] DWORD OpeningError() const noexcept { return pathFits ? GetLastError() : ERROR_FILENAME_EXCED_RANGE; }

    // True when the path leads to another file now, or to none. Looks once a second while there is no new frame.
    [[nodiscard]] bool IsReplaced() noexcept {
        const std::uint64_t nowMs = GetTickCount64();
        if (nowMs - lastChangeMs < ReplacedCheckMs) {
            return false;
        }
        lastChangeMs = nowMs;
        const HANDLE file = OpenPath(FILE_READ_ATTRIBUTES);
        if (file == INVALID_HANDLE_VALUE) {
            const DWORD error = OpeningError();
            return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
        }
        BY_HANDLE_FILE_INFORMATION now{};
        const bool known = GetFileInformationByHandle(file, &now) != FALSE;
        CloseHandle(file);
        return known && (now.dwVolumeSerialNumber != identity.dwVolumeSerialNumber ||
                         now.nFileIndexHigh != identity.nFileIndexHigh || now.nFileIndexLow != identity.nFileIndexLow);
    }

    // The view is read-only, so that no interlocked operation can touch it; an aligned volatile load is atomic on x64.
    template <typename Value>
    [[nodiscard]] Value Load(std::size_t offset) const noexcept {
        return *reinterpret_cast<const volatile Value*>(view + offset);
    }

    [[nodiscard]] std::uint64_t LoadSequence() const noexcept {
        const auto sequence = Load<std::uint64_t>(offsetof(FileHeader, sequence));
        // No later load from header or buffer may come before this one.
        std::atomic_thread_fence(std::memory_order_acquire);
        return sequence;
    }

    [[nodiscard]] bool IsSequenceStill(std::uint64_t sequence) const noexcept {
        // All loads from header and buffer come before that of the sequence.
        std::atomic_thread_fence(std::memory_order_acquire);
        return LoadSequence() == sequence;
    }

    [[nodiscard]] FileHeader LoadHeader() const noexcept {
        FileHeader header{};
        header.magic = Load<std::uint32_t>(offsetof(FileHeader, magic));
        header.version = Load<std::uint32_t>(offsetof(FileHeader, version));
        header.width = Load<std::uint32_t>(offsetof(FileHeader, width));
        header.height = Load<std::uint32_t>(offsetof(FileHeader, height));
        header.stride = Load<std::uint32_t>(offsetof(FileHeader, stride));
        header.frameSize = Load<std::uint32_t>(offsetof(FileHeader, frameSize));
        header.activeBuffer = Load<std::uint32_t>(offsetof(FileHeader, activeBuffer));
        header.timestamp = Load<std::uint64_t>(offsetof(FileHeader, timestamp));
        return header;
    }

    [[nodiscard]] static bool IsFrameFile(const FileHeader& header) noexcept {
        return header.magic == FileHeader::Magic && header.version == FileHeader::Version;
    }

    [[nodiscard]] static bool IsValid(const FileHeader& header) noexcept {
        const bool knownSize =
            (header.width == 1280 && header.height == 720) || (header.width == 1920 && header.height == 1080);
        return IsFrameFile(header) && knownSize && header.stride == header.width &&
               header.frameSize == header.width * header.height * 3 / 2;
    }

    [[nodiscard]] const std::uint8_t* Buffer(const FileHeader& header) const noexcept {
        return view + sizeof(FileHeader) + (header.activeBuffer == 0 ? 0 : MaxFrameSize);
    }

    void Copy(const FileHeader& header, const Destination& destination) const noexcept {
        const std::uint8_t* const buffer = Buffer(header);
        if (destination.pitch == header.width) {
            std::memcpy(destination.data, buffer, header.frameSize);
            return;
        }
        for (std::size_t y = 0; y < std::size_t{header.height} * 3 / 2; ++y) {
            std::memcpy(destination.data + y * destination.pitch, buffer + y * header.width, header.width);
        }
    }

    [[nodiscard]] ReadResult Accept(const FileHeader& header, std::uint64_t sequence, FrameInfo& frame) noexcept {
        fileState = PictureState::Live;
        lastFrame.width = header.width;
        lastFrame.height = header.height;
        lastFrame.sequence = sequence;
        lastFrame.timestampMs = header.timestamp;
        frame = lastFrame;
        return ReadResult::NewFrame;
    }

    [[nodiscard]] ReadResult Refuse(const FileHeader& header) noexcept {
        const bool damaged = IsFrameFile(header);
        fileState = damaged ? PictureState::Damaged : PictureState::OtherVersion;
        return damaged ? ReadResult::Damaged : ReadResult::OtherVersion;
    }

    FilePath path{};
    bool pathFits = false;
    const std::uint8_t* view = nullptr;
    BY_HANDLE_FILE_INFORMATION identity{}; // of the file that is mapped
    PictureState fileState = PictureState::Missing; // of the file itself; Live: nothing is wrong with it
    DWORD systemError = 0;
    FrameInfo lastFrame;
    std::uint64_t lastSequence = 0;
    std::uint64_t lastChangeMs = 0; // when the path was last known to lead to the mapped file
    std::uint64_t retryCount = 0;
};

} // namespace vistel
