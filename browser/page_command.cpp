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
    {PageCommandKind::WindowLayout, L"window:orientation:", true},
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

std::optional<ClientSize> ClientSizeOf(std::wstring_view layout) noexcept {
    if (layout == L"landscape") {
        return ClientSize{960, 540};
    }
    if (layout == L"portrait") {
        return ClientSize{450, 800};
    }
    if (layout == L"setup") {
        return ClientSize{760, 520};
    }
    return std::nullopt;
}

} // namespace receiver
