# One interface target carries the flags of every target of ours; third-party code does not link it.
add_library(corvex_options INTERFACE)
target_compile_features(corvex_options INTERFACE cxx_std_20)
target_include_directories(corvex_options INTERFACE ${PROJECT_SOURCE_DIR}/src)
if(MSVC)
  target_compile_options(corvex_options INTERFACE /W4 /WX /permissive- /utf-8 /Zc:__cplusplus
                                                  /Zc:preprocessor)
  target_compile_definitions(corvex_options INTERFACE NOMINMAX)
else()
  target_compile_options(
    corvex_options
    INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow -Wnon-virtual-dtor
              -Wold-style-cast -Wcast-qual -Woverloaded-virtual -Werror)
endif()

if(CORVEX_SANITIZE)
  # Applied to everything, nanobind included: half-instrumented containers give false reports.
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=undefined
                      -fno-omit-frame-pointer -g)
  add_link_options(-fsanitize=address,undefined)
endif()
