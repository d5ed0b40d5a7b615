# OpenIGTLink as the imported target vyx::OpenIGTLink, when Debian's
# libopenigtlink-dev is installed; nothing otherwise.
#
# Its CMake config only sets variables (no targets, no version file). Its
# "use file" is not included: it would add the package's own compile flags to
# every target of the project. The headers come in as system headers, since
# they do not build cleanly under the project's warning flags, and the library
# is looked up in the directory the config names.
find_package(OpenIGTLink CONFIG QUIET)
if(OpenIGTLink_FOUND AND NOT TARGET vyx::OpenIGTLink
   AND NOT OpenIGTLink_PROTOCOL_VERSION VERSION_LESS 2)
    find_library(VYX_OPENIGTLINK_LIBRARY NAMES OpenIGTLink
                 HINTS ${OpenIGTLink_LIBRARY_DIRS} NO_DEFAULT_PATH)
    find_path(VYX_OPENIGTLINK_INCLUDE_DIR igtlMessageBase.h
              HINTS ${OpenIGTLink_INCLUDE_DIRS} NO_DEFAULT_PATH)
    mark_as_advanced(VYX_OPENIGTLINK_LIBRARY VYX_OPENIGTLINK_INCLUDE_DIR)
    if(VYX_OPENIGTLINK_LIBRARY AND VYX_OPENIGTLINK_INCLUDE_DIR)
        # Global, so that the tests' directory sees it too.
        add_library(vyx::OpenIGTLink UNKNOWN IMPORTED GLOBAL)
        set_target_properties(vyx::OpenIGTLink PROPERTIES
            IMPORTED_LOCATION "${VYX_OPENIGTLINK_LIBRARY}"
            INTERFACE_INCLUDE_DIRECTORIES "${VYX_OPENIGTLINK_INCLUDE_DIR}"
            INTERFACE_SYSTEM_INCLUDE_DIRECTORIES "${VYX_OPENIGTLINK_INCLUDE_DIR}"
            INTERFACE_LINK_LIBRARIES Threads::Threads)
    endif()
endif()
