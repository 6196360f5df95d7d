#!/bin/sh
# Takes the tree into another project, which gets the libraries and nothing else that it did not have: no variable, no
# target of its tools and tests, no rule of an installation. usage: subproject_test.sh SOURCE_DIR CMAKE COMPILER GENERATOR
set -eu

source=$1 cmake=$2 compiler=$3 generator=$4
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

fail() {
    echo "subproject: $*" >&2
    exit 1
}

configure() {
    folder=$1
    shift
    "$cmake" -G "$generator" -S "$scratch/outer" -B "$scratch/$folder" -DCMAKE_CXX_COMPILER="$compiler" -DTREE="$source" \
        "$@" > "$scratch/$folder.log" 2>&1
}

mkdir "$scratch/outer"
cat > "$scratch/outer/CMakeLists.txt" << 'END_OF_PROJECT'
cmake_minimum_required(VERSION 3.25)
project(outer VERSION 5.4.3.2 LANGUAGES CXX)
set(CMAKE_CXX_STANDARD 17)
if(RVN_INSTALL)
  include(GNUInstallDirs)
endif()

# Every variable with its value, cached or not.
function(state result)
  get_cmake_property(names VARIABLES)
  set(state)
  foreach(name ${names})
    if(NOT name MATCHES "^(RVN|CMAKE_MATCH_|ARG|names$|before$|result$)")
      string(REPLACE ";" "," value "${name}=${${name}}")
      list(APPEND state "${value}")
    endif()
  endforeach()
  set(${result} ${state} PARENT_SCOPE)
endfunction()

state(before)
add_subdirectory(${TREE} tree)
state(after)
list(REMOVE_ITEM after ${before})
if(after)
  message(FATAL_ERROR "set for the outer project: ${after}")
endif()

get_property(targets DIRECTORY ${TREE} PROPERTY BUILDSYSTEM_TARGETS)
list(SORT targets)
if(NOT targets STREQUAL "RVNgenreg;RVNinstall;RVNosse;genreg_objects;rvn_build")
  message(FATAL_ERROR "its targets: ${targets}")
endif()
get_property(inside DIRECTORY ${TREE} PROPERTY SUBDIRECTORIES)
get_property(tests DIRECTORY ${TREE} PROPERTY TESTS)
if(inside OR tests)
  message(FATAL_ERROR "its folders: ${inside}; its tests: ${tests}")
endif()

add_executable(client client.cpp)
target_link_libraries(client PRIVATE RVN::install)
add_executable(whole client.cpp)
target_link_libraries(whole PRIVATE RVN::genreg RVN::osse)
file(GENERATE OUTPUT kind CONTENT "$<TARGET_PROPERTY:RVNgenreg,TYPE>")
END_OF_PROJECT
cat > "$scratch/outer/client.cpp" << 'END_OF_CLIENT'
#include <genreg/genreg.h>
#include <install/Install.h>
static_assert(__cplusplus == 201703L, "a client has the language that it asked for");
int main() {
    char path[1024];
    return sqloInstallPath(sizeof path, path) == 0 ? 0 : 1;
}
END_OF_CLIENT

configure shared || fail "$(cat "$scratch/shared.log")"
[ "$(cat "$scratch/shared/kind")" = SHARED_LIBRARY ] || fail "the libraries are no shared ones"
! grep -rl 'file(INSTALL' "$scratch/shared/tree" --include=cmake_install.cmake || fail "there are rules of an installation"
"$cmake" --build "$scratch/shared" --target client > "$scratch/build.log" 2>&1 || fail "$(cat "$scratch/build.log")"
"$scratch/shared/client" || fail "the client fails"

configure static -DBUILD_SHARED_LIBS=OFF -DRVN_INSTALL=ON || fail "$(cat "$scratch/static.log")"
[ "$(cat "$scratch/static/kind")" = STATIC_LIBRARY ] || fail "BUILD_SHARED_LIBS says OFF, and the libraries are shared ones"
grep -q 'libRVNgenreg.a' "$scratch/static/tree/cmake_install.cmake" || fail "RVN_INSTALL says ON, and nothing would be installed"

# refused OPTION TEXT: is not taken, and told of in these words.
refused() {
    ! configure refused "$1" || fail "$1 is taken"
    grep -q "$2" "$scratch/refused.log" || fail "$1 is refused without a word of it: $(cat "$scratch/refused.log")"
    rm -rf "$scratch/refused"
}
refused -DRVN_PLATFORM=other "RVN_PLATFORM is 'other'"
refused -DRVN_SANITIZE=other "RVN_SANITIZE is 'other'"
refused -DRVN_BENCH=ON "RVN_TOOL is 'OFF'"
