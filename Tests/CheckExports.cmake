# Checks zenbor.dll's tables: it exports exactly the ZB_EXPORT declarations
# of the public headers, every one of them is named by some test source, and
# it imports system DLLs only (the C++ runtime and winpthreads are linked in).
#   cmake -DDLL=... -DHEADERS=... -DTESTS=... -DOBJDUMP=... -P CheckExports.cmake
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

# Named by a test: the name appears as a whole word, outside a line comment,
# in a source under TESTS. A macro that expands to an export does not count:
# a test calls the export by its name.
set(tested "")
file(GLOB_RECURSE testSources ${TESTS}/*.cpp ${TESTS}/*.c ${TESTS}/*.h)
foreach(source ${testSources})
  file(READ ${source} text)
  # String literals go first, so a "//" inside one ("file://host") does not
  # hide the rest of its line.
  string(REGEX REPLACE "\"([^\"\\\n]|\\\\.)*\"" "\"\"" text "${text}")
  string(REGEX REPLACE "//[^\n]*" "" text "${text}")
  string(REGEX MATCHALL "[A-Za-z_][A-Za-z0-9_]*" words "${text}")
  list(APPEND tested ${words})
endforeach()
list(REMOVE_DUPLICATES tested)
set(untested ${declared})
if(tested)
  list(REMOVE_ITEM untested ${tested})
endif()
list(LENGTH untested untestedCount)
math(EXPR namedCount "${declaredCount} - ${untestedCount}")
message(STATUS "${namedCount} of ${declaredCount} declared exports named by a test")
if(untested)
  string(REPLACE ";" "\n  " untestedLines "${untested}")
  message(SEND_ERROR "exports that no test under ${TESTS} names:\n  ${untestedLines}")
endif()

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
