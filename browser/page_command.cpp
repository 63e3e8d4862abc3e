#include "browser/page_command.h"

namespace receiver {
namespace {

struct CommandForm {
    PageCommandKind kind;
    std::wstring_view text;
    bool takesArgument;
};

constexpr CommandForm CommandForms[] = {
    {PageCommandKind::Ready, L"ready", false},
    {PageCommandKind::WindowOrientation, L"window:orientation:", true},
    {PageCommandKind::Snapshot, L"media:snapshot", false},
    {PageCommandKind::RecordStart, L"media:record:start", false},
    {PageCommandKind::RecordStop, L"media:record:stop", false},
    {PageCommandKind::Quality, L"quality:", true},
    {PageCommandKind::Frame, L"frame:", true},
};

} // namespace

PageCommand RecognizePageCommand(std::wstring_view text) noexcept {
    for (const CommandForm& form : CommandForms) {
        if (form.takesArgument ? text.starts_with(form.text) : text == form.text) {
            return {form.kind, text.substr(form.text.size())};
        }
    }
    return {};
}

std::optional<PictureSize> ClientSizeOf(std::wstring_view orientation) noexcept {
    if (orientation == L"landscape") {
        return PictureSize{960, 540};
    }
    if (orientation == L"portrait") {
        return PictureSize{450, 800};
    }
    if (orientation == L"setup") {
        return PictureSize{760, 520};
    }
    return std::nullopt;
}

} // namespace receiver
