# Installs the build into a scratch prefix and checks that the program, its desktop entry and its
# icons land in the usual places. Run with -DBUILD_DIR=... -DPREFIX=...
file(REMOVE_RECURSE "${PREFIX}")
execute_process(COMMAND "${CMAKE_COMMAND}" --install "${BUILD_DIR}" --prefix "${PREFIX}"
                RESULT_VARIABLE result OUTPUT_QUIET)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "cmake --install failed: ${result}")
endif()
set(expected
  bin/lorvane
  share/applications/lorvane.desktop
  share/icons/hicolor/scalable/apps/lorvane.svg
  share/icons/hicolor/48x48/apps/lorvane.png
  share/icons/hicolor/256x256/apps/lorvane.png
  share/icons/hicolor/22x22/status/lorvane-waveform.png)
foreach(path ${expected})
  if(NOT EXISTS "${PREFIX}/${path}")
    message(FATAL_ERROR "missing after install: ${path}")
  endif()
endforeach()
if(NOT IS_DIRECTORY "${PREFIX}/bin" OR IS_DIRECTORY "${PREFIX}/bin/lorvane")
  message(FATAL_ERROR "bin/lorvane is not a program")
endif()
file(READ "${PREFIX}/share/applications/lorvane.desktop" entry)
foreach(line "[Desktop Entry]" "Type=Application" "Name=Lorvane" "Exec=lorvane" "Icon=lorvane")
  string(FIND "${entry}" "${line}\n" at)
  if(at EQUAL -1)
    message(FATAL_ERROR "the desktop entry lacks '${line}'")
  endif()
endforeach()
file(REMOVE_RECURSE "${PREFIX}")
