// A child process of a test. Its output goes to a file. The program is expected to end some time after its standard
// input has ended, which also happens when this process ends.
#pragma once

#include "platform/handles.h"
#include "tests/support/test_files.h"

#include <windows.h>

#include <array>
#include <chrono>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>

namespace receiver {

// The path of a program of the same build; `relativePath` is relative to this program's folder.
[[nodiscard]] inline std::wstring BuiltProgram(const char* relativePath) {
    std::array<wchar_t, 1024> self{};
    GetModuleFileNameW(nullptr, self.data(), static_cast<DWORD>(self.size()));
    return (std::filesystem::path(self.data()).parent_path() / relativePath).lexically_normal().make_preferred();
}

class ChildProcess {
public:
    // `outputFile` receives the program's output; `arguments` follow its name on the command line, unchanged.
    ChildProcess(const std::wstring& program, const std::wstring& arguments, std::filesystem::path outputPath)
        : outputFile(std::move(outputPath)) {
        SECURITY_ATTRIBUTES inherit{sizeof(inherit), nullptr, TRUE};
        const UniqueFile childOutput(CreateFileW(outputFile.c_str(), GENERIC_WRITE, FILE_SHARE_READ, &inherit,
                                                 CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
        UniqueHandle childInput;
        Require(childOutput && CreatePipe(childInput.Put(), input.Put(), &inherit, 0) != FALSE, "pipe");
        Require(SetHandleInformation(input.Get(), HANDLE_FLAG_INHERIT, 0) != FALSE, "pipe end");

        STARTUPINFOW startup{};
        startup.cb = sizeof(startup);
        startup.dwFlags = STARTF_USESTDHANDLES;
        startup.hStdInput = childInput.Get();
        startup.hStdOutput = childOutput.Get();
        startup.hStdError = childOutput.Get();
        PROCESS_INFORMATION information{};
        Require(Create(program, L'"' + program + L"\" " + arguments, startup, information), "process");
        process.Reset(information.hProcess);
        const UniqueHandle thread(information.hThread);
    }
    ChildProcess(ChildProcess&&) = default;
    ~ChildProcess() {
        if (process && IsRunning()) {
            Kill();
        }
    }

    // Ends the process's standard input, so that it ends by itself.
    void Stop() { input.Reset(); }

    // Terminates the process at once and waits for its end.
    void Kill() {
        TerminateProcess(process.Get(), 99);
        WaitForSingleObject(process.Get(), INFINITE);
    }

    [[nodiscard]] bool IsRunning() const { return WaitForSingleObject(process.Get(), 0) == WAIT_TIMEOUT; }

    // The exit code; empty when the process is still running after `limit`.
    [[nodiscard]] std::optional<DWORD> WaitForExit(std::chrono::milliseconds limit) const {
        DWORD code = 0;
        if (WaitForSingleObject(process.Get(), static_cast<DWORD>(limit.count())) != WAIT_OBJECT_0 ||
            GetExitCodeProcess(process.Get(), &code) == FALSE) {
            return std::nullopt;
        }
        return code;
    }

    // The process's window of this class; null while there is none.
    [[nodiscard]] HWND Window(const wchar_t* className) const {
        const DWORD wanted = GetProcessId(process.Get());
        for (HWND window = nullptr; (window = FindWindowExW(nullptr, window, className, nullptr)) != nullptr;) {
            DWORD owner = 0;
            GetWindowThreadProcessId(window, &owner);
            if (owner == wanted) {
                return window;
            }
        }
        return nullptr;
    }

    [[nodiscard]] std::string Output() const { return ReadBytes(outputFile); }

private:
    // Rarely a start fails under Wine with an internal error, before any code of the new process has run; it is
    // repeated.
    static bool Create(const std::wstring& program, std::wstring commandLine, STARTUPINFOW& startup,
                       PROCESS_INFORMATION& information) {
        constexpr int Attempts = 3;
        for (int attempt = 1;; ++attempt) {
            if (CreateProcessW(program.c_str(), commandLine.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr,
                               &startup, &information) != FALSE) {
                return true;
            }
            if (GetLastError() != ERROR_INTERNAL_ERROR || attempt == Attempts) {
                return false;
            }
        }
    }

    static void Require(bool condition, const char* what) {
        if (!condition) {
            throw std::runtime_error(std::string(what) + " failed with " + std::to_string(GetLastError()));
        }
    }

    std::filesystem::path outputFile;
    UniqueHandle input;
    UniqueHandle process;
};

} // namespace receiver
