// The cases of loader_cases.tsv: in each, our loader does what the vendor's does or differs in a named way. The head of
// that file says how a case is written.
#include "platform/handles.h"
#include "tests/platform/loader_sandbox.h"
#include "tests/platform/test_client.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <objbase.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cwctype>
#include <filesystem>
#include <fstream>
#include <list>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace receiver {
namespace {

struct LoaderCase {
    std::string name;
    std::vector<std::string> steps;
    std::string outcome; // with our loader
    std::string difference; // from the vendor's; empty when there is none
};

void PrintTo(const LoaderCase& loaderCase, std::ostream* out) { *out << loaderCase.name; }

std::vector<std::string> Split(std::string_view text, std::string_view separator) {
    std::vector<std::string> parts;
    for (std::size_t end = 0; (end = text.find(separator)) != std::string_view::npos;
         text.remove_prefix(end + separator.size())) {
        parts.emplace_back(text.substr(0, end));
    }
    parts.emplace_back(text);
    return parts;
}

std::vector<LoaderCase> ReadCases() {
    wchar_t program[MAX_PATH] = L"";
    GetModuleFileNameW(nullptr, program, MAX_PATH);
    std::ifstream file(std::filesystem::path(program).parent_path() / L"loader_cases.tsv");
    std::vector<LoaderCase> cases;
    std::string common; // steps before those of the cases that follow
    for (std::string line; std::getline(file, line);) {
        auto fields = Split(line, "\t");
        fields.resize(5);
        if (fields[0] == "common") {
            common = fields[1];
        } else if (!fields[2].empty() && fields[0] != "case") {
            auto steps = Split(common, " + ");
            for (auto& step : Split(fields[1], " + ")) {
                steps.push_back(std::move(step));
            }
            std::erase(steps, "");
            cases.push_back({fields[0], steps, fields[3] == "=" ? fields[2] : fields[3], fields[4]});
        }
    }
    return cases;
}

std::wstring Wide(const std::string& text) {
    std::wstring wide(text.size(), L'\0');
    wide.resize(static_cast<std::size_t>(MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()),
                                                             wide.data(), static_cast<int>(wide.size()))));
    return wide;
}

std::string Narrow(const std::wstring& text) {
    std::string narrow(text.size() * 3, '\0');
    narrow.resize(static_cast<std::size_t>(WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()),
                                                               narrow.data(), static_cast<int>(narrow.size()), nullptr,
                                                               nullptr)));
    return narrow;
}

void ReplaceAll(std::wstring& text, std::wstring_view from, std::wstring_view to) {
    for (std::size_t at = 0; (at = text.find(from, at)) != std::wstring::npos; at += to.size()) {
        text.replace(at, from.size(), to);
    }
}

std::string Hexadecimal(HRESULT code) {
    std::array<char, 9> text{};
    std::snprintf(text.data(), text.size(), "%08x", static_cast<unsigned>(code));
    return text.data();
}

HRESULT CodeOf(const std::string& hexadecimal) { return static_cast<HRESULT>(std::stoul(hexadecimal, nullptr, 16)); }

HKEY PlaceOf(const std::string& name) { return name == "HKLM" ? HKEY_LOCAL_MACHINE : HKEY_CURRENT_USER; }

const wchar_t* ChannelOf(const std::string& letter) { return ChannelKeys[std::string_view("sbdci").find(letter)]; }

class WorkingFolderScope {
public:
    explicit WorkingFolderScope(const std::wstring& folder) { std::filesystem::current_path(folder); }
    WorkingFolderScope(const WorkingFolderScope&) = delete;
    WorkingFolderScope& operator=(const WorkingFolderScope&) = delete;
    ~WorkingFolderScope() { std::filesystem::current_path(old); }

private:
    const std::filesystem::path old = std::filesystem::current_path();
};

// Options without the interface by which a program chooses channels.
class PlainOptions final : public IUnknown {
public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void** object) noexcept override {
        *object = nullptr;
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() noexcept override { return 2; }
    ULONG STDMETHODCALLTYPE Release() noexcept override { return 1; }
};

