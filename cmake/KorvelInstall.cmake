# What `cmake --install` leaves: the shared library, the public headers, and the files by which CMake
# and pkg-config find them. The tool installs itself.

include(CMakePackageConfigHelpers)

set(KORVEL_PACKAGE_DIR "${CMAKE_INSTALL_LIBDIR}/cmake/KorvelWavedata")

install(TARGETS korvel_wavedata EXPORT KorvelWavedataTargets
    LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}")
install(DIRECTORY "${PROJECT_SOURCE_DIR}/include/" DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}")

install(EXPORT KorvelWavedataTargets
    FILE KorvelWavedataTargets.cmake
    NAMESPACE Korvel::
    DESTINATION "${KORVEL_PACKAGE_DIR}")
configure_package_config_file("${PROJECT_SOURCE_DIR}/cmake/KorvelWavedataConfig.cmake.in"
    "${PROJECT_BINARY_DIR}/KorvelWavedataConfig.cmake"
    INSTALL_DESTINATION "${KORVEL_PACKAGE_DIR}")
write_basic_package_version_file("${PROJECT_BINARY_DIR}/KorvelWavedataConfigVersion.cmake"
    COMPATIBILITY SameMajorVersion)
install(FILES
    "${PROJECT_BINARY_DIR}/KorvelWavedataConfig.cmake"
    "${PROJECT_BINARY_DIR}/KorvelWavedataConfigVersion.cmake"
    DESTINATION "${KORVEL_PACKAGE_DIR}")

# Told from where the file lies, so that it stays true for any prefix given when installing.
file(RELATIVE_PATH KORVEL_PREFIX_FROM_PC "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
configure_file("${PROJECT_SOURCE_DIR}/cmake/korvel-wavedata.pc.in"
    "${PROJECT_BINARY_DIR}/korvel-wavedata.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/korvel-wavedata.pc"
    DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
