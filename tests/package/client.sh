# Builds the outside program against an installation, and runs it. Who reads this has set $here, $scratch, $cmake,
# $compiler and $generator, and has fail.

# Has the program define names of the library for itself, which cannot be where it is linked with the library itself.
own_names=-DOWN_NAMES

# The program prints a value of this registry, and has to find it in each of its builds.
printf '# a comment\nCOLOUR = blue  # a remark\n' > "$scratch/colours"
try() {
    said=$("$@" "$scratch/colours") || fail "$* fails with $?"
    [ "$said" = "COLOUR is blue" ] || fail "$* says '$said'"
}

# by_pkg_config PROGRAM [OPTION...]: with what pkg-config says, asked with these options.
by_pkg_config() {
    program=$1
    shift
    flags=$(pkg-config "$@" --cflags --libs RVNgenreg) || fail "pkg-config knows no RVNgenreg"
    # Unquoted: the flags are words.
    # shellcheck disable=SC2086
    "$compiler" -std=c++17 -Wall -Wextra -Wpedantic -Werror $own_names \
        -DEXPECTED_VERSION="\"$(pkg-config --modversion RVNgenreg)\"" "$here/outside.cpp" $flags -o "$scratch/$program"
}

# by_cmake PROGRAM PREFIX
by_cmake() {
    mkdir -p "$scratch/project"
    cp "$here/outside.cpp" "$scratch/project/"
    cat > "$scratch/project/CMakeLists.txt" << 'END'
cmake_minimum_required(VERSION 3.25)
project(outside LANGUAGES CXX)
set(CMAKE_CXX_STANDARD 17)
find_package(RVNgenreg COMPONENTS genreg unknown)
if(RVNgenreg_FOUND OR TARGET RVN::genreg OR NOT RVNgenreg_NOT_FOUND_MESSAGE MATCHES "no component unknown, but genreg")
  message(FATAL_ERROR "an unknown component is found: '${RVNgenreg_NOT_FOUND_MESSAGE}'")
endif()
find_package(RVNgenreg 1 REQUIRED COMPONENTS genreg OPTIONAL_COMPONENTS osse unknown)
if(RVNgenreg_unknown_FOUND OR NOT RVNgenreg_osse_FOUND OR NOT RVNgenreg_genreg_FOUND)
  message(FATAL_ERROR "the components are told wrong")
endif()
add_executable(outside outside.cpp)
target_compile_definitions(outside PRIVATE EXPECTED_VERSION="${RVNgenreg_VERSION}")
target_link_libraries(outside PRIVATE RVN::genreg)
END
    "$cmake" -G "$generator" -S "$scratch/project" -B "$scratch/$1" -DCMAKE_CXX_COMPILER="$compiler" \
        -DCMAKE_PREFIX_PATH="$2" -DCMAKE_CXX_FLAGS="$own_names" > "$scratch/configure.log" 2>&1 ||
        fail "$(cat "$scratch/configure.log")"
    "$cmake" --build "$scratch/$1" > "$scratch/build.log" || fail "$(cat "$scratch/build.log")"
}
