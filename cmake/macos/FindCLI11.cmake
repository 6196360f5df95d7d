add_library(CLI11::CLI11 INTERFACE IMPORTED)
target_include_directories(CLI11::CLI11 INTERFACE ${CMAKE_FIND_ROOT_PATH}/usr/local/include)
set(CLI11_FOUND TRUE)
