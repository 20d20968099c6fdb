# Writes a library's image base and its DWARF line table as objdump decodes
# it, at build time, for the symbol tests to compare with:
#   cmake -DOBJDUMP=<objdump> -DINPUT=<library> -DOUTPUT=<table> -P DecodeLines.cmake
execute_process(COMMAND ${OBJDUMP} -p ${INPUT} OUTPUT_VARIABLE headers RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "objdump -p ${INPUT} failed: ${result}")
endif()
string(REGEX MATCH "ImageBase[ \t]+([0-9a-fA-F]+)" imageBase "${headers}")
execute_process(COMMAND ${OBJDUMP} --dwarf=decodedline ${INPUT} OUTPUT_VARIABLE lines
                RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "objdump --dwarf=decodedline ${INPUT} failed: ${result}")
endif()
file(WRITE ${OUTPUT} "${imageBase}\n${lines}")
