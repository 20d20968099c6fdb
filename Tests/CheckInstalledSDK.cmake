# Installs the SDK into a temporary prefix outside the source tree, moves it
# (the SDK must not depend on where it was installed), then builds the
# consumer programs of Consumers/ against it alone, once with
# find_package(Zenbor) and once with the flags pkg-config gives, and runs the
# four programs under Wine. Only the prefix and a copy of Consumers/ are
# reachable: the test fails if any build file or dependency list names the
# source tree or the build tree.
#   cmake -DBUILD_DIR=... -DSOURCE_DIR=... -DVERSION=... -DC_COMPILER=...
#         -DCXX_COMPILER=... -DOBJDUMP=... -P CheckInstalledSDK.cmake
cmake_minimum_required(VERSION 3.25)
set(ENV{WINEDEBUG} "-all")
set(ENV{WINEDLLOVERRIDES} "winedbg.exe=d")

# A failure is reported and the temporary folder kept for a look.
set(failed OFF)
macro(fail text)
  message(SEND_ERROR "${text}")
  set(failed ON)
endmacro()

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE status OUTPUT_VARIABLE output
                  ERROR_VARIABLE output)
  if(NOT status EQUAL 0)
    string(REPLACE ";" " " command "${ARGN}")
    message(FATAL_ERROR "${command} failed (${status}):\n${output}\nkept ${root}")
  endif()
endfunction()

if(DEFINED ENV{TMPDIR} AND IS_DIRECTORY "$ENV{TMPDIR}")
  set(temporary "$ENV{TMPDIR}")
else()
  set(temporary /tmp)
endif()
string(RANDOM LENGTH 8 tag)
set(root ${temporary}/zenbor-sdk-test-${tag})
set(sdk ${root}/Zenbor-${VERSION})
file(REMOVE_RECURSE ${root})
file(MAKE_DIRECTORY ${root})

# Install, then move: every path in the SDK has to be relative.
run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${root}/staging)
file(RENAME ${root}/staging ${sdk})
foreach(file bin/zenbor.dll lib/libzenbor.dll.a lib/zenbor.lib lib/zenbor.def
        include/Zenbor/Zenbor.h include/Zenbor/ZBVersion.h include/Zenbor/ZBBase.h
        lib/cmake/Zenbor/ZenborConfig.cmake lib/cmake/Zenbor/ZenborConfigVersion.cmake
        lib/cmake/Zenbor/ZenborTargets.cmake lib/pkgconfig/zenbor.pc)
  if(NOT EXISTS ${sdk}/${file})
    fail("the SDK lacks ${file}")
  endif()
