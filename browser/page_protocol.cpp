// Dispatches the texts that the page posts, and posts results to it. frames/frame_slots.cpp handles frame messages.

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
    case PageCommandKind::WindowLayout:
        return HandleLayout(command.argument);
    case PageCommandKind::Snapshot:
        return HandleSnapshot();
    case PageCommandKind::RecordStart:
        return HandleRecordStart();
    case PageCommandKind::RecordStop:
        return StopRecording(L"Recording stopped");
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
    if (usageTracker.ConsumerActive()) {
        (void)PostJsonToPage(UsageOnJson); // A message that is not posted is lost.
    }
    return posted;
}

HRESULT ReceiverApp::HandleLayout(std::wstring_view layout) {
    const std::optional<ClientSize> client = ClientSizeOf(layout);
    if (!client) {
        return E_INVALIDARG;
    }
    ApplyWindowLayout(client->width, client->height, layout);
    return S_OK;
}

HRESULT ReceiverApp::HandleSnapshot() {
    std::wstring path;
    const std::span<const std::uint8_t> frame = scratchBuffer.Frame().bytes;
    HRESULT result = MF_E_NOT_AVAILABLE;
    if (!frame.empty()) {
        // Deliberate: with the size in force, which after a change of quality and until the next frame is not the
        // size of the frame on the canvas.
        result = SaveSnapshot(frame.data(), static_cast<std::uint32_t>(frame.size()), outputWidth, outputHeight, path);
    }
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

HRESULT ReceiverApp::HandleQuality(std::wstring_view name) {
    // Deliberate: a running recording is stopped before the name is examined, so that an unknown name stops it too.
    if (recorder.Recording()) {
        (void)StopRecording(nullptr); // The page receives the result; it does not decide about the quality.
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

HRESULT ReceiverApp::StopRecording(const wchar_t* logText, HRESULT writeFailure) {
    std::wstring path;
    const HRESULT stopped = recorder.Stop(&path);
    if (logText != nullptr) {
        ReceiverLog::Write(logText, stopped);
    }
    const bool failed = FAILED(writeFailure);
    PostMediaResult(failed ? L"recording-failed" : L"recording-stopped", failed ? writeFailure : stopped, path);
    return stopped;
}

void ReceiverApp::PostMediaResult(std::wstring_view action, HRESULT code, std::wstring_view path) {
    if (webView) {
        (void)PostJsonToPage(MediaResultJson(action, code, path).c_str()); // A message that is not posted is lost.
    }
}

HRESULT ReceiverApp::PostJsonToPage(const wchar_t* text) noexcept {
    return webView ? webView->PostWebMessageAsJson(text) : E_POINTER;
}

} // namespace receiver
