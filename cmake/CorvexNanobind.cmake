# nanobind comes as a Python package; it tells where its CMake files are.
execute_process(
  COMMAND ${Python_EXECUTABLE} -m nanobind --cmake_dir
  OUTPUT_VARIABLE nanobind_ROOT
  OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
find_package(nanobind CONFIG REQUIRED)

# nanobind's headers are not ours to warn about.
function(corvex_extension name)
  nanobind_add_module(${name} NB_STATIC NOMINSIZE PROTECT_STACK ${ARGN})
  corvex_export_entry_alone(${name})
  target_link_libraries(${name} PRIVATE corvex_options corvex_engine)
  get_target_property(includes nanobind-static-ps INTERFACE_INCLUDE_DIRECTORIES)
  if(includes)
    target_include_directories(${name} SYSTEM PRIVATE ${includes})
  endif()
endfunction()
