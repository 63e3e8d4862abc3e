// Another process that takes part in a test of the shared frame file. Its output goes to a file; it ends by itself, or
// some time after its standard input has ended, which the death of this process brings about as well.
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

// Of a program built with this one; `relativePath` starts from the folder of this program.
[[nodiscard]] inline std::wstring BuiltProgram(const char* relativePath) {
    std::array<wchar_t, 1024> self{};
    GetModuleFileNameW(nullptr, self.data(), static_cast<DWORD>(self.size()));
    return (std::filesystem::path(self.data()).parent_path() / relativePath).lexically_normal().make_preferred();
}

class ChildProcess {
public:
    // `outputFile` receives what the program prints; `arguments` stand as they are behind the program's name.
    ChildProcess(const std::wstring& program, const std::wstring& arguments, std::filesystem::path outputFile)
        : outputFile_(std::move(outputFile)) {
        SECURITY_ATTRIBUTES inherit{sizeof(inherit), nullptr, TRUE};
        const UniqueFile output(CreateFileW(outputFile_.c_str(), GENERIC_WRITE, FILE_SHARE_READ, &inherit,
                                            CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
        UniqueHandle input;
        Require(output && CreatePipe(input.Put(), input_.Put(), &inherit, 0) != FALSE, "pipe");
        Require(SetHandleInformation(input_.Get(), HANDLE_FLAG_INHERIT, 0) != FALSE, "pipe end");

        STARTUPINFOW startup{};
        startup.cb = sizeof(startup);
        startup.dwFlags = STARTF_USESTDHANDLES;
        startup.hStdInput = input.Get();
        startup.hStdOutput = output.Get();
        startup.hStdError = output.Get();
        PROCESS_INFORMATION information{};
        Require(Create(program, L'"' + program + L"\" " + arguments, startup, information), "process");
        process_.Reset(information.hProcess);
        const UniqueHandle thread(information.hThread);
    }
    ChildProcess(ChildProcess&&) = default;
    ~ChildProcess() {
        if (process_ && IsRunning()) {
            Kill();
        }
    }

    // Ends the process's standard input: it comes to an end by itself.
    void Stop() { input_.Reset(); }

    // Wherever it is in its work; nothing of it runs afterwards.
    void Kill() {
        TerminateProcess(process_.Get(), 99);
        WaitForSingleObject(process_.Get(), INFINITE);
    }

    [[nodiscard]] bool IsRunning() const { return WaitForSingleObject(process_.Get(), 0) == WAIT_TIMEOUT; }

    // Empty when the process is still running after `limit`.
    [[nodiscard]] std::optional<DWORD> WaitForExit(std::chrono::milliseconds limit) const {
        DWORD code = 0;
        if (WaitForSingleObject(process_.Get(), static_cast<DWORD>(limit.count())) != WAIT_OBJECT_0 ||
            GetExitCodeProcess(process_.Get(), &code) == FALSE) {
            return std::nullopt;
        }
        return code;
    }

    // Its window of that class; null while there is none.
    [[nodiscard]] HWND Window(const wchar_t* className) const {
        const DWORD wanted = GetProcessId(process_.Get());
        for (HWND window = nullptr; (window = FindWindowExW(nullptr, window, className, nullptr)) != nullptr;) {
            DWORD owner = 0;
            GetWindowThreadProcessId(window, &owner);
            if (owner == wanted) {
                return window;
            }
        }
        return nullptr;
    }

    [[nodiscard]] std::string Output() const { return ReadBytes(outputFile_); }

private:
    // Very few starts fail under Wine: the new process is gone before any of its own code has run, and Wine says that
    // something internal failed.
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

    std::filesystem::path outputFile_;
    UniqueHandle input_;
    UniqueHandle process_;
};

} // namespace receiver
