# Finds OpenCV's calib3d module alone (Debian's libopencv-calib3d-dev ships no
# CMake package of its own) and provides the imported target opencv_calib3d.
# The library itself never links it: tests and benchmarks use it as a
# reference to compare with.
find_path(OpenCVCalib3d_INCLUDE_DIR opencv2/calib3d.hpp PATH_SUFFIXES opencv4)
find_library(OpenCVCalib3d_LIBRARY NAMES opencv_calib3d)

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(OpenCVCalib3d
    REQUIRED_VARS OpenCVCalib3d_LIBRARY OpenCVCalib3d_INCLUDE_DIR
    REASON_FAILURE_MESSAGE "install libopencv-calib3d-dev (scripts/setup-deps.sh does)")

if(OpenCVCalib3d_FOUND AND NOT TARGET opencv_calib3d)
    add_library(opencv_calib3d UNKNOWN IMPORTED)
    set_target_properties(opencv_calib3d PROPERTIES
        IMPORTED_LOCATION "${OpenCVCalib3d_LIBRARY}"
        INTERFACE_INCLUDE_DIRECTORIES "${OpenCVCalib3d_INCLUDE_DIR}"
        INTERFACE_LINK_LIBRARIES opencv_core)
endif()
mark_as_advanced(OpenCVCalib3d_INCLUDE_DIR OpenCVCalib3d_LIBRARY)
