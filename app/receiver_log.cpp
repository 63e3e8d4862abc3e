#include "app/receiver_log.h"

#include "app/log_line.h"

#include <array>
#include <exception>
#include <filesystem>
#include <fstream>

namespace receiver {
namespace {

// Opened in text mode, so that lines end with CR LF on disk.
void WriteLine(std::ios::openmode mode, std::string_view line) {
    std::ofstream file(std::filesystem::path(ReceiverLog::FilePath()), std::ios::out | mode);
    if (file) {
        file << line << '\n';
    }
}

} // namespace

std::wstring ReceiverLog::FilePath() {
    std::array<wchar_t, 260> folder{};
    const DWORD length = GetTempPathW(static_cast<DWORD>(folder.size()), folder.data());
    std::wstring path;
    if (length > 0 && length < folder.size()) {
        path.assign(folder.data(), length);
        if (path.back() != L'\\') {
            path += L'\\';
        }
    }
    return path + L"vistel-receiver.log";
}

void ReceiverLog::Reset() noexcept {
    try {
        WriteLine(std::ios::trunc, "Vistel receiver log");
    } catch (const std::exception&) {
        return; // Out of memory: the log stays as it is.
    }
}

void ReceiverLog::Write(std::wstring_view message, HRESULT result) noexcept {
    try {
        SYSTEMTIME time{};
        GetLocalTime(&time);
        WriteLine(std::ios::app, FormatLogLine({time.wHour, time.wMinute, time.wSecond}, message, result));
    } catch (const std::exception&) {
        return; // Out of memory: the line is lost.
    }
}

void ReceiverLog::Write(std::wstring_view message, std::wstring_view text) noexcept {
    try {
        Write(std::wstring(message).append(text));
    } catch (const std::exception&) {
        return; // Out of memory: the line is lost.
    }
}

} // namespace receiver
