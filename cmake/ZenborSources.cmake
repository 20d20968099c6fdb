# Where things are, shared by the library, tests, benchmarks and tools.
set(ZB_HEADERS_DIR ${CMAKE_SOURCE_DIR}/Headers)
set(ZB_PRIVATE_HEADERS_DIR ${CMAKE_SOURCE_DIR}/PrivateHeaders)
# Public headers written at configure time (ZBVersion.h), installed with the
# others.
set(ZB_GENERATED_HEADERS_DIR ${CMAKE_BINARY_DIR}/include)
configure_file(${CMAKE_CURRENT_LIST_DIR}/ZBVersion.h.in ${ZB_GENERATED_HEADERS_DIR}/ZBVersion.h @ONLY)

# Runs a Windows program under Wine quietly: no debug channels, and no Wine
# debugger attaching to the deliberate aborts of death tests.
set(ZB_WINE_ENVIRONMENT "WINEDEBUG=-all" "WINEDLLOVERRIDES=winedbg.exe=d")

# Programs for Windows carry their C++ runtime inside them, so they run under
# Wine without extra DLLs beside them.
function(zb_link_runtime_statically target)
  if(WIN32)
    target_link_options(${target} PRIVATE -static -static-libgcc -static-libstdc++)
  endif()
endfunction()
