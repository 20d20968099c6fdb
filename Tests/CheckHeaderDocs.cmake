# Checks what Doxygen cannot: every exported declaration of the public
# headers has a doc comment of its own right before it, and every function
# that returns a ZBError names in it the codes it returns (0 or a ZBError...
# name). Doxygen itself (the docs target) fails on undocumented declarations.
#   cmake -DHEADERS=<dir> -P CheckHeaderDocs.cmake
cmake_minimum_required(VERSION 3.25)
file(GLOB headers ${HEADERS}/*.h)
set(checked 0)
foreach(header ${headers})
  get_filename_component(name ${header} NAME)
  file(READ ${header} text)
  # Semicolons are list separators to CMake: stand-ins keep them whole.
  string(REPLACE ";" "<semicolon>" text "${text}")
  # A declaration begins its line with ZB_EXPORT; its doc comment ends on
  # the line before.
  string(REGEX MATCHALL "(/\\*\\*([^*]|\\*+[^*/])*\\*+/[ \t]*)?\nZB_EXPORT[^(<]*" declarations "${text}")
  foreach(declaration ${declarations})
    string(REGEX MATCH "ZB_EXPORT[^(<]*" signature "${declaration}")
    string(REGEX REPLACE "\n?ZB_EXPORT[^(<]*$" "" comment "${declaration}")
    string(REGEX MATCH "[A-Za-z_][A-Za-z0-9_]*[ \t\n]*$" function "${signature}")
    string(STRIP "${function}" function)
    math(EXPR checked "${checked} + 1")
    if(NOT comment MATCHES "^/\\*\\*")
      message(SEND_ERROR "${name}: ${function} has no doc comment of its own")
    elseif(signature MATCHES "^ZB_EXPORT[ \t\n]+ZBError[ \t\n]"
           AND NOT comment MATCHES "(ZBError[A-Z][A-Za-z]+|[^-0-9A-Za-z]0([^-0-9x.]|\\.[^0-9]))")
      message(SEND_ERROR "${name}: the doc comment of ${function} names no code it returns")
    endif()
  endforeach()
endforeach()
message(STATUS "${checked} exported declarations checked")
