// The receiver's log: a text file in the temporary folder, one time-stamped line per event. A line that cannot be
// written is dropped without an error. UI thread only.
#pragma once

#include <windows.h>

#include <string>
#include <string_view>

namespace receiver {

class ReceiverLog {
public:
    // "vistel-receiver.log" in the user's temporary folder, or in the current directory when there is none.
    [[nodiscard]] static std::wstring FilePath();
    // Truncates the log and writes its header line.
    static void Reset() noexcept;
    // Appends one line; the code is written only when it is a failure.
    static void Write(std::wstring_view message, HRESULT result = S_OK) noexcept;
    // The same with `text` after the message.
    static void Write(std::wstring_view message, std::wstring_view text) noexcept;
};

} // namespace receiver
