# Installs the files for find_package(trendcsv) and pkg-config. All paths in them are relative, so
# the installation folder may be moved.
include(CMakePackageConfigHelpers)

set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/trendcsv)
set(package_files ${PROJECT_BINARY_DIR}/package)
install(EXPORT trendcsv-targets NAMESPACE trendcsv:: DESTINATION ${package_folder})
write_basic_package_version_file(${package_files}/trendcsv-config-version.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES cmake/trendcsv-config.cmake ${package_files}/trendcsv-config-version.cmake
  DESTINATION ${package_folder})

# Both are relative to the folder of the pkg-config files.
set(pc_folder ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH pc_includedir ${pc_folder} ${CMAKE_INSTALL_FULL_INCLUDEDIR}/trendcsv)
foreach(name libtrend libtrend-cds)
  configure_file(cmake/${name}.pc.in ${package_files}/${name}.pc @ONLY)
  install(FILES ${package_files}/${name}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()
