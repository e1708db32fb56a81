# find_package(serialComm) makes the target serialComm::serialComm, and log4cplus::log4cplus for the host's own log.
include(CMakeFindDependencyMacro)
list(APPEND CMAKE_MODULE_PATH ${CMAKE_CURRENT_LIST_DIR})
find_dependency(log4cplus)
list(REMOVE_ITEM CMAKE_MODULE_PATH ${CMAKE_CURRENT_LIST_DIR})
include(${CMAKE_CURRENT_LIST_DIR}/serialCommTargets.cmake)
