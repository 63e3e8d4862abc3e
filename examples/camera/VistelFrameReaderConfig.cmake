# find_package(VistelFrameReader 2 CONFIG), with VistelFrameReader_DIR naming this folder, gives the target
# Vistel::FrameReader: the folder of frame_reader.h and what it needs.
if(NOT TARGET Vistel::FrameReader)
    add_library(Vistel::FrameReader INTERFACE IMPORTED)
    set_target_properties(Vistel::FrameReader PROPERTIES
        INTERFACE_INCLUDE_DIRECTORIES "${CMAKE_CURRENT_LIST_DIR}"
        INTERFACE_COMPILE_FEATURES cxx_std_17
        INTERFACE_LINK_LIBRARIES advapi32)
endif()
