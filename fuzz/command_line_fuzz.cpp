// The page address of any command line, and the query behind it. Input: the command line, a line feed, the installation
// identifier.

#include "app/client_version.h"
#include "app/command_line.h"
#include "browser/client_query.h"
#include "fuzz/support/input_text.h"
#include "fuzz/support/require.h"

#include <algorithm>

namespace receiver {
namespace {

constexpr wchar_t DefaultAddress[] = L"https://receiver.example/";

std::wstring ExpectedAddress(const std::wstring& commandLine) {
    if (commandLine == L"--embedded") {
        return {};
    }
    if (commandLine.compare(0, 6, L"--url=") != 0) {
        return DefaultAddress;
    }
    std::wstring address = commandLine;
    address.erase(0, 6);
    const bool quoted = address.size() > 1 && address[0] == L'"' && address[address.size() - 1] == L'"';
    if (quoted) {
        address.pop_back();
        address.erase(0, 1);
    }
    return address;
}

std::wstring ExpectedQuery(const std::wstring& installationId) {
    const std::wstring version = L"clientVersion=" + std::wstring(ClientVersion);
    return installationId.empty() ? version : L"installationId=" + installationId + L"&" + version;
}

} // namespace
} // namespace receiver

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace receiver;
    const std::wstring text = ToUnits(AsText(data, size));
    const std::wstring commandLine = text.substr(0, text.find(L'\n'));
    const std::wstring installationId = text.substr(std::min(commandLine.size() + 1, text.size()));

    const std::wstring address = ChoosePageAddress(commandLine, DefaultAddress);
    Require(address == ExpectedAddress(commandLine), "the command line chooses its page");

    std::wstring whole = address;
    AppendClientQuery(whole, installationId);
    const wchar_t separator = std::ranges::count(address, L'?') == 0 ? L'?' : L'&';
    Require(whole == (address.empty() ? address : address + separator + ExpectedQuery(installationId)),
            "the address is followed by the client's query");
    return 0;
}
