// Row functions that read and write only both ends of each row: every access beyond a row is detected as with the
// program's own, in a fraction of the time. The bytes between are not written.
#pragma once

#include "frames/conversion/row_kernels.h"

namespace receiver {

extern const RowKernels EdgeKernels;

} // namespace receiver
