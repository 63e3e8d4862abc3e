// The query parameters that give the hosted page the installation and the version. Pure: no Windows calls.
#pragma once

#include <string>
#include <string_view>

namespace receiver {

// Appends "installationId" (unless it is empty) and "clientVersion" to a page address, each after "?" or, when the
// address contains one already, "&". An empty address, the built-in page's, stays empty. Nothing is percent-encoded.
void AppendClientQuery(std::wstring& address, std::wstring_view installationId);

} // namespace receiver
