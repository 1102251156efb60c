# Installs the library, looks at what is there, and builds and runs the examples against it alone.
# cmake -D SOURCE=... -D BUILD=... -D WORK=... -D CXX=... -D GENERATOR=... -D MAKE=... -P installed.cmake
function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE code OUTPUT_VARIABLE output ERROR_VARIABLE output)
  if(NOT code EQUAL 0)
    message(FATAL_ERROR "${ARGN} gave ${code}:\n${output}")
  endif()
  set(output "${output}" PARENT_SCOPE)
endfunction()

file(REMOVE_RECURSE ${WORK})
run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${WORK}/tree)

file(GLOB_RECURSE files RELATIVE ${WORK}/tree ${WORK}/tree/*)
set(includes "")
foreach(file IN LISTS files)
  if(file MATCHES "^include/(corvex/engine/.*[.]hpp)$")
    string(APPEND includes "#include \"${CMAKE_MATCH_1}\"\n")
  elseif(NOT file MATCHES "^lib.*/(libcorvex_engine[.]a|corvex_engine[.]lib|cmake/corvex/[^/]*[.]cmake)$")
    message(FATAL_ERROR "${file} has no business in the library")
  endif()
  file(READ ${WORK}/tree/${file} text)
  if(file MATCHES "(hpp|cmake)$" AND text MATCHES "Python[.]h|nanobind|pyglue|${SOURCE}")
    message(FATAL_ERROR "${file} tells of Python or of this machine: ${CMAKE_MATCH_0}")
  endif()
endforeach()

# All the headers in one source: each finds what it includes. That each also compiles alone is seen
# to where they are built.
file(WRITE ${WORK}/user/headers.cpp "${includes}")
file(WRITE ${WORK}/user/CMakeLists.txt "cmake_minimum_required(VERSION 3.25)
project(user LANGUAGES CXX)
add_compile_options(-Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow -Werror)
add_subdirectory(${SOURCE}/examples/cpp examples)
find_package(corvex CONFIG REQUIRED)
add_library(headers OBJECT headers.cpp)
target_link_libraries(headers PRIVATE corvex::engine)
# Not as a system's header, where compilers hold their tongue.
target_include_directories(headers BEFORE PRIVATE ${WORK}/tree/include)
")
run(${CMAKE_COMMAND} -S ${WORK}/user -B ${WORK}/built -G ${GENERATOR} -D CMAKE_MAKE_PROGRAM=${MAKE}
    -D CMAKE_CXX_COMPILER=${CXX} -D CMAKE_PREFIX_PATH=${WORK}/tree -D CMAKE_BUILD_TYPE=Debug)
run(${CMAKE_COMMAND} --build ${WORK}/built)

# They print what the guide shows, to the letter.
file(READ ${SOURCE}/docs/cpp.md guide)
set(sample ${SOURCE}/python/corvex/sample/us_stocks_adjusted_close_daily_1990_2022.csv.gz)
run(gzip -dc ${sample})
file(WRITE ${WORK}/prices.csv "${output}")
foreach(program "monthly;${WORK}/prices.csv" costs)
  list(POP_FRONT program name)
  run(${WORK}/built/examples/${name} ${program})
  string(FIND "${guide}" "\n${output}```" place)
  if(place EQUAL -1)
    message(FATAL_ERROR "docs/cpp.md does not show what ${name} prints:\n${output}")
  endif()
endforeach()
