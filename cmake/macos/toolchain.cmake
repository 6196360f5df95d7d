# Builds for macOS on Linux, with what get.sh has put into build/cross. RVN_MACOS_TARGET: x86_64 or aarch64.
set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_VERSION 20.0)  # of the kernel: macOS 11
set(CMAKE_SYSTEM_PROCESSOR ${RVN_MACOS_TARGET})
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES RVN_MACOS_TARGET)

set(CMAKE_CXX_COMPILER ${CMAKE_CURRENT_LIST_DIR}/clang++)
set(CMAKE_CXX_COMPILER_TARGET ${RVN_MACOS_TARGET}-macos.11.0.0)
set(CMAKE_AR llvm-ar)
set(CMAKE_RANLIB llvm-ranlib)
find_program(CMAKE_INSTALL_NAME_TOOL NAMES llvm-install-name-tool llvm-install-name-tool-14 REQUIRED)
set(CMAKE_OSX_SYSROOT "" CACHE STRING "The compiler knows its own")
set(CMAKE_OSX_DEPLOYMENT_TARGET "" CACHE STRING "The target says it")
# CMake would ask the system that it runs on. It clears this after it first read the file, hence the second time.
set(CMAKE_SHARED_LIBRARY_RUNTIME_C_FLAG "-Wl,-rpath,")
set(CMAKE_USER_MAKE_RULES_OVERRIDE ${CMAKE_CURRENT_LIST_FILE})

# The Find modules beside this file offer for the target what Debian's packages have in sources or headers alone.
set(CMAKE_FIND_ROOT_PATH ${CMAKE_CURRENT_LIST_DIR}/../../build/cross/sdk)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
list(APPEND CMAKE_MODULE_PATH ${CMAKE_CURRENT_LIST_DIR})
