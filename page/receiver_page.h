// The page that is shown when no address is given.
#pragma once

namespace receiver {

inline constexpr wchar_t ReceiverPage[] = L"\n<!doctype html><title>Vistel</title>";

} // namespace receiver
