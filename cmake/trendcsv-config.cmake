include(CMakeFindDependencyMacro)
find_dependency(SQLite3 3.40)
include(${CMAKE_CURRENT_LIST_DIR}/trendcsv-targets.cmake)
