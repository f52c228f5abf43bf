# Makes a library for other programs: trendcsv::NAME, which is shared, and trendcsv::NAME-static.
# The files are called lib<FILE>. Both consist of the same objects, which the caller adds to the
# target trendcsv_NAME_objects. PUBLIC_HEADERS are installed; LIBRARIES are linked, and are not part
# of the interface.
function(trendcsv_public_library name file)
  cmake_parse_arguments(PARSE_ARGV 2 library "" "" "PUBLIC_HEADERS;LIBRARIES")
  set(objects trendcsv_${name}_objects)
  add_library(${objects} OBJECT)
  set_target_properties(${objects} PROPERTIES
    POSITION_INDEPENDENT_CODE ON CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
  target_include_directories(${objects} PRIVATE ${PROJECT_SOURCE_DIR} ${TRENDCSV_GENERATED_HEADERS})
  target_link_libraries(${objects} PRIVATE trendcsv_flags ${library_LIBRARIES})
  # Any compiler can link the static library: with g++ its objects hold both machine code and the
  # data for link-time optimization. clang++ does not support that.
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    target_compile_options(${objects} PRIVATE $<$<CONFIG:Release>:-ffat-lto-objects>)
  else()
    set_target_properties(${objects} PROPERTIES INTERPROCEDURAL_OPTIMIZATION_RELEASE OFF)
  endif()

  set(kinds STATIC)
  if(TRENDCSV_SHARED)
    list(APPEND kinds SHARED)
  endif()
  foreach(kind IN LISTS kinds)
    set(exported_name ${name})
    if(kind STREQUAL "STATIC")
      string(APPEND exported_name -static)
    endif()
    set(target trendcsv_${exported_name})
    add_library(${target} ${kind} $<TARGET_OBJECTS:${objects}>)
    add_library(trendcsv::${exported_name} ALIAS ${target})
    set_target_properties(${target} PROPERTIES
      OUTPUT_NAME ${file} EXPORT_NAME ${exported_name}
      VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
    target_compile_features(${target} PUBLIC cxx_std_20)
    target_include_directories(${target} PUBLIC
      $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}> $<BUILD_INTERFACE:${TRENDCSV_GENERATED_HEADERS}>)
    target_link_libraries(${target} PRIVATE ${library_LIBRARIES})
    if(kind STREQUAL "SHARED")
      # Template instances of the standard library are visible even with hidden visibility.
      set(exports ${PROJECT_SOURCE_DIR}/cmake/exports.map)
      target_link_libraries(${target} PRIVATE trendcsv_flags)
      target_link_options(${target} PRIVATE -Wl,--version-script=${exports})
      set_target_properties(${target} PROPERTIES LINK_DEPENDS ${exports})
    endif()
    if(TRENDCSV_INSTALL)
      install(TARGETS ${target} EXPORT trendcsv-targets
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/trendcsv)
    endif()
  endforeach()

  if(TRENDCSV_INSTALL)
    cmake_path(GET CMAKE_CURRENT_SOURCE_DIR FILENAME folder)
    install(FILES ${library_PUBLIC_HEADERS}
      DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/trendcsv/${folder})
  endif()
endfunction()
