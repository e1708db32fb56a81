# Defines the target log4cplus::log4cplus: from log4cplus's own CMake package, or from its header and library where it was
# built without that package, as Yocto and Buildroot do.
include(FindPackageHandleStandardArgs)

find_package(log4cplus QUIET CONFIG)
if(log4cplus_FOUND)
    find_package_handle_standard_args(log4cplus CONFIG_MODE)
    return()
endif()

find_path(LOG4CPLUS_INCLUDE_DIR log4cplus/logger.h)
find_library(LOG4CPLUS_LIBRARY log4cplus)
mark_as_advanced(LOG4CPLUS_INCLUDE_DIR LOG4CPLUS_LIBRARY)
find_package_handle_standard_args(log4cplus REQUIRED_VARS LOG4CPLUS_LIBRARY LOG4CPLUS_INCLUDE_DIR)

if(log4cplus_FOUND AND NOT TARGET log4cplus::log4cplus)
    add_library(log4cplus::log4cplus UNKNOWN IMPORTED)
    set_target_properties(log4cplus::log4cplus PROPERTIES IMPORTED_LOCATION "${LOG4CPLUS_LIBRARY}")
    target_include_directories(log4cplus::log4cplus INTERFACE "${LOG4CPLUS_INCLUDE_DIR}")
endif()
