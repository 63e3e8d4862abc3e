# Checks of the sources: formatting, layering, and clang-tidy with the cross compiler's view of each product file.
find_program(CLANG_FORMAT clang-format REQUIRED)
find_program(CLANG_TIDY clang-tidy REQUIRED)

# The rules differ from version to version. Debian 12's version decides; with another one the tests are skipped.
set(LINT_VERSION 14)
execute_process(COMMAND ${CLANG_FORMAT} --version OUTPUT_VARIABLE lint_version)
function(add_lint_test name)
    if(NOT lint_version MATCHES "version ${LINT_VERSION}\\.")
        set(ARGN COMMAND ${CMAKE_COMMAND} -E echo "Needs version ${LINT_VERSION} of clang's tools.")
    endif()
    add_test(NAME ${name} ${ARGN})
    set_tests_properties(${name} PROPERTIES SKIP_REGULAR_EXPRESSION "^Needs version")
endfunction()

# The C++ files below folders of the project, as paths relative to it.
function(find_sources result)
    list(TRANSFORM ARGN REPLACE ".+" "${PROJECT_SOURCE_DIR}/\\0/*.cpp;${PROJECT_SOURCE_DIR}/\\0/*.h")
    file(GLOB_RECURSE found CONFIGURE_DEPENDS RELATIVE ${PROJECT_SOURCE_DIR} ${ARGN})
    set(${result} ${found} PARENT_SCOPE)
endfunction()
set(product_folders app browser capture frames platform sample_camera)

find_sources(sources ${product_folders} bench examples fuzz tests tools)
list(FILTER sources EXCLUDE REGEX "^platform/webview2/include/") # One method per line, as in the table of methods.
add_lint_test(lint/format COMMAND ${CLANG_FORMAT} --dry-run -Werror ${sources} WORKING_DIRECTORY ${PROJECT_SOURCE_DIR})
add_test(NAME lint/layering COMMAND ${NODE} ${PROJECT_SOURCE_DIR}/tools/layers/layers.mjs --check)

# clang does not find the cross compiler's C++ library by itself.
set(target_arguments --extra-arg=--target=x86_64-w64-mingw32)
foreach(folder IN LISTS CMAKE_CXX_IMPLICIT_INCLUDE_DIRECTORIES)
    if(folder MATCHES "c\\+\\+")
        list(APPEND target_arguments --extra-arg=-isystem${folder})
    endif()
endforeach()
# Every warning that clang has, less those about older standards, paddings that the compiler chooses, deduced template
# arguments, what the cross compiler's own headers do, the one static object, and wmain, which no header declares.
foreach(warning IN ITEMS everything no-c++98-compat no-c++98-compat-pedantic no-padded no-ctad-maybe-unsupported
        no-used-but-marked-unused no-exit-time-destructors no-global-constructors no-missing-prototypes)
    list(APPEND target_arguments --extra-arg=-W${warning})
endforeach()
function(add_tidy_test name file)
    add_lint_test(lint/tidy/${name} COMMAND ${CLANG_TIDY} --quiet --config-file=${PROJECT_SOURCE_DIR}/.clang-tidy
        -p ${PROJECT_BINARY_DIR} ${target_arguments} ${file})
    set_tests_properties(lint/tidy/${name} PROPERTIES TIMEOUT 600 COST 60)
endfunction()

# The product's files are checked as one: the headers that they include take most of the time. A file with compile
# options of its own is checked alone.
find_sources(tidy_sources ${product_folders})
list(FILTER tidy_sources INCLUDE REGEX "\\.cpp$")
list(REMOVE_ITEM tidy_sources ${avx2_source})
list(TRANSFORM tidy_sources REPLACE ".+" "#include \"\\0\" // NOLINT(bugprone-suspicious-include)\n")
list(JOIN tidy_sources "" unit_text)
set(unit ${CMAKE_CURRENT_BINARY_DIR}/tidy/product.cpp)
file(CONFIGURE OUTPUT ${unit} CONTENT "${unit_text}" @ONLY)
add_library(tidy_unit OBJECT EXCLUDE_FROM_ALL ${unit}) # never built; clang-tidy looks up its compile command
set_target_properties(tidy_unit PROPERTIES UNITY_BUILD OFF)
target_compile_definitions(tidy_unit PRIVATE VISTEL_RECEIVER_URL="${VISTEL_RECEIVER_URL}")
target_link_libraries(tidy_unit PRIVATE receiver_shell)
add_tidy_test(product ${unit})
add_tidy_test(${avx2_source} ${PROJECT_SOURCE_DIR}/${avx2_source})

# A second compiler, where it is installed, on the same unit. ./dev lint has it read every file on its own, the tests
# and tools, too, which takes minutes.
find_program(SECOND_COMPILER clang++-22)
if(SECOND_COMPILER)
    cmake_path(RELATIVE_PATH CMAKE_CURRENT_BINARY_DIR BASE_DIRECTORY ${PROJECT_SOURCE_DIR} OUTPUT_VARIABLE units)
    add_test(NAME lint/second_compiler COMMAND ${NODE} ${PROJECT_SOURCE_DIR}/tools/second_compiler/second_compiler.mjs
        ${PROJECT_BINARY_DIR}/compile_commands.json ${units}/tidy ${avx2_source} examples)
    set_tests_properties(lint/second_compiler PROPERTIES TIMEOUT 600 COST 20)
endif()
