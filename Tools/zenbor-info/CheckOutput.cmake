# Runs zenbor-info under Wine with the given log variables and checks that it
# exits 0, prints every expected line and none of the unexpected ones, and
# writes its log lines to the file named by ZBLOG_TO_FILE.
# The first line is the version of the headers it was built with, which has
# to be the project's.
#   cmake -DPROGRAM=... -DLOG_LEVEL=... -DVERSION=... -P CheckOutput.cmake
set(ENV{WINEDEBUG} "-all")
set(ENV{WINEDLLOVERRIDES} "winedbg.exe=d")
if(LOG_LEVEL AND NOT LOG_LEVEL STREQUAL "Default")
  set(ENV{ZBLOG_LEVEL} "${LOG_LEVEL}")
else()
  unset(ENV{ZBLOG_LEVEL})
endif()
# ZBLOG_TO_FILE, read when the library loads, sends the lines to a file.
get_filename_component(logFile "${PROGRAM}.log" ABSOLUTE)
file(REMOVE "${logFile}")
set(ENV{ZBLOG_TO_FILE} "${logFile}")
execute_process(COMMAND wine ${PROGRAM} OUTPUT_VARIABLE output RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "zenbor-info exited with ${status}:\n${output}")
endif()
# Compared as hex: reading the file as text would drop the CR of each CR LF.
file(READ "${logFile}" logged HEX)
string(HEX "qv-main: main: WARNING: a warning line" needle)
string(FIND "${logged}" "${needle}0d0a" at)
if(at EQUAL -1)
  file(READ "${logFile}" logged)
  message(SEND_ERROR "ZBLOG_TO_FILE: the log file lacks the lines:\n${logged}")
endif()

string(REPLACE "." "\\." versionPattern "${VERSION}")
set(expected
  "^Zenbor ${versionPattern}\r?\n"
  "-48  Connection refused"
  "1,234,567 items, 0003\\.142, left  \\|, 0xff"
  "permissions <READ,EXEC>"
  "hardware address 00:1b:21:3c:4d:5e / 001b\\.213c\\.4d5e"
  "uptime 1h2m5s"
  "unix +[0-9]+ ns"
  "Registered ZBOptions:"
  "QUOVEX_INFO_GREETINGS=2"
  "\\([0-9]+/[0-9]+\\) qv-main: main: ERROR: an error line"
  "qv-main: main: INFO: hello number 2 from qv-main"
  "\\) zb-worker-1: worker: INFO: zb-worker-1: working on the first job"
  "\\) zb-worker-2: worker: INFO: zb-worker-2: working on the second job")
set(unexpected)
if(LOG_LEVEL STREQUAL "Debug")
  list(APPEND expected "main: DEBUG: a debug line" "zb-worker-1: worker: DEBUG: zb-worker-1: finished")
  list(APPEND unexpected "VERBOSE")
else()
  list(APPEND unexpected "DEBUG" "VERBOSE")
endif()

foreach(pattern ${expected})
  if(NOT output MATCHES "${pattern}")
    message(SEND_ERROR "missing: ${pattern}")
  endif()
endforeach()
foreach(pattern ${unexpected})
  if(output MATCHES "${pattern}")
    message(SEND_ERROR "unexpected: ${pattern}")
  endif()
endforeach()
