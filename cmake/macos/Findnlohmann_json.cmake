add_library(nlohmann_json::nlohmann_json INTERFACE IMPORTED)
target_include_directories(nlohmann_json::nlohmann_json INTERFACE ${CMAKE_FIND_ROOT_PATH}/usr/local/include)
set(nlohmann_json_FOUND TRUE)
