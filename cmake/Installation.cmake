# What of the libraries is installed: they, their headers, and what pkg-config and CMake tell clients of them.
include(CMakePackageConfigHelpers)

set(COMPONENTS genreg osse install)
set(PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/RVNgenreg)
configure_file(cmake/RVNgenregConfig.cmake.in RVNgenregConfig.cmake @ONLY)
write_basic_package_version_file(RVNgenregConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/RVNgenregConfig.cmake ${PROJECT_BINARY_DIR}/RVNgenregConfigVersion.cmake
        DESTINATION ${PACKAGE_DIR})

if(BUILD_SHARED_LIBS AND LIBRARIES_FROM_LIBRARY)
  set(RUN_PATH "-Wl,-rpath,\${libdir} ")
endif()
configure_file(cmake/RVNgenreg.pc.in RVNgenreg.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/RVNgenreg.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

install(TARGETS RVNosse RVNinstall RVNgenreg EXPORT RVNgenregTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(EXPORT RVNgenregTargets NAMESPACE RVN:: DESTINATION ${PACKAGE_DIR})
install(DIRECTORY include/genreg include/osse include/install DESTINATION ${HEADERS}
        FILES_MATCHING PATTERN "*.h" PATTERN "*.inc")
