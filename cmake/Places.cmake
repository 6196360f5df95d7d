# Where an installation has its libraries and headers, and where its programs look for the former.
include(GNUInstallDirs)

# Beside the headers of others ours keep together: <install/Install.h> would be everybody's.
set(HEADERS ${CMAKE_INSTALL_INCLUDEDIR})
if(CMAKE_INSTALL_FULL_INCLUDEDIR STREQUAL "/usr/include")
  string(APPEND HEADERS /RVNgenreg)
endif()

# Compilers and loaders search these by themselves. Elsewhere the libraries find each other, and the tool finds them,
# wherever the prefix is moved to.
foreach(folder /lib /usr/lib)
  list(APPEND SEARCHED ${folder} ${folder}64 ${folder}/${CMAKE_LIBRARY_ARCHITECTURE})
endforeach()
if(CMAKE_INSTALL_FULL_LIBDIR IN_LIST SEARCHED)
  set(PKGCONFIG_PREFIX ${CMAKE_INSTALL_PREFIX})
else()
  set(ORIGIN $<IF:$<PLATFORM_ID:Darwin>,@loader_path,$ORIGIN>)
  file(RELATIVE_PATH libraries ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
  set(LIBRARIES_FROM_LIBRARY ${ORIGIN})
  set(LIBRARIES_FROM_TOOL ${ORIGIN}/${libraries})
  file(RELATIVE_PATH prefix ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
  string(REGEX REPLACE "/$" "" PKGCONFIG_PREFIX "\${pcfiledir}/${prefix}")
endif()
