# Writes `objdump -h` of a library to a file, at build time:
#   cmake -DOBJDUMP=<objdump> -DINPUT=<library> -DOUTPUT=<table> -P ListSections.cmake
execute_process(COMMAND ${OBJDUMP} -h ${INPUT} OUTPUT_FILE ${OUTPUT} RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "objdump -h ${INPUT} failed: ${result}")
endif()
