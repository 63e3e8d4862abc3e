// Replaces app/receiver_log.cpp: records the lines in memory.

#include "app/receiver_log.h"

#include "app/log_line.h"
#include "fuzz/windows/fake_windows.h"

namespace receiver {

std::wstring ReceiverLog::FilePath() { return {}; }

void ReceiverLog::Reset() noexcept { FakeWindows::Current().logLines.clear(); }

void ReceiverLog::Write(std::wstring_view message, HRESULT result) noexcept {
    FakeWindows::Current().logLines.push_back(FormatLogLine({3, 4, 5}, message, result));
}

} // namespace receiver
