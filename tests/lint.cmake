# The layout of every source file, who may include whom, and clang-tidy over the product as the cross compiler sees it.
find_program(CLANG_FORMAT clang-format REQUIRED)
find_program(RUN_CLANG_TIDY run-clang-tidy REQUIRED)

# Each version has rules of its own. Ours are those of Debian 12's; another one's word is not asked for.
set(LINT_VERSION 14)
execute_process(COMMAND ${CLANG_FORMAT} --version OUTPUT_VARIABLE lint_version)
function(add_lint_test name)
    if(NOT lint_version MATCHES "version ${LINT_VERSION}\\.")
        set(ARGN COMMAND ${CMAKE_COMMAND} -E echo "Left to version ${LINT_VERSION} of clang's tools.")
    endif()
    add_test(NAME ${name} ${ARGN})
    set_tests_properties(${name} PROPERTIES SKIP_REGULAR_EXPRESSION "^Left to version")
endfunction()

set(patterns)
foreach(folder IN ITEMS app bench browser capture examples frames fuzz platform sample_camera tests tools)
    list(APPEND patterns ${PROJECT_SOURCE_DIR}/${folder}/*.cpp ${PROJECT_SOURCE_DIR}/${folder}/*.h)
endforeach()
file(GLOB_RECURSE sources CONFIGURE_DEPENDS RELATIVE ${PROJECT_SOURCE_DIR} ${patterns})
list(FILTER sources EXCLUDE REGEX "^platform/webview2/include/") # Its methods stand one to a line, as the slots do.
add_lint_test(lint/format COMMAND ${CLANG_FORMAT} --dry-run -Werror ${sources} WORKING_DIRECTORY ${PROJECT_SOURCE_DIR})
add_test(NAME lint/house COMMAND ${NODE} ${PROJECT_SOURCE_DIR}/tools/house/house.mjs --check)

# clang does not find the cross compiler's C++ library by itself.
set(target_arguments -extra-arg=--target=x86_64-w64-mingw32)
foreach(folder IN LISTS CMAKE_CXX_IMPLICIT_INCLUDE_DIRECTORIES)
    if(folder MATCHES "c\\+\\+")
        list(APPEND target_arguments -extra-arg=-isystem${folder})
    endif()
endforeach()
# Every warning that clang has, less those about older standards, paddings that the compiler chooses, deduced template
# arguments, what the cross compiler's own headers do, the one static object, and wmain, which no header declares.
foreach(warning IN ITEMS everything no-c++98-compat no-c++98-compat-pedantic no-padded no-ctad-maybe-unsupported
        no-used-but-marked-unused no-exit-time-destructors no-global-constructors no-missing-prototypes)
    list(APPEND target_arguments -extra-arg=-W${warning})
endforeach()
add_lint_test(lint/tidy
    COMMAND ${RUN_CLANG_TIDY} -quiet -j 2 -p ${PROJECT_BINARY_DIR} ${target_arguments}
            "^${PROJECT_SOURCE_DIR}/(app|browser|capture|frames|platform|sample_camera)/")
set_tests_properties(lint/tidy PROPERTIES PROCESSORS 2 TIMEOUT 1200)
