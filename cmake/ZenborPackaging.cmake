# The SDK: what `cmake --install` lays out and `cpack` zips.
#
#   bin/zenbor.dll                 the library; its C++ runtime is linked in
#   lib/libzenbor.dll.a            import library for the GNU toolchains
#   lib/zenbor.lib, zenbor.def     import library for the Microsoft linker,
#                                  made from the exported declarations
#   include/Zenbor/*.h             #include <Zenbor/Zenbor.h>
#   lib/cmake/Zenbor/              find_package(Zenbor), target Zenbor::zenbor
#   lib/pkgconfig/zenbor.pc        pkg-config --cflags --libs zenbor
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(ZB_CMAKE_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/Zenbor)

# The module-definition file lists the ZB_EXPORT declarations; dlltool turns
# it into an import library in the format the Microsoft linker reads.
file(GLOB zbPublicHeaders CONFIGURE_DEPENDS ${ZB_HEADERS_DIR}/*.h)
set(ZB_MODULE_DEFINITION ${CMAKE_BINARY_DIR}/lib/zenbor.def)
set(ZB_MSVC_IMPORT_LIBRARY ${CMAKE_BINARY_DIR}/lib/zenbor.lib)
add_custom_command(OUTPUT ${ZB_MODULE_DEFINITION}
  COMMAND ${CMAKE_COMMAND} -DHEADERS=${ZB_HEADERS_DIR} -DOUTPUT=${ZB_MODULE_DEFINITION}
          -P ${CMAKE_CURRENT_LIST_DIR}/WriteModuleDefinition.cmake
  DEPENDS ${zbPublicHeaders} ${CMAKE_CURRENT_LIST_DIR}/WriteModuleDefinition.cmake
          ${CMAKE_CURRENT_LIST_DIR}/ZenborExports.cmake
  COMMENT "Writing zenbor.def from the public headers")
# dlltool names the library's internal symbols after the output path it is
# given, so it runs beside the file: no build path ends up in the SDK.
add_custom_command(OUTPUT ${ZB_MSVC_IMPORT_LIBRARY}
  COMMAND ${CMAKE_DLLTOOL} --machine i386:x86-64 --input-def zenbor.def
          --dllname zenbor.dll --output-lib zenbor.lib
  WORKING_DIRECTORY ${CMAKE_BINARY_DIR}/lib
  DEPENDS ${ZB_MODULE_DEFINITION}
  COMMENT "Making zenbor.lib for the Microsoft linker")
add_custom_target(zenbor_msvc_import_library ALL DEPENDS ${ZB_MSVC_IMPORT_LIBRARY})

install(TARGETS zenbor EXPORT ZenborTargets
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(FILES ${ZB_MSVC_IMPORT_LIBRARY} ${ZB_MODULE_DEFINITION}
  DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY ${ZB_HEADERS_DIR}/ ${ZB_GENERATED_HEADERS_DIR}/
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/Zenbor
  FILES_MATCHING PATTERN "*.h")

install(EXPORT ZenborTargets NAMESPACE Zenbor:: DESTINATION ${ZB_CMAKE_PACKAGE_DIR})
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/ZenborConfig.cmake.in
  ${CMAKE_BINARY_DIR}/ZenborConfig.cmake INSTALL_DESTINATION ${ZB_CMAKE_PACKAGE_DIR})
# Before 1.0 a minor version may break the interface, so only the same
# major.minor (and a patch at least as new) satisfies a request.
write_basic_package_version_file(${CMAKE_BINARY_DIR}/ZenborConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
configure_file(${CMAKE_CURRENT_LIST_DIR}/zenbor.pc.in ${CMAKE_BINARY_DIR}/zenbor.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/ZenborConfig.cmake ${CMAKE_BINARY_DIR}/ZenborConfigVersion.cmake
  DESTINATION ${ZB_CMAKE_PACKAGE_DIR})
install(FILES ${CMAKE_BINARY_DIR}/zenbor.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# The release artifact: Zenbor-<version>-win64.zip, the SDK above in one
# top-level folder of the same name. Debug information stays in the build.
set(CPACK_GENERATOR ZIP)
set(CPACK_PACKAGE_NAME Zenbor)
set(CPACK_PACKAGE_VENDOR Zenbor)
set(CPACK_PACKAGE_FILE_NAME Zenbor-${PROJECT_VERSION}-win64)
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/package)
include(CPack)
