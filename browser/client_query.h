// The query that tells the hosted page which installation and which version is asking. Pure: no Windows calls.
#pragma once

#include <string>
#include <string_view>

namespace receiver {

// Appends "installationId" (unless it is empty) and "clientVersion" to a page address, behind "?" or, when the address
// holds one already, "&". An empty address, the built-in page's, stays empty. Nothing is percent-encoded.
void AppendClientQuery(std::wstring& address, std::wstring_view installationId);

} // namespace receiver
