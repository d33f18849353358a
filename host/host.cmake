# The wire, the server's program, the editor's proxy library, and what is installed.

file(GLOB WireSources CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/host/wire/*.cpp)
target_sources(host PRIVATE ${WireSources})
target_link_libraries(host PUBLIC PkgConfig::SdBus)

file(GLOB ProgramSources CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/host/program/*.cpp)
add_executable(TolvarWaveEditorDll ${ProgramSources})
target_link_libraries(TolvarWaveEditorDll PRIVATE host CLI11::CLI11)
add_dependencies(TolvarWaveEditorDll SondervalService2)

# An editor links the proxy alone: it brings the wire with it and nothing of the player.
file(GLOB ClientSources CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/host/client/*.cpp)
add_library(PlayDllClient SHARED ${ClientSources} ${WireSources} ${CMAKE_SOURCE_DIR}/platform/Posix.cpp)
target_include_directories(PlayDllClient PRIVATE ${CMAKE_SOURCE_DIR}
                           INTERFACE $<BUILD_INTERFACE:${CMAKE_SOURCE_DIR}/host/client>
                                     $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
target_link_libraries(PlayDllClient PRIVATE PkgConfig::SdBus ${CMAKE_DL_LIBS})
set_target_properties(PlayDllClient PROPERTIES
    CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON
    VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})

# The server lies in a folder of its own with the libraries that it loads.
set(ServerFolder ${CMAKE_INSTALL_LIBEXECDIR}/tolvar)
file(RELATIVE_PATH ServerFromLibrary ${CMAKE_INSTALL_FULL_LIBDIR}
     ${CMAKE_INSTALL_FULL_LIBEXECDIR}/tolvar/TolvarWaveEditorDll)
target_compile_definitions(PlayDllClient
                           PRIVATE TOLVAR_SERVER_FROM_LIBRARY="${ServerFromLibrary}")

set_target_properties(TolvarWaveEditorDll platform SondervalService2 PROPERTIES
                      INSTALL_RPATH "$ORIGIN")
install(TARGETS TolvarWaveEditorDll platform SondervalService2
        RUNTIME DESTINATION ${ServerFolder} LIBRARY DESTINATION ${ServerFolder})
install(TARGETS PlayDllClient EXPORT PlayDllClient LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(FILES host/client/PlayDllClient.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

# For find_package(PlayDllClient).
include(CMakePackageConfigHelpers)
set(PackageFolder ${CMAKE_INSTALL_LIBDIR}/cmake/PlayDllClient)
write_basic_package_version_file(${CMAKE_BINARY_DIR}/PlayDllClientConfigVersion.cmake
                                 COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_BINARY_DIR}/PlayDllClientConfigVersion.cmake DESTINATION ${PackageFolder})
install(EXPORT PlayDllClient FILE PlayDllClientConfig.cmake NAMESPACE Tolvar::
        DESTINATION ${PackageFolder})

# These name where they are installed, which is known only then.
function(tolvar_install_configured Source Folder)
    cmake_path(GET Source STEM LAST_ONLY Name)
    install(CODE "
        set(LIBDIR \"${CMAKE_INSTALL_LIBDIR}\")
        set(INCLUDEDIR \"${CMAKE_INSTALL_INCLUDEDIR}\")
        set(VERSION \"${PROJECT_VERSION}\")
        set(SERVER \"\${CMAKE_INSTALL_PREFIX}/${ServerFolder}/TolvarWaveEditorDll\")
        message(STATUS \"Installing: \${CMAKE_INSTALL_PREFIX}/${Folder}/${Name}\")
        configure_file(\"${CMAKE_SOURCE_DIR}/host/install/${Source}\"
                       \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${Folder}/${Name}\" @ONLY)")
endfunction()
tolvar_install_configured(PlayDllClient.pc.in ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
tolvar_install_configured(org.tolvar.WaveEditor.service.in ${CMAKE_INSTALL_DATADIR}/dbus-1/services)
tolvar_install_configured(tolvar-wave-editor.service.in lib/systemd/user)
