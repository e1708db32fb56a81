# find_package(serialComm) makes the target serialComm::serialComm, and log4cplus::log4cplus for the host's own log.
include(CMakeFindDependencyMacro)
find_dependency(log4cplus)
include(${CMAKE_CURRENT_LIST_DIR}/serialCommTargets.cmake)
