# The layout of every source file, and clang-tidy over the product as the cross compiler sees it.
find_program(CLANG_FORMAT clang-format REQUIRED)
find_program(RUN_CLANG_TIDY run-clang-tidy REQUIRED)

set(patterns)
foreach(folder IN ITEMS app bench browser capture examples frames fuzz platform tests tools)
    list(APPEND patterns ${PROJECT_SOURCE_DIR}/${folder}/*.cpp ${PROJECT_SOURCE_DIR}/${folder}/*.h)
endforeach()
file(GLOB_RECURSE sources CONFIGURE_DEPENDS RELATIVE ${PROJECT_SOURCE_DIR} ${patterns})
list(FILTER sources EXCLUDE REGEX "^platform/webview2/include/") # Its methods stand one to a line, as the slots do.
add_test(NAME lint/format COMMAND ${CLANG_FORMAT} --dry-run -Werror ${sources} WORKING_DIRECTORY ${PROJECT_SOURCE_DIR})

# clang does not find the cross compiler's C++ library by itself.
set(target_arguments -extra-arg=--target=x86_64-w64-mingw32)
foreach(folder IN LISTS CMAKE_CXX_IMPLICIT_INCLUDE_DIRECTORIES)
    if(folder MATCHES "c\\+\\+")
        list(APPEND target_arguments -extra-arg=-isystem${folder})
    endif()
endforeach()
add_test(NAME lint/tidy
    COMMAND ${RUN_CLANG_TIDY} -quiet -j 2 -p ${PROJECT_BINARY_DIR} ${target_arguments}
            "^${PROJECT_SOURCE_DIR}/(app|browser|capture|frames|platform)/")
set_tests_properties(lint/tidy PROPERTIES PROCESSORS 2 TIMEOUT 1200)
