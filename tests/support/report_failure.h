// How a fake reports that it was used wrongly. The test programs and the fuzz targets each define it.
#pragma once

#include <string>

namespace receiver {

void ReportFailure(const std::wstring& what);

} // namespace receiver
