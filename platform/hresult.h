// HRESULT: Windows' own type and codes on Windows; elsewhere the type and the few codes that the core returns.
#pragma once

#ifdef _WIN32

#include <windows.h>

#include <mferror.h>

namespace receiver {

// The last Win32 error as an HRESULT; 0 stays 0. Call it on the very next line after the failing call.
[[nodiscard]] inline HRESULT LastErrorResult() noexcept { return HRESULT_FROM_WIN32(GetLastError()); }

} // namespace receiver

#else

#include <cstdint>

using HRESULT = std::int32_t;

inline constexpr HRESULT S_OK = 0;
inline constexpr HRESULT S_FALSE = 1;
inline constexpr HRESULT E_POINTER = static_cast<HRESULT>(0x80004003);
inline constexpr HRESULT E_FAIL = static_cast<HRESULT>(0x80004005);
inline constexpr HRESULT E_OUTOFMEMORY = static_cast<HRESULT>(0x8007000E);
inline constexpr HRESULT E_INVALIDARG = static_cast<HRESULT>(0x80070057);
inline constexpr HRESULT MF_E_INVALIDMEDIATYPE = static_cast<HRESULT>(0xC00D36B4);
inline constexpr HRESULT MF_E_NOT_AVAILABLE = static_cast<HRESULT>(0xC00D36D6);

[[nodiscard]] constexpr bool SUCCEEDED(HRESULT result) noexcept { return result >= 0; }
[[nodiscard]] constexpr bool FAILED(HRESULT result) noexcept { return result < 0; }

#endif

#define RETURN_IF_FAILED(expression)                                                                                   \
    do {                                                                                                               \
        const HRESULT returnIfFailedResult = (expression);                                                             \
        if (FAILED(returnIfFailedResult)) {                                                                            \
            return returnIfFailedResult;                                                                               \
        }                                                                                                              \
    } while (false)