endforeach()
# Every public header is installed.
file(GLOB headers RELATIVE ${SOURCE_DIR}/Headers ${SOURCE_DIR}/Headers/*.h)
foreach(header ${headers})
  if(NOT EXISTS ${sdk}/include/Zenbor/${header})
    fail("the SDK lacks include/Zenbor/${header}")
  endif()
endforeach()
file(GLOB_RECURSE packageFiles ${sdk}/lib/cmake/* ${sdk}/lib/pkgconfig/*)
foreach(file ${packageFiles})
  file(READ ${file} text)
  foreach(path ${root}/staging ${SOURCE_DIR} ${BUILD_DIR})
    string(FIND "${text}" "${path}" at)
    if(NOT at EQUAL -1)
      fail("${file} names ${path}: the SDK is not relocatable")
    endif()
  endforeach()
endforeach()

file(COPY ${SOURCE_DIR}/Tests/Consumers/ DESTINATION ${root}/consumers)

# With CMake: the prefix is the only place to look; no package registry.
run(${CMAKE_COMMAND} -S ${root}/consumers -B ${root}/with-cmake -DCMAKE_BUILD_TYPE=Release
    -DCMAKE_SYSTEM_NAME=Windows -DCMAKE_C_COMPILER=${C_COMPILER} -DCMAKE_CXX_COMPILER=${CXX_COMPILER}
    -DCMAKE_PREFIX_PATH=${sdk} -DCMAKE_FIND_PACKAGE_NO_PACKAGE_REGISTRY=ON
    -DCMAKE_FIND_USE_SYSTEM_PACKAGE_REGISTRY=OFF)
file(STRINGS ${root}/with-cmake/CMakeCache.txt zenborDir REGEX "^Zenbor_DIR:")
if(NOT zenborDir STREQUAL "Zenbor_DIR:PATH=${sdk}/lib/cmake/Zenbor")
  fail("find_package found another Zenbor: ${zenborDir}")
endif()
run(${CMAKE_COMMAND} --build ${root}/with-cmake)

# With pkg-config: its flags only, on the compiler's command line.
set(ENV{PKG_CONFIG_LIBDIR} ${sdk}/lib/pkgconfig)
set(ENV{PKG_CONFIG_PATH} "")
execute_process(COMMAND pkg-config --cflags --libs zenbor RESULT_VARIABLE status
                OUTPUT_VARIABLE flags OUTPUT_STRIP_TRAILING_WHITESPACE)
execute_process(COMMAND pkg-config --modversion zenbor OUTPUT_VARIABLE pcVersion
                OUTPUT_STRIP_TRAILING_WHITESPACE)
if(NOT status EQUAL 0 OR NOT pcVersion STREQUAL VERSION)
  message(FATAL_ERROR "pkg-config does not find zenbor ${VERSION} (${status}, ${pcVersion})")
endif()
separate_arguments(flags UNIX_COMMAND "${flags}")
file(MAKE_DIRECTORY ${root}/with-pkg-config)
run(${C_COMPILER} -std=c99 -Wall -Werror -MD ${root}/consumers/consumer.c ${flags} -static
    -o ${root}/with-pkg-config/consumer-c.exe WORKING_DIRECTORY ${root}/with-pkg-config)
run(${CXX_COMPILER} -std=c++17 -Wall -Werror -MD ${root}/consumers/consumer.cpp ${flags} -static
    -o ${root}/with-pkg-config/consumer-cpp.exe WORKING_DIRECTORY ${root}/with-pkg-config)

# Neither build may have reached into the source or build tree; both took
# Zenbor's headers from the SDK (pkg-config's paths go through lib/pkgconfig/../..).
string(REGEX REPLACE "([.+])" "\\\\\\1" sdkPattern "${sdk}")
foreach(build with-cmake with-pkg-config)
  file(GLOB_RECURSE buildFiles ${root}/${build}/*.txt ${root}/${build}/*.make ${root}/${build}/*.d
       ${root}/${build}/Makefile)
  set(usedSDKHeaders OFF)
  foreach(file ${buildFiles})
    file(READ ${file} text)
    foreach(path ${SOURCE_DIR} ${BUILD_DIR})
      string(FIND "${text}" "${path}" at)
      if(NOT at EQUAL -1)
        fail("${file} names ${path}")
      endif()
    endforeach()
    if(text MATCHES "${sdkPattern}/[^ \n]*include/Zenbor/ZBVersion\\.h")
      set(usedSDKHeaders ON)
    endif()
  endforeach()
  if(NOT usedSDKHeaders)
    fail("${build}: no dependency list shows the SDK's headers")
  endif()
endforeach()

# Run the four programs with the SDK's bin/ as the only place for zenbor.dll.
set(ENV{WINEPATH} ${sdk}/bin)
string(REPLACE "." "\\." versionPattern "${VERSION}")
set(expectedC
  "^Zenbor ${versionPattern} ${versionPattern} from C\r?\n"
  "qasprintf: 1,234,567 items, ab   \\|, 0xff \\(29\\)\r?\n"
  "ZBCStringCreateWithFormat: 042\\.2%, done\r?\n"
  "error -48: Connection refused\r?\n$")
set(expectedCpp
  "^Zenbor ${versionPattern} ${versionPattern} from C\\+\\+\r?\n"
  "qasprintf: the buffer has 4096 bytes \\(25\\)\r?\n"
  "ZBWCStringCreateWithFormat: wide-16\r?\n"
  "thread: consumer-worker\r?\n$")
foreach(build with-cmake with-pkg-config)
  foreach(program consumer-c consumer-cpp)
    set(exe ${root}/${build}/${program}.exe)
    execute_process(COMMAND ${OBJDUMP} -p ${exe} OUTPUT_VARIABLE dump)
    if(NOT dump MATCHES "DLL Name: zenbor\\.dll")
      fail("${build}/${program}.exe does not import zenbor.dll")
    endif()
    execute_process(COMMAND wine ${exe} RESULT_VARIABLE status OUTPUT_VARIABLE output
                    WORKING_DIRECTORY ${root})
    if(program STREQUAL "consumer-c")
      string(REPLACE ";" "" expected "${expectedC}")
    else()
      string(REPLACE ";" "" expected "${expectedCpp}")
    endif()
    if(NOT status EQUAL 0 OR NOT output MATCHES "${expected}")
      fail("${build}/${program}.exe exited with ${status}, printing:\n${output}")
    else()
      message(STATUS "${build}/${program}.exe: ok")
    endif()
  endforeach()
endforeach()

# The Microsoft toolchain: clang-cl and lld-link (which reads what link.exe
# reads), through find_package, which has to hand them zenbor.lib.
find_program(CLANG_CL NAMES clang-cl clang-cl-14 PATHS /usr/lib/llvm-14/bin)
find_program(LLD_LINK NAMES lld-link PATHS /usr/lib/llvm-14/bin)
find_program(TRUE_COMMAND true)
if(NOT CLANG_CL OR NOT LLD_LINK OR NOT TRUE_COMMAND)
  message(STATUS "clang-cl or lld-link is absent: zenbor.lib is not linked with a Microsoft-style linker")
else()
  set(build ${root}/with-microsoft-linker)
  run(${CMAKE_COMMAND} -S ${root}/consumers/Microsoft -B ${build} -DCMAKE_BUILD_TYPE=Release
      -DCMAKE_SYSTEM_NAME=Windows -DCMAKE_C_COMPILER=${CLANG_CL} -DCMAKE_LINKER=${LLD_LINK}
      -DCMAKE_C_COMPILER_TARGET=x86_64-pc-windows-msvc
      # No Microsoft SDK here: no C runtime, system libraries, manifest or
      # resource tools; the program needs none of them.
      -DCMAKE_C_COMPILER_WORKS=ON "-DCMAKE_C_FLAGS=/X -ffreestanding" -DCMAKE_C_STANDARD_LIBRARIES=
      -DCMAKE_MT=${TRUE_COMMAND} -DCMAKE_RC_COMPILER=${TRUE_COMMAND}
      -DCMAKE_PREFIX_PATH=${sdk} -DCMAKE_FIND_PACKAGE_NO_PACKAGE_REGISTRY=ON)
  run(${CMAKE_COMMAND} --build ${build})
  file(READ ${build}/CMakeFiles/consumer-msvc.dir/link.txt linkCommand)
  if(NOT linkCommand MATCHES "${sdkPattern}/lib/zenbor\\.lib")
    fail("the Microsoft toolchain was not given zenbor.lib: ${linkCommand}")
  endif()
  execute_process(COMMAND wine ${build}/consumer-msvc.exe RESULT_VARIABLE status
                  WORKING_DIRECTORY ${root})
  if(NOT status EQUAL 7)
    fail("with-microsoft-linker/consumer-msvc.exe exited with ${status}, not 7")
  else()
    message(STATUS "with-microsoft-linker/consumer-msvc.exe: ok")
  endif()
endif()

if(failed)
  message(STATUS "kept ${root}")
else()
  file(REMOVE_RECURSE ${root})
endif()
