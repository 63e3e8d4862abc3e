# The packages: a ZIP, and an installer for one user or for all. ./dev package makes them with CPack, and the npm
# package of the page module with page_package.mjs; ./dev release makes more with release.mjs.
install(TARGETS vistel-receiver camera_probe sample_camera RUNTIME DESTINATION .)
install(FILES packaging/README.txt packaging/test-picture.cmd packaging/watch-camera.cmd CHANGELOG.md DESTINATION .)
install(FILES docs/administration.md docs/compatibility.md docs/frame-file.md docs/page-protocol.md DESTINATION docs)
# The npm package, which stands beside the ZIP, has types, unlike the sources.
install(DIRECTORY examples DESTINATION . PATTERN "*.json" EXCLUDE PATTERN __pycache__ EXCLUDE)

# The sample page in one file.
find_program(NODE node)
find_program(ESBUILD esbuild)
if(NODE AND ESBUILD)
    set(test_picture ${PROJECT_BINARY_DIR}/test-picture.html)
    set(page_builder ${CMAKE_CURRENT_LIST_DIR}/single_page.mjs)
    file(GLOB_RECURSE page_sources CONFIGURE_DEPENDS examples/page/*)
    add_custom_command(OUTPUT ${test_picture} COMMAND ${NODE} ${page_builder} ${ESBUILD} ${test_picture}
        DEPENDS ${page_builder} ${page_sources} VERBATIM)
    add_custom_target(test_picture ALL DEPENDS ${test_picture})
    install(FILES ${test_picture} DESTINATION .)
else()
    message(WARNING "The packages are made without test-picture.html, which needs node and esbuild")
endif()

set(CPACK_GENERATOR ZIP NSIS)
set(CPACK_PACKAGE_NAME "vistel-receiver")
set(CPACK_PACKAGE_VENDOR "Vistel")
set(CPACK_PACKAGE_FILE_NAME "vistel-receiver-${PROJECT_VERSION}-win64")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Sends a web page's video to the Vistel virtual camera")
set(CPACK_MONOLITHIC_INSTALL ON)
set(CPACK_NSIS_PACKAGE_NAME "Vistel Receiver")
set(CPACK_NSIS_MUI_ICON "${PROJECT_SOURCE_DIR}/resources/vistel.ico")
set(CPACK_MODULE_PATH "${CMAKE_CURRENT_LIST_DIR}") # the installer's script, NSIS.template.in
include(CPack)
