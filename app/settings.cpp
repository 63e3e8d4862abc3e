#include "app/settings.h"

namespace receiver {

std::wstring ReadInstallationId() { return {}; }
bool SaveVideoQuality(std::wstring_view) { return false; }

} // namespace receiver
