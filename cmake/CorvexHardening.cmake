# What makes a fault harder to abuse: guarded stacks, checked copies, tables that are read-only once
# the module is loaded, no executable stack. For all code in the extensions, nanobind's too.
if(MSVC)
  add_compile_options(/guard:cf)
  add_link_options(/guard:cf)
elseif(NOT CORVEX_SANITIZE)
  add_compile_options(-fstack-protector-strong
                      $<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE> # some compilers set one
                      $<$<NOT:$<CONFIG:Debug>>:-D_FORTIFY_SOURCE=3>)
  if(CMAKE_SYSTEM_NAME STREQUAL "Linux")
    add_compile_options(-fstack-clash-protection)
    add_link_options(LINKER:-z,relro,-z,now,-z,noexecstack)
  endif()
endif()

# No path of the machine that builds: they would tell of it, and make two builds differ.
if(NOT MSVC)
  add_compile_options(-ffile-prefix-map=${PROJECT_SOURCE_DIR}/=)
endif()

# Only the entry of a module is seen from outside. Hidden visibility does not reach what carries a
# visibility of its own: resolvers of functions with vector clones, exceptions of libraries.
function(corvex_export_entry_alone name)
  if(APPLE)
    set(symbols ${CMAKE_CURRENT_BINARY_DIR}/${name}.symbols)
    file(CONFIGURE OUTPUT ${symbols} CONTENT "_PyInit_${name}\n")
    target_link_options(${name} PRIVATE LINKER:-exported_symbols_list,${symbols})
  elseif(NOT WIN32)
    set(symbols ${CMAKE_CURRENT_BINARY_DIR}/${name}.map)
    file(CONFIGURE OUTPUT ${symbols} CONTENT "{ global: PyInit_${name}; local: *; };\n")
    target_link_options(${name} PRIVATE LINKER:--version-script=${symbols})
  endif()
endfunction()
