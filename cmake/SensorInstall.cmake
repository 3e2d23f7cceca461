# Installing libsensor.so as a camera's firmware integrates it:
#   lib/libsensor.so.1.0.0 (SONAME libsensor.so.1) and its links,
#   include/sensor/: ISensorController.h, the key names (SensorKeys.h) and
#     every header they include, with
#     the host interfaces a host process implements (host/*.h),
#   lib/pkgconfig/sensor.pc, lib/cmake/sensor/ (find_package(sensor) gives
#     sensor::sensor).
# The simulated host (libsensorsim.so) is not installed: it stands in for a
# camera's host process on a PC and stays in the build tree with sensorctl.
include(CMakePackageConfigHelpers)

set(SENSOR_INSTALL_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/sensor)
set(SENSOR_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/sensor)

# The library and its public header file set (CMakeLists.txt names it), in
# the tree's layout under include/sensor.
install(TARGETS sensor EXPORT sensorTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  FILE_SET HEADERS DESTINATION ${SENSOR_INSTALL_INCLUDEDIR})

install(EXPORT sensorTargets NAMESPACE sensor:: DESTINATION ${SENSOR_INSTALL_CMAKEDIR})
configure_package_config_file(cmake/sensorConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/sensorConfig.cmake
  INSTALL_DESTINATION ${SENSOR_INSTALL_CMAKEDIR})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/sensorConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/sensorConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/sensorConfigVersion.cmake
  DESTINATION ${SENSOR_INSTALL_CMAKEDIR})

# pkg-config finds the prefix from the file's own place, so the tree may be
# installed under any prefix (cmake --install --prefix) or moved.
file(RELATIVE_PATH SENSOR_PC_TO_PREFIX
  /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
string(REGEX REPLACE "/$" "" SENSOR_PC_TO_PREFIX "${SENSOR_PC_TO_PREFIX}")
configure_file(cmake/sensor.pc.in ${CMAKE_CURRENT_BINARY_DIR}/sensor.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/sensor.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
