# Shared build settings: warnings, sanitizers, and the one-library-per-folder rule.

add_compile_options(-Wall -Wextra -Wno-unused-parameter)

if((VORMELT_SANITIZE OR VORMELT_FUZZ) AND VORMELT_TSAN)
  message(FATAL_ERROR "ThreadSanitizer cannot share a build with AddressSanitizer")
endif()
if(VORMELT_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=address,undefined)
endif()
if(VORMELT_TSAN)
  add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
  add_link_options(-fsanitize=thread)
endif()
# libFuzzer steers by the coverage of the code it runs: every library a fuzz target links is
# compiled with the fuzzer's instrumentation and the sanitizers, not only the harness, or it
# sees a few hundred edges and an overread inside a parser goes unnoticed. The fuzz targets
# add the libFuzzer runtime (-fsanitize=fuzzer) when they link.
if(VORMELT_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    message(FATAL_ERROR "VORMELT_FUZZ needs clang (CXX=clang++)")
  endif()
  add_compile_options(-fsanitize=fuzzer-no-link,address,undefined -fno-omit-frame-pointer
                      -fno-sanitize-recover=undefined)
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
