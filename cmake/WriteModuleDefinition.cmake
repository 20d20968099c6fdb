# Writes the module-definition file of zenbor.dll from the ZB_EXPORT
# declarations of the public headers, so the import library made from it
# always matches the interface. Variables are marked DATA: a consumer reaches
# them through their __imp_ pointers only, never through a call thunk.
#   cmake -DHEADERS=<dir> -DOUTPUT=<file.def> -P WriteModuleDefinition.cmake
include(${CMAKE_CURRENT_LIST_DIR}/ZenborExports.cmake)
zb_read_exported_names(${HEADERS} functions variables)
set(text "LIBRARY zenbor.dll\nEXPORTS\n")
foreach(name ${functions})
  string(APPEND text "  ${name}\n")
endforeach()
foreach(name ${variables})
  string(APPEND text "  ${name} DATA\n")
endforeach()
# Rewritten only when it changes, so the import library is not remade for
# nothing.
file(WRITE ${OUTPUT}.new "${text}")
file(COPY_FILE ${OUTPUT}.new ${OUTPUT} ONLY_IF_DIFFERENT)
file(REMOVE ${OUTPUT}.new)
