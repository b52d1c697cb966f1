# The Debian package: `cpack -G DEB` in the build folder writes ombry-voice_{version}_{arch}.deb
# with the program, its menu entry, icons, AppStream metadata and manual page. Its library
# dependencies are read from the binary (dpkg-shlibdeps); the tools it calls at run time are
# named here.
include(GNUInstallDirs)
install(FILES ${PROJECT_SOURCE_DIR}/data/com.quennard.ombryvoice.metainfo.xml
        DESTINATION ${CMAKE_INSTALL_DATADIR}/metainfo)
# Debian wants the copyright and a compressed changelog beside every package's documents.
set(ombry_changelog ${CMAKE_BINARY_DIR}/changelog.gz)
add_custom_command(
    OUTPUT ${ombry_changelog}
    COMMAND gzip -9n -c ${PROJECT_SOURCE_DIR}/data/debian/changelog > ${ombry_changelog}
    DEPENDS ${PROJECT_SOURCE_DIR}/data/debian/changelog
    VERBATIM)
add_custom_target(ombry_changelog ALL DEPENDS ${ombry_changelog})
install(FILES ${PROJECT_SOURCE_DIR}/data/debian/copyright ${ombry_changelog}
        DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/ombry-voice)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME ombry-voice)
set(CPACK_PACKAGE_VENDOR Quennard)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "Ombry Voice <ombry-voice@quennard.com>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "dictation assistant for the desktop, in French")
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
    "Hold a key anywhere, speak and let go: the speech is transcribed, cleaned of
hesitations and false starts, and written at the cursor of the application in
front. It also corrects, translates or reads aloud the selected text, shows
French subtitles of an English call, and records and summarises meetings.

It runs on X11 and Wayland sessions with PulseAudio or PipeWire.")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION sound)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE https://quennard.com/ombry-voice/)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# espeak-ng reads aloud with its voices (espeak-ng-data); the offline recogniser needs the
# English model; the strip's sounds and the microphone need a sound server.
set(CPACK_DEBIAN_PACKAGE_DEPENDS "espeak-ng-data")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "pocketsphinx-en-us, pulseaudio | pipewire-pulse, xdg-desktop-portal")
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "at-spi2-core")
set(CPACK_STRIP_FILES ON)
# Folders the system owns are not the package's.
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
# Only the program's own install rules: not the test programs or the benches.
set(CPACK_INSTALL_CMAKE_PROJECTS "${CMAKE_BINARY_DIR};${PROJECT_NAME};ALL;/")
include(CPack)
