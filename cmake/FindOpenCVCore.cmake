# Finds OpenCV's core module alone (Debian's libopencv-core-dev ships no CMake
# package of its own) and provides the imported target opencv_core.
find_path(OpenCVCore_INCLUDE_DIR opencv2/core.hpp PATH_SUFFIXES opencv4)
find_library(OpenCVCore_LIBRARY NAMES opencv_core)

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(OpenCVCore REQUIRED_VARS OpenCVCore_LIBRARY OpenCVCore_INCLUDE_DIR)

if(OpenCVCore_FOUND AND NOT TARGET opencv_core)
    add_library(opencv_core UNKNOWN IMPORTED)
    set_target_properties(opencv_core PROPERTIES
        IMPORTED_LOCATION "${OpenCVCore_LIBRARY}"
        INTERFACE_INCLUDE_DIRECTORIES "${OpenCVCore_INCLUDE_DIR}")
endif()
mark_as_advanced(OpenCVCore_INCLUDE_DIR OpenCVCore_LIBRARY)
