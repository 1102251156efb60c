# Compiles each header of a folder alone: it must bring its own includes. The engine's are compiled
# without Python's include folders, so none of them can reach a Python header by any path.
function(corvex_check_headers target folder)
  file(GLOB_RECURSE headers CONFIGURE_DEPENDS RELATIVE ${PROJECT_SOURCE_DIR}/src ${folder}/*.hpp)
  set(sources)
  foreach(header IN LISTS headers)
    string(MAKE_C_IDENTIFIER ${header} name)
    set(source ${CMAKE_CURRENT_BINARY_DIR}/${target}/${name}.cpp)
    file(CONFIGURE OUTPUT ${source} CONTENT "#include \"${header}\"\n" @ONLY)
    list(APPEND sources ${source})
  endforeach()
  add_library(${target} OBJECT ${sources})
  target_link_libraries(${target} PRIVATE corvex_options)
endfunction()
