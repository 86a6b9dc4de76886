# Installs the exported targets and the ZuvoPlay package configuration so a
# host application can find_package(ZuvoPlay) and link Zuvo::api_play.
include(CMakePackageConfigHelpers)

set(ZUVO_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/ZuvoPlay)

install(EXPORT ZuvoPlayTargets NAMESPACE Zuvo:: DESTINATION ${ZUVO_CMAKE_DIR})
# The package configuration looks GStreamer up only when the service on it is built.
if(TARGET zuvo_gst_streamer)
  set(ZUVO_GSTREAMER_FOUND 1)
else()
  set(ZUVO_GSTREAMER_FOUND 0)
endif()
configure_package_config_file(
  ${CMAKE_CURRENT_SOURCE_DIR}/cmake/ZuvoPlayConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/ZuvoPlayConfig.cmake
  INSTALL_DESTINATION ${ZUVO_CMAKE_DIR})
write_basic_package_version_file(
  ${CMAKE_CURRENT_BINARY_DIR}/ZuvoPlayConfigVersion.cmake
  VERSION ${PROJECT_VERSION}
  COMPATIBILITY SameMinorVersion)
install(FILES
  ${CMAKE_CURRENT_BINARY_DIR}/ZuvoPlayConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/ZuvoPlayConfigVersion.cmake
  DESTINATION ${ZUVO_CMAKE_DIR})

# zuvoplay.pc: the play library with everything it needs, for pkg-config users
# (one .pc per library is installed beside it by zuvo_library()).
zuvo_pkgconfig(zuvoplay DESCRIPTION "Play logic of a networked audio streamer" REQUIRES Zuvo::api_play)
