# Shared build settings: warnings, sanitizers, and the one-library-per-folder rule.

add_compile_options(-Wall -Wextra -Wno-unused-parameter)

if(VORMELT_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=address,undefined)
endif()

# vormelt_engine_library(<folder> [DEPENDS lib...])
# Every source file in src/<folder> belongs to the static library vormelt_<folder>.
function(vormelt_engine_library folder)
  cmake_parse_arguments(ARG "" "" "DEPENDS" ${ARGN})
  file(GLOB sources CONFIGURE_DEPENDS
       ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp ${CMAKE_CURRENT_SOURCE_DIR}/*.hpp)
  add_library(vormelt_${folder} STATIC ${sources})
  target_include_directories(vormelt_${folder} PUBLIC ${PROJECT_SOURCE_DIR}/src)
  target_link_libraries(vormelt_${folder} PUBLIC ${ARG_DEPENDS})
endfunction()
