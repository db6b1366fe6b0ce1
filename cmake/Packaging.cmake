# Manual pages, the Debian copyright and changelog, and the .deb (`cpack -G DEB` in the build directory).

find_program(LORVANE_GZIP gzip REQUIRED)
set(lorvane_packaged_docs)
# Compressed the way Debian expects them; -n keeps the files the same from build to build.
function(lorvane_gzip source output)
  add_custom_command(OUTPUT ${output}
    COMMAND ${LORVANE_GZIP} -n -9 -c ${source} > ${output}
    DEPENDS ${source}
    COMMENT "Compressing ${output}")
  set(lorvane_packaged_docs ${lorvane_packaged_docs} ${output} PARENT_SCOPE)
endfunction()

set(lorvane_doc_build ${PROJECT_BINARY_DIR}/packaging)
file(MAKE_DIRECTORY ${lorvane_doc_build})
foreach(page lorvane lorvane-analyze lorvane-wave-demo)
  lorvane_gzip(${PROJECT_SOURCE_DIR}/data/man/${page}.1 ${lorvane_doc_build}/${page}.1.gz)
  install(FILES ${lorvane_doc_build}/${page}.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
endforeach()
lorvane_gzip(${PROJECT_SOURCE_DIR}/data/debian/changelog ${lorvane_doc_build}/changelog.gz)
add_custom_target(lorvane_packaged_docs ALL DEPENDS ${lorvane_packaged_docs})

set(LORVANE_DOC_DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/lorvane)
install(FILES ${PROJECT_SOURCE_DIR}/data/debian/copyright ${lorvane_doc_build}/changelog.gz
        DESTINATION ${LORVANE_DOC_DESTINATION})

set(CPACK_PACKAGE_NAME lorvane)
set(CPACK_PACKAGE_VENDOR Tarnhollow)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "Tarnhollow <lorvane@tarnhollow.com>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "animated audio wave on the desktop while music plays")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_GENERATOR DEB)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION sound)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE "https://github.com/tarnhollow/lorvane")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS OFF)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
# Loaded by Qt at run time, so dpkg-shlibdeps cannot see them: the X11 platform and the SVG icons.
set(CPACK_DEBIAN_PACKAGE_DEPENDS "qt6-qpa-plugins, libqt6svg6")
# The sound server, and Qt's Wayland platform for the native layer-shell overlay.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "pipewire-pulse | pulseaudio, qt6-wayland")
# CPack puts the summary above this as the synopsis line.
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION "Lorvane draws an animated wave on the screen while a music player plays.
The wave follows what the system plays (loudness, spectrum, beats and tempo)
and sits in a click-through band at the top, centre or bottom of the screen,
or fills the screen over a frosted background.
.
It follows Spotify, Apple Music, QQ Music, NetEase Cloud Music and any other
MPRIS player, and lives in the tray. Audio is analysed in memory only.
.
lorvane-analyze and lorvane-wave-demo, two programs for trying the analysis
on recordings, come with it.")
include(CPack)
