#include "frames/frame_file.h"

#include <atomic>
#include <cstring>

namespace receiver {

static_assert(std::atomic_ref<std::uint64_t>::is_always_lock_free, "other processes read the counters");
static_assert(std::atomic_ref<std::uint32_t>::is_always_lock_free);

bool IsHeaderValid(const FrameFileHeader& header) noexcept {
    return header.magic == FrameFileMagic && header.version == FrameFileVersion &&
           FindQuality(header.width, header.height) != nullptr && header.stride == header.width &&
           header.frameSize == Nv12Size(header.width, header.height);
}

void ResetFrameFile(FrameFileLayout& file) noexcept {
    constexpr std::size_t Kept = offsetof(FrameFileHeader, sequence);
    std::memset(reinterpret_cast<std::uint8_t*>(&file) + Kept, 0, sizeof(file) - Kept);
    // Zeros are visible before the geometry makes the header valid: no reader can accept an old frame under the new
    // header.
    std::atomic_thread_fence(std::memory_order_seq_cst);
    file.header.magic = FrameFileMagic;
    file.header.version = FrameFileVersion;
    file.header.width = DefaultQuality.width;
    file.header.height = DefaultQuality.height;
    file.header.stride = DefaultQuality.width;
    file.header.frameSize = Nv12Size(DefaultQuality.width, DefaultQuality.height);
}

std::uint8_t* BeginFrame(FrameFileLayout& file, std::uint32_t width, std::uint32_t height) noexcept {
    FrameFileHeader& header = file.header;
    std::atomic_ref<std::uint64_t> sequence(header.sequence);
    // The odd sequence is visible before any write below: a sequentially consistent read-modify-write is a full barrier
    // on x64. From one odd number to the next in one step: with an even one in between, readers would accept the
    // incomplete frame of a writer that ended while writing.
    sequence.fetch_add(sequence.load() % 2 != 0 ? 2 : 1);

    header.width = width;
    header.height = height;
    header.stride = width;
    header.frameSize = Nv12Size(width, height);
    const std::uint32_t active = std::atomic_ref<std::uint32_t>(header.activeBuffer).load();
    return file.buffers[active == 0 ? 1 : 0];
}

void CompleteFrame(FrameFileLayout& file, const std::uint8_t* buffer, std::uint64_t timestampMs) noexcept {
    FrameFileHeader& header = file.header;
    // The frame's bytes are visible before the index of their buffer.
    std::atomic_thread_fence(std::memory_order_seq_cst);
    std::atomic_ref<std::uint32_t>(header.activeBuffer).exchange(buffer == file.buffers[0] ? 0 : 1);
    std::atomic_ref<std::uint64_t>(header.timestamp).exchange(timestampMs);
    // Index and time stamp are visible before the even sequence, which declares them consistent.
    std::atomic_thread_fence(std::memory_order_seq_cst);
    std::atomic_ref<std::uint64_t>(header.sequence).fetch_add(1);
}

} // namespace receiver
