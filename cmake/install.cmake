# What `make install` puts below the prefix, and what the Windows zip holds.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

# Headers stand in a folder of their own, which is on the consumer's include path: <tavrix32.h>,
# "quern/cfile.h".
set(headers ${CMAKE_INSTALL_INCLUDEDIR}/tavrix)
target_include_directories(Tavrix32 INTERFACE $<INSTALL_INTERFACE:${headers}>)
target_include_directories(quern INTERFACE $<INSTALL_INTERFACE:${headers}>)
install(FILES exports/tavrix32.h DESTINATION ${headers})
install(FILES platform/openfilename.h platform/win32.h DESTINATION ${headers}/platform)
install(DIRECTORY quern DESTINATION ${headers} FILES_MATCHING PATTERN "*.h"
  # Headers behind the headers.
  PATTERN "search_*.h" EXCLUDE PATTERN "texts.h" EXCLUDE PATTERN "form.h" EXCLUDE
  PATTERN "backup.h" EXCLUDE)

install(TARGETS Tavrix32 quern EXPORT TavrixTargets)
install(TARGETS tavrix)

# Programs and the shared library are shipped without symbols. What a debugger needs lies beside
# them, in a folder .debug, where it looks by itself.
foreach(target Tavrix32 tavrix)
  set(folder ${CMAKE_INSTALL_BINDIR})
  if(target STREQUAL Tavrix32 AND NOT WIN32)
    set(folder ${CMAKE_INSTALL_LIBDIR})
  endif()
  install(CODE "
    set(folder \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${folder}\")
    set(name $<TARGET_FILE_NAME:${target}>)
    file(MAKE_DIRECTORY \"\${folder}/.debug\")
    foreach(step \"--only-keep-debug;\${name};.debug/\${name}.debug\" \"--strip-all;\${name}\"
        \"--add-gnu-debuglink=.debug/\${name}.debug;\${name}\")
      execute_process(COMMAND \"${CMAKE_OBJCOPY}\" \${step} WORKING_DIRECTORY \"\${folder}\"
        COMMAND_ERROR_IS_FATAL ANY)
    endforeach()")
endforeach()

set(package ${CMAKE_INSTALL_LIBDIR}/cmake/Tavrix)
install(EXPORT TavrixTargets NAMESPACE Tavrix:: DESTINATION ${package})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/TavrixConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
file(WRITE ${PROJECT_BINARY_DIR}/TavrixConfig.cmake
  "include(\"\${CMAKE_CURRENT_LIST_DIR}/TavrixTargets.cmake\")\n")
install(FILES ${PROJECT_BINARY_DIR}/TavrixConfig.cmake
  ${PROJECT_BINARY_DIR}/TavrixConfigVersion.cmake DESTINATION ${package})

if(WIN32)
  install(FILES examples/vb/Tavrix32.bas README.md LICENSE DESTINATION .)
else()
  foreach(module tavrix32 quern)
    configure_file(cmake/${module}.pc.in ${PROJECT_BINARY_DIR}/${module}.pc @ONLY)
    install(FILES ${PROJECT_BINARY_DIR}/${module}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
  endforeach()
  install(FILES docs/tavrix.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
endif()
