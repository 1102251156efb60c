# Compiles headers of a folder alone: each must bring its own includes. Those with a source of their
# own are left out, since that one includes them first (tests/python/test_layers.py sees to it).
# The engine's are compiled without Python's include folders, so none of them can reach a Python
# header by any path.
function(corvex_check_headers target folder)
  file(GLOB_RECURSE headers CONFIGURE_DEPENDS RELATIVE ${PROJECT_SOURCE_DIR}/src ${folder}/*.hpp)
  set(sources)
  foreach(header IN LISTS headers)
    string(REGEX REPLACE "hpp$" "cpp" own ${PROJECT_SOURCE_DIR}/src/${header})
    if(EXISTS ${own})
      continue()
    endif()
    string(MAKE_C_IDENTIFIER ${header} name)
    set(source ${CMAKE_CURRENT_BINARY_DIR}/${target}/${name}.cpp)
    file(CONFIGURE OUTPUT ${source} CONTENT "#include \"${header}\"\n" @ONLY)
    list(APPEND sources ${source})
  endforeach()
  if(sources)
    add_library(${target} OBJECT ${sources})
    target_link_libraries(${target} PRIVATE corvex_options)
  endif()
endfunction()

# The same for what includes Python's headers and nanobind's.
function(corvex_check_extension_headers target folder)
  corvex_check_headers(${target} ${folder})
  if(TARGET ${target})
    get_target_property(includes nanobind-static-ps INTERFACE_INCLUDE_DIRECTORIES)
    target_include_directories(${target} SYSTEM PRIVATE ${includes} ${Python_NumPy_INCLUDE_DIRS})
  endif()
endfunction()