// Sets one case up, makes its calls and describes what happened.
class CaseRun {
public:
    // False when this machine does not allow the case.
    [[nodiscard]] bool SetUp(const LoaderCase& loaderCase) {
        handlerResults = Split(loaderCase.outcome, "| handler ").size() - 1;
        return std::all_of(loaderCase.steps.begin(), loaderCase.steps.end(), [this](const std::string& step) {
            if (step == "real machine") {
                return sandbox.UseRealMachine();
            }
            SetUpStep(step);
            return true;
        });
    }

    [[nodiscard]] std::string Outcome() {
        if (thread.empty()) {
            MakeCalls();
        } else {
            std::thread([this] {
                const HRESULT apartment = thread == "mta" ? CoInitializeEx(nullptr, COINIT_MULTITHREADED) : E_NOTIMPL;
                MakeCalls();
                if (SUCCEEDED(apartment)) {
                    CoUninitialize();
                }
            }).join();
        }
        return outcome + DescribeCalls() + DescribeHandler();
    }

private:
    // In a case, C:\ is the root of the sandbox, <ROOT> the same without the drive, {N} as many "y" as make the path N
    // characters long.
    [[nodiscard]] std::wstring Actual(const std::string& text) const {
        std::wstring path = Wide(text);
        ReplaceAll(path, L"C:\\", sandbox.Root() + L"\\");
        ReplaceAll(path, L"<ROOT>", sandbox.Root().substr(2));
        std::wstring forward = sandbox.Root() + L"/";
        std::replace(forward.begin(), forward.end(), L'\\', L'/');
        ReplaceAll(path, L"C:/", forward);
        const std::size_t mark = path.find(L'{');
        if (mark != std::wstring::npos && path.find(L'}') != std::wstring::npos && std::iswdigit(path[mark + 1]) != 0) {
            const std::size_t markLength = path.find(L'}') + 1 - mark;
            std::wstring filling(std::stoul(path.substr(mark + 1)) - (path.size() - markLength), L'y');
            for (std::size_t i = 100; i + 1 < filling.size(); i += 100) {
                filling[i] = L'\\'; // No name is longer than 255 characters.
            }
            path.replace(mark, markLength, filling);
        }
        return path;
    }

    void SetUpStep(const std::string& step) {
        const std::size_t equals = step.find('=');
        auto words = Split(step.substr(0, equals), " ");
        words.resize(4);
        const std::string value = equals != std::string::npos ? step.substr(equals + 1) : "";
        if (words[0] == "installed") {
            SetUpInstalled(words[1], words[2], value.empty() ? "150.0.0.1" : value);
        } else if (words[0] == "announced") {
            WriteValue(PlaceOf(words[1]), ChannelOf(words[2]), L"EBWebView", value);
        } else if (words[0] == "registry") {
            WriteValue(PlaceOf(words[1]), Wide(words[2]), Wide(words[3]), value);
        } else if (words[0] == "policy") {
            WriteValue(PlaceOf(words[1]), L"Software\\Policies\\Microsoft\\Edge\\WebView2\\" + Wide(words[2]),
                       Wide(words[3]), value);
        } else if (words[0] == "variable") {
            variables.emplace_back(Wide(words[1]), Actual(value).c_str());
        } else if (words[0] == "library") {
            SetUpLibrary(words[1], Actual(value));
        } else if (words[0] == "argument") {
            argument = Actual(value);
        } else if (words[0] == "data") {
            data = Wide(value);
            passesData = value != "null";
        } else if (words[0] == "cd") {
            std::filesystem::create_directory(Actual(value));
            workingFolder.emplace(Actual(value));
        } else if (words[0] == "calls") {
            callCount = std::stoi(value);
        } else if (words[0] == "thread") {
            thread = value;
        } else if (words[0] == "options") {
            options = &plainOptions;
        } else if (words[0] == "nohandler") {
            passesHandler = false;
        } else if (words[0] == "handler") {
            sandbox.handler.answer = CodeOf(value);
        } else if (words[0] == "client") {
            sandbox.answer = [this, answers = Split(value, " then ")](const ClientCall& call) {
                return Answer(answers[std::min(sandbox.calls.size(), answers.size()) - 1], call);
            };
        } else {
            ADD_FAILURE() << "unknown step: " << step;
        }
    }

