# A project that contains this one, with programs that use the libraries.
cmake_minimum_required(VERSION 3.25)
project(my_weather LANGUAGES CXX)

add_subdirectory(${TRENDCSV_SOURCE} trendcsv)
foreach(program recorder reader)
  add_executable(${program} ${program}.cc)
  target_link_libraries(${program} PRIVATE trendcsv::trend)
endforeach()
add_executable(names names.cc)
target_link_libraries(names PRIVATE trendcsv::cds-static)
