# A later version of the package, for a test: CMake reads this file at the end of project().
set(PROJECT_VERSION 9.8.7)
set(PROJECT_VERSION_MAJOR 9)
set(PROJECT_VERSION_MINOR 8)
set(PROJECT_VERSION_PATCH 7)
