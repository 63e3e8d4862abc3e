// DirectShow's headers, without the string functions that they would replace.
#pragma once

#include <windows.h>

#ifndef NO_DSHOW_STRSAFE
#define NO_DSHOW_STRSAFE
#endif
#include <dshow.h>
