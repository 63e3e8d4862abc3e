// The two frame slots shared with the page, and the handling of a frame message: convert, publish, record.

#include "app/receiver_app.h"
#include "app/receiver_log.h"
#include "browser/page_command.h"
#include "browser/page_json.h"
#include "frames/frame_message.h"
#include "frames/nv12_frame.h"
#include "platform/hresult.h"

#include <array>
#include <cstddef>
#include <new>
#include <optional>
#include <string>

namespace receiver {
namespace {

constexpr std::array<std::wstring_view, 2> SlotPrefixes = {L"0:", L"1:"};

// Removes the slot's number and colon from the front of a frame command's argument and returns the number.
std::optional<std::size_t> TakeSlotNumber(std::wstring_view& argument) noexcept {
    for (std::size_t slot = 0; slot < SlotPrefixes.size(); ++slot) {
        if (argument.starts_with(SlotPrefixes[slot])) {
            argument.remove_prefix(SlotPrefixes[slot].size());
            return slot;
        }
    }
    return std::nullopt;
}

} // namespace

HRESULT ReceiverApp::CreateAndPostFrameSlots() noexcept try {
    if (!environment || !webView) {
        return E_POINTER;
    }
    ComPtr<ICoreWebView2Environment12> bufferFactory;
    RETURN_IF_FAILED(environment.As(IID_ICoreWebView2Environment12, bufferFactory));
    ComPtr<ICoreWebView2_17> bufferPoster;
    RETURN_IF_FAILED(webView.As(IID_ICoreWebView2_17, bufferPoster));
    // No slot is posted without a file to publish to.
    RETURN_IF_FAILED(sharedFrameFile.OpenSharedFrameFile());

    for (unsigned slot = 0; slot < slotBuffers.size(); ++slot) {
        slotData[slot] = nullptr; // It becomes invalid with the buffer that is released next.
        RETURN_IF_FAILED(bufferFactory->CreateSharedBuffer(SlotSize, slotBuffers[slot].Put()));
        RETURN_IF_FAILED(slotBuffers[slot]->get_Buffer(&slotData[slot]));
        RETURN_IF_FAILED(bufferPoster->PostSharedBufferToScript(
            slotBuffers[slot].Get(), COREWEBVIEW2_SHARED_BUFFER_ACCESS_READ_WRITE, SlotJson(slot).c_str()));
    }
    return S_OK;
} catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
}

HRESULT ReceiverApp::HandleFrameMessage(std::wstring_view message) {
    std::wstring_view descriptor = RecognizePageCommand(message).argument;
    const std::optional<std::size_t> slot = TakeSlotNumber(descriptor);
    if (!slot || descriptor.empty() || slotData[*slot] == nullptr) {
        return E_INVALIDARG;
    }
    const bool first = framesHandled == 0;
    if (first) {
        ReceiverLog::Write(L"First frame descriptor: ", message);
    }
    const HRESULT result = ConvertAndPublishFrame(slotData[*slot], descriptor);
    ++framesHandled;
    if (first) {
        ReceiverLog::Write(L"First browser frame published", result);
    }
    return result;
}

HRESULT ReceiverApp::ConvertAndPublishFrame(const std::uint8_t* slot, std::wstring_view text) try {
    if (slot == nullptr) {
        return E_POINTER;
    }
    FrameDescriptor descriptor;
    if (!ParseFrameDescriptor(text, descriptor)) {
        return E_INVALIDARG;
    }
    RETURN_IF_FAILED(frameConverter.Convert({slot, SlotSize}, descriptor, outputWidth, outputHeight, scratchBuffer));
    const Nv12Frame frame = scratchBuffer.Frame();
    const auto size = static_cast<std::uint32_t>(frame.bytes.size());
    const HRESULT published = sharedFrameFile.PublishFrame(frame.bytes.data(), size, frame.width, frame.height);
    if (FAILED(published) || !recorder.Recording()) {
        return published;
    }
    const HRESULT written = recorder.WriteFrame(frame.bytes.data(), static_cast<std::int32_t>(size));
    if (FAILED(written)) {
        (void)StopRecording(nullptr, written); // The page receives the reason, not how the file was closed.
    }
    return written;
} catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY; // Like every other result it is counted and, for the first frame, logged.
}

} // namespace receiver
