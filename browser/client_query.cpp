#include "browser/client_query.h"

#include "app/client_version.h"

namespace receiver {
namespace {

void AppendParameter(std::wstring& address, std::wstring_view name, std::wstring_view value) {
    address += address.find(L'?') == std::wstring::npos ? L'?' : L'&';
    address += name;
    address += L'=';
    address += value;
}

} // namespace

void AppendClientQuery(std::wstring& address, std::wstring_view installationId) {
    if (address.empty()) {
        return;
    }
    if (!installationId.empty()) {
        AppendParameter(address, L"installationId", installationId);
    }
    AppendParameter(address, L"clientVersion", ClientVersion);
}

} // namespace receiver
