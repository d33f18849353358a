# The Debian package: cpack -G DEB in the build folder.
set(CPACK_PACKAGE_NAME waveplay)
set(CPACK_PACKAGE_CONTACT "waveplay maintainers <waveplay@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "playback server of a wave editor and its player for terminals")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION sound)
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
"Plays and renders sound files on a terminal, forward and in reverse, through
the playback server that comes with it. Editors drive the same server through
libPlayDllClient or over the session bus.")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_BINARY_DIR}/bin)
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "pipewire-alsa | libasound2-plugins")
include(CPack)