    // "HKLM64" is the machine's 64-bit view.
    void SetUpInstalled(const std::string& place, const std::string& channel, const std::string& version) {
        const std::wstring versionFolder = Actual("C:\\rt\\" + place + channel + "\\" + version);
        if (version.find_last_of(" .") + 1 != version.size()) { // No folder can have another name.
            sandbox.Install(versionFolder);
        }
        sandbox.SetRegistryValue(PlaceOf(place.substr(0, 4)), ChannelOf(channel), L"EBWebView", REG_SZ,
                                 RegistryBytes(versionFolder),
                                 place.ends_with("64") ? KEY_WOW64_64KEY : KEY_WOW64_32KEY);
    }

    // The type comes first, in parentheses; without it a REG_SZ is written.
    void WriteValue(HKEY place, const std::wstring& key, const std::wstring& name, std::string value) {
        std::string type = "text";
        if (value.starts_with("(")) {
            type = value.substr(1, value.find(')') - 1);
            value.erase(0, type.size() + 2);
        }
        if (type == "dword" || type == "qword") {
            const std::uint64_t number = std::stoull(value);
            sandbox.SetRegistryValue(place, key, name, type == "dword" ? REG_DWORD : REG_QWORD,
                                     {reinterpret_cast<const char*>(&number), type == "dword" ? 4U : 8U});
            return;
        }
        std::wstring text = Actual(value);
        ReplaceAll(text, L"\\0", std::wstring_view(L"\0", 1));
        std::string bytes = RegistryBytes(text);
        if (type == "unterminated" || type == "odd") {
            bytes.resize(bytes.size() - (type == "odd" ? 3 : 2));
        } else if (type == "odd end") {
            bytes += 'x';
        } else if (type == "no bytes") {
            bytes.clear();
        }
        const DWORD registryType = type == "expand"   ? REG_EXPAND_SZ
                                   : type == "multi"  ? REG_MULTI_SZ
                                   : type == "binary" ? REG_BINARY
                                   : type == "none"   ? REG_NONE
                                                      : REG_SZ;
        sandbox.SetRegistryValue(place, key, name, registryType, bytes);
    }

