// Replaces app/receiver_log.cpp: records the lines in memory.

#include "app/receiver_log.h"

#include "app/log_line.h"
#include "fuzz/windows/fake_windows.h"

namespace receiver {

std::wstring ReceiverLog::FilePath() { return {}; }

void ReceiverLog::Reset() noexcept { FakeWindows::Current().events.clear(); }

void ReceiverLog::Write(std::wstring_view message, HRESULT result) noexcept {
    std::wstring event = L"log ";
    for (const char character : FormatLogLine({3, 4, 5}, message, result)) {
        event += static_cast<wchar_t>(static_cast<unsigned char>(character));
    }
    FakeWindows::Current().events.push_back(event);
}

void ReceiverLog::Write(std::wstring_view message, std::wstring_view text) noexcept {
    Write(std::wstring(message).append(text));
}

} // namespace receiver
