# Installs the build into a scratch prefix, checks that everything lands in the usual places under
# the one application id, and runs the desktop's own validators on what was installed.
# Run with -DBUILD_DIR=... -DPREFIX=... -DAPP_ID=... -DVERSION=...
file(REMOVE_RECURSE "${PREFIX}")
execute_process(COMMAND "${CMAKE_COMMAND}" --install "${BUILD_DIR}" --prefix "${PREFIX}"
                RESULT_VARIABLE result OUTPUT_QUIET)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "cmake --install failed: ${result}")
endif()
set(entry_path share/applications/${APP_ID}.desktop)
set(metainfo_path share/metainfo/${APP_ID}.metainfo.xml)
set(expected
  bin/lorvane
  bin/lorvane-analyze
  bin/lorvane-wave-demo
  ${entry_path}
  ${metainfo_path}
  share/icons/hicolor/scalable/apps/${APP_ID}.svg
  share/icons/hicolor/symbolic/apps/${APP_ID}-symbolic.svg
  share/man/man1/lorvane.1.gz
  share/man/man1/lorvane-analyze.1.gz
  share/man/man1/lorvane-wave-demo.1.gz
  share/doc/lorvane/COPYING
  share/doc/lorvane/copyright
  share/doc/lorvane/changelog.gz)
foreach(path ${expected})
  if(NOT EXISTS "${PREFIX}/${path}")
    message(FATAL_ERROR "missing after install: ${path}")
  endif()
endforeach()
# Nothing left over under the old names or from the painted icons.
file(GLOB_RECURSE stray RELATIVE "${PREFIX}" "${PREFIX}/share/*lorvane.desktop" "${PREFIX}/share/icons/*.png")
if(stray)
  message(FATAL_ERROR "left over after install: ${stray}")
endif()
if(NOT IS_DIRECTORY "${PREFIX}/bin" OR IS_DIRECTORY "${PREFIX}/bin/lorvane")
  message(FATAL_ERROR "bin/lorvane is not a program")
endif()
file(READ "${PREFIX}/${entry_path}" entry)
foreach(line "[Desktop Entry]" "Type=Application" "Name=Lorvane" "Exec=lorvane" "Icon=${APP_ID}")
  string(FIND "${entry}" "${line}\n" at)
  if(at EQUAL -1)
    message(FATAL_ERROR "the desktop entry lacks '${line}'")
  endif()
endforeach()
file(READ "${PREFIX}/${metainfo_path}" metainfo)
foreach(part "<id>${APP_ID}</id>" "<launchable type=\"desktop-id\">${APP_ID}.desktop</launchable>"
             "<binary>lorvane</binary>" "<release version=\"${VERSION}\"")
  string(FIND "${metainfo}" "${part}" at)
  if(at EQUAL -1)
    message(FATAL_ERROR "the metainfo lacks '${part}'")
  endif()
endforeach()

if(VALIDATE)
  find_program(desktop_file_validate desktop-file-validate)
  find_program(appstreamcli appstreamcli)
  if(NOT desktop_file_validate OR NOT appstreamcli)
    file(REMOVE_RECURSE "${PREFIX}")
    message(STATUS "SKIPPED: desktop-file-validate or appstreamcli is missing (scripts/install-deps.sh test installs them)")
    return()
  endif()
  execute_process(COMMAND "${desktop_file_validate}" "${PREFIX}/${entry_path}"
                  RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_VARIABLE out)
  # It prints hints too; any output at all is something to fix.
  if(NOT result EQUAL 0 OR NOT out STREQUAL "")
    message(FATAL_ERROR "desktop-file-validate: ${result}\n${out}")
  endif()
  execute_process(COMMAND "${appstreamcli}" validate --no-net --no-color "${PREFIX}/${metainfo_path}"
                  RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_VARIABLE out)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "appstreamcli validate: ${result}\n${out}")
  endif()
  message(STATUS "${out}")
endif()
file(REMOVE_RECURSE "${PREFIX}")