    void SetUpLibrary(const std::string& kind, const std::wstring& versionFolder) {
        sandbox.CreateLibraryFolder(versionFolder);
        const std::wstring library = LoaderSandbox::LibraryIn(versionFolder);
        if (kind == "foreign") { // without the entry
            wchar_t system[MAX_PATH] = L"";
            GetSystemDirectoryW(system, MAX_PATH);
            sandbox.Install(versionFolder, std::wstring(system) + L"\\version.dll");
        } else if (kind == "folder") {
            CreateDirectoryW(library.c_str(), nullptr);
        } else if (kind == "missing") {
            return;
        } else if (kind == "text" || kind == "empty") {
            WriteBytes(library, kind == "text" ? "no library" : "");
        } else {
            sandbox.Install(versionFolder);
        }
        if (kind == "locked") {
            locked.Reset(CreateFileW(library.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
            ASSERT_TRUE(locked);
        }
    }

    // What a client library does when it is called; "return" comes last.
    HRESULT Answer(const std::string& actions, const ClientCall& call) {
        for (const std::string& action : Split(actions, ", ")) {
            const auto words = Split(action, " ");
            const auto deliver = [handler = call.handler, code = CodeOf(words.size() > 1 ? words[1] : "0"),
                                  object = words.size() > 2 ? nullptr : &environment] {
                (void)handler->Invoke(code,
                                      FAILED(code) ? nullptr : reinterpret_cast<ICoreWebView2Environment*>(object));
            };
            if (words[0] == "inside") {
                deliver();
            } else if (words[0] == "later") {
                sandbox.later.emplace_back(deliver);
            } else if (words[0] == "update") {
                SetUpStep("library=C:\\rt\\new\\160.0.0.1");
                SetUpStep("announced HKLM s=C:\\rt\\new\\160.0.0.1");
            } else if (words[0] == "vanish") {
                sandbox.SetRegistryValue(HKEY_LOCAL_MACHINE, ChannelKeys[0], L"EBWebView", REG_SZ, RegistryBytes(L""));
            } else {
                EXPECT_EQ(words[0], "return");
                return CodeOf(words[1]);
            }
        }
        return S_OK;
    }

    void MakeCalls() {
        for (int call = 0; call < callCount; ++call) {
            const HRESULT result = passesHandler
                                       ? sandbox.Request(argument.c_str(), passesData ? data.c_str() : nullptr, options)
                                       : CreateCoreWebView2EnvironmentWithOptions(nullptr, nullptr, nullptr, nullptr);
            outcome.append(call > 0 ? " " : "").append(Hexadecimal(result));
        }
        EXPECT_TRUE(sandbox.RunLoopUntil(handlerResults));
        sandbox.DispatchWaiting(); // What comes too often arrives here.
    }

    // A path as the case writes it.
    [[nodiscard]] std::string Shown(std::wstring path) const {
        const std::size_t first = path.find(std::wstring(20, L'y'));
        if (first != std::wstring::npos) {
            const std::size_t end = path.rfind(L'y') + 1;
            const std::wstring length = std::to_wstring(path.size()); // of the whole path
            path.replace(first, end - first, std::wstring(1, L'{').append(length).append(1, L'}'));
        }
        ReplaceAll(path, sandbox.Root() + L"\\", L"C:\\");
        return Narrow(path);
    }

    [[nodiscard]] std::string DescribeCalls() const {
        std::string text;
        std::string last;
        for (const ClientCall& call : sandbox.calls) {
            const std::string versionFolder = Shown(call.versionFolder);
            text += versionFolder != last ? " | " + versionFolder : "";
            last = versionFolder;
        }
        for (const std::wstring& versionFolder : sandbox.InstalledFolders()) {
            if (sandbox.calls.empty() && LoaderSandbox::IsLoaded(versionFolder)) {
                text += " | " + Shown(versionFolder) + " | not called";
            }
        }
        if (!sandbox.calls.empty()) {
            const ClientCall& call = sandbox.calls.back();
            text.append(call.joinRunningVersion ? " | join1 type" : " | join0 type");
            text.append(std::to_string(call.runtimeType));
            if (!call.userDataFolder) {
                text += " | data=(null)";
            } else if (*call.userDataFolder != DefaultData) {
                text += " | data=\"" + Shown(*call.userDataFolder) + "\"";
            }
            text += call.options != nullptr && call.options == options ? " | options=same" : "";
            if (sandbox.calls.size() > static_cast<std::size_t>(1)) {
                text.append(" | called ").append(std::to_string(sandbox.calls.size())).append(" times");
            }
        }
        return text;
    }

    [[nodiscard]] std::string DescribeHandler() const {
        std::string text;
        for (const auto& result : sandbox.handler.results) {
            text.append(result.insideCall ? " | handler inside-call " : " | handler from-loop ");
            text.append(Hexadecimal(result.code)).append(result.environment != nullptr ? " env=yes" : " env=null");
        }
        return text;
    }

    static constexpr wchar_t DefaultData[] = L"C:\\data";

    LoaderSandbox sandbox;
    std::list<VariableScope> variables;
    std::optional<WorkingFolderScope> workingFolder;
    std::wstring argument;
    std::wstring data = DefaultData;
    bool passesData = true;
    bool passesHandler = true;
    int callCount = 1;
    std::string thread;
    PlainOptions plainOptions;
    IUnknown* options = nullptr;
    UniqueFile locked;
    int environment = 0; // stands for an environment; only its address is used
    std::size_t handlerResults = 0;
    std::string outcome;
};

class LoaderMatrix : public testing::TestWithParam<LoaderCase> {};

TEST_P(LoaderMatrix, EqualsTheVendorsLoaderOrDiffersInANamedWay) {
    CaseRun run;
    if (!run.SetUp(GetParam())) {
        GTEST_SKIP() << "This machine's registry may not be used.";
    }
    EXPECT_EQ(run.Outcome(), GetParam().outcome);
}

std::string TestName(const testing::TestParamInfo<LoaderCase>& parameter) {
    std::string name = std::to_string(parameter.index) + "_" + parameter.param.name;
    const auto isOther = [](char character) { return std::isalnum(static_cast<unsigned char>(character)) == 0; };
    std::replace_if(name.begin(), name.end(), isOther, '_');
    return name;
}

INSTANTIATE_TEST_SUITE_P(Cases, LoaderMatrix, testing::ValuesIn(ReadCases()), TestName);

} // namespace
} // namespace receiver
