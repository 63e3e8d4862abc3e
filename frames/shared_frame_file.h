// The shared frame file on disk, mapped for writing: the only way for frames to the virtual camera.
// The receiver is its only writer; frames/frame_file.h holds the layout and the protocol with readers.
#pragma once

#include "frames/frame_file.h"
#include "platform/handles.h"

#include <cstdint>

namespace receiver {

class SharedFrameFile {
public:
    // Opens, sizes, maps and validates "frame-buffer.bin" in the data folder. S_OK when it is open already.
    // A failure leaves the object closed.
    [[nodiscard]] HRESULT OpenSharedFrameFile();
    // Publishes one tightly packed NV12 frame of a quality's size; opens the file first when it is not open.
    // E_INVALIDARG, with the file untouched, for any other size or a null pointer.
    [[nodiscard]] HRESULT PublishFrame(const std::uint8_t* data, std::uint32_t size, std::uint32_t width,
                                       std::uint32_t height);
    // May be called in any state. The file stays on disk.
    void CloseSharedFrameFile() noexcept;

private:
    [[nodiscard]] FrameFileLayout& Layout() const noexcept { return *static_cast<FrameFileLayout*>(view.Get()); }

    UniqueFile file;
    UniqueHandle mapping;
    MappedView view; // set exactly while the file is open
};

} // namespace receiver
