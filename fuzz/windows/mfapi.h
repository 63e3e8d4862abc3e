#pragma once

#include <mfidl.h>
