// The dispatcher of the page's texts, and what is posted in answer. frames/frame_slots.cpp handles frame messages.

#include "app/quality.h"
#include "app/receiver_app.h"
#include "app/receiver_log.h"
#include "app/settings.h"
#include "browser/page_command.h"
#include "browser/page_json.h"
#include "capture/snapshot_writer.h"
#include "platform/hresult.h"

#include <optional>
#include <span>
#include <string>

namespace receiver {

HRESULT ReceiverApp::OnWebMessageReceived(ICoreWebView2*, ICoreWebView2WebMessageReceivedEventArgs* args) {
    CoTaskString message;
    RETURN_IF_FAILED(args->TryGetWebMessageAsString(message.Put()));
    const std::wstring_view text = message ? message.Get() : L"";
    const PageCommand command = RecognizePageCommand(text);
    switch (command.kind) {
    case PageCommandKind::Ready:
        return HandleReady();
    case PageCommandKind::WindowOrientation:
        return HandleOrientation(command.argument);
    case PageCommandKind::Snapshot:
        return HandleSnapshot();
    case PageCommandKind::RecordStart:
        return HandleRecordStart();
    case PageCommandKind::RecordStop:
        return HandleRecordStop();
    case PageCommandKind::Quality:
        return HandleQuality(command.argument);
    case PageCommandKind::Frame:
        return HandleFrameMessage(text);
    case PageCommandKind::Unknown:
        break;
    }
    ReceiverLog::Write(L"Web message: ", text);
    return S_OK;
}

HRESULT ReceiverApp::HandleReady() {
    ReceiverLog::Write(L"Web message: ready");
    const HRESULT posted = CreateAndPostFrameSlots();
    ReceiverLog::Write(L"Shared frame buffers posted to script", posted);
    if (SUCCEEDED(posted)) {
        ReceiverLog::Write(L"System diagnostics posted to script", PostDiagnostics());
    }
    pageReady = true; // regardless of the results above
    if (consumerActive) {
        PostJsonToPage(UsageOnJson);
    }
    return posted;
}

HRESULT ReceiverApp::HandleOrientation(std::wstring_view mode) {
    const std::optional<PictureSize> client = ClientSizeOf(mode);
    if (!client) {
        return E_INVALIDARG;
    }
    ApplyWindowLayout(static_cast<std::int32_t>(client->width), static_cast<std::int32_t>(client->height), mode);
    return S_OK;
}

HRESULT ReceiverApp::HandleSnapshot() {
    std::wstring path;
    const std::span<const std::uint8_t> frame = scratchBuffer.Bytes();
    const HRESULT result = frame.empty() ? MF_E_NOT_AVAILABLE
                                         : SaveSnapshot(frame.data(), static_cast<std::uint32_t>(frame.size()),
                                                        outputWidth, outputHeight, path);
    ReceiverLog::Write(L"Snapshot requested", result);
    PostMediaResult(L"snapshot", result, path);
    return result;
}

HRESULT ReceiverApp::HandleRecordStart() {
    std::wstring path;
    const HRESULT result = recorder.Start(outputWidth, outputHeight, &path);
    ReceiverLog::Write(L"Recording started", result);
    PostMediaResult(L"recording-started", result, path);
    return result;
}

HRESULT ReceiverApp::HandleRecordStop() {
    std::wstring path;
    const HRESULT result = recorder.Stop(&path);
    ReceiverLog::Write(L"Recording stopped", result);
    PostMediaResult(L"recording-stopped", result, path);
    return result;
}

HRESULT ReceiverApp::HandleQuality(std::wstring_view name) {
    // Deliberate: a running recording is stopped before the name is examined, so that an unknown name stops it too.
    if (recorder.Recording()) {
        std::wstring path;
        const HRESULT stopped = recorder.Stop(&path);
        PostMediaResult(L"recording-stopped", stopped, path);
    }
    const Quality* const quality = FindQuality(name);
    if (quality == nullptr) {
        return E_INVALIDARG;
    }
    outputWidth = quality->width;
    outputHeight = quality->height;
    const bool saved = SaveVideoQuality(name);
    ReceiverLog::Write(L"Video quality selected: ", name);
    return saved ? S_OK : E_FAIL;
}

void ReceiverApp::PostJsonToPage(const wchar_t* text) noexcept {
    if (webView) {
        (void)webView->PostWebMessageAsJson(text); // A page that has gone misses the message.
    }
}

void ReceiverApp::PostMediaResult(std::wstring_view action, HRESULT code, std::wstring_view path) {
    if (webView) {
        PostJsonToPage(MediaResultJson(action, code, path).c_str());
    }
}

} // namespace receiver
