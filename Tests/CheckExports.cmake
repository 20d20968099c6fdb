# Checks zenbor.dll's tables: it exports exactly the ZB_EXPORT declarations
# of the public headers, and imports system DLLs only (the C++ runtime and
# winpthreads are linked in).
#   cmake -DDLL=... -DHEADERS=... -DOBJDUMP=... -P CheckExports.cmake
include(${CMAKE_CURRENT_LIST_DIR}/../cmake/ZenborExports.cmake)
zb_read_exported_names(${HEADERS} functions variables)
set(declared ${functions} ${variables})
list(SORT declared)
zb_read_dll_exports(${OBJDUMP} ${DLL} exported)
set(dump "${exported_DUMP}")

list(LENGTH declared declaredCount)
list(LENGTH exported exportedCount)
message(STATUS "${declaredCount} declared, ${exportedCount} exported")
zb_expect_same_names(declared exported "declared but not exported" "exported but not declared")

string(REGEX MATCHALL "DLL Name: [^\n]*" imports "${dump}")
set(allowed "^(KERNEL32|ADVAPI32|WS2_32|DBGHELP|USER32|OLE32|SHELL32|BCRYPT|ntdll|api-ms-win-[a-z0-9-]+|msvcrt)\\.dll$")
foreach(import ${imports})
  string(REPLACE "DLL Name: " "" dll "${import}")
  string(TOUPPER "${dll}" upper)
  string(REGEX REPLACE "\\.DLL$" ".dll" upper "${upper}")
  if(NOT upper MATCHES "${allowed}" AND NOT dll MATCHES "${allowed}")
    message(SEND_ERROR "imports a DLL that is not the system's: ${dll}")
  endif()
  message(STATUS "imports ${dll}")
endforeach()
