# `cmake --install`: the shared library with its soname, the public headers
# under include/VarnelUtils/, a CMake package (VarnelUtils::VarnelUtils), a
# pkg-config file, the varnel tool and its manual pages, and docs/.
#
# A header is public when it sits directly in a subsystem folder, lib/<name>/;
# headers under lib/<name>/internal/ stay private (a public header never
# includes one). New subsystem folders and headers are picked up without
# editing this file.
include(CMakePackageConfigHelpers)

set(VARNEL_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/VarnelUtils)
set(VARNEL_INSTALL_PKGCONFIGDIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

file(GLOB VARNEL_PUBLIC_HEADERS CONFIGURE_DEPENDS RELATIVE ${PROJECT_SOURCE_DIR}/lib
     ${PROJECT_SOURCE_DIR}/lib/*/*.h)
foreach(header ${VARNEL_PUBLIC_HEADERS})
  get_filename_component(subdir ${header} DIRECTORY)
  install(FILES lib/${header} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/VarnelUtils/${subdir}
          COMPONENT Development)
endforeach()

install(TARGETS VarnelUtils EXPORT VarnelUtilsTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT Runtime NAMELINK_COMPONENT Development)
install(EXPORT VarnelUtilsTargets NAMESPACE VarnelUtils:: DESTINATION ${VARNEL_INSTALL_CMAKEDIR}
        COMPONENT Development)
configure_package_config_file(cmake/VarnelUtilsConfig.cmake.in
  ${PROJECT_BINARY_DIR}/VarnelUtilsConfig.cmake INSTALL_DESTINATION ${VARNEL_INSTALL_CMAKEDIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/VarnelUtilsConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/VarnelUtilsConfig.cmake
              ${PROJECT_BINARY_DIR}/VarnelUtilsConfigVersion.cmake
        DESTINATION ${VARNEL_INSTALL_CMAKEDIR} COMPONENT Development)

# The .pc file finds its prefix from where it lies, so that an installation
# moved with `cmake --install --prefix` or DESTDIR still works.
file(RELATIVE_PATH VARNEL_PC_TO_PREFIX
     ${CMAKE_INSTALL_PREFIX}/${VARNEL_INSTALL_PKGCONFIGDIR} ${CMAKE_INSTALL_PREFIX})
configure_file(cmake/VarnelUtils.pc.in ${PROJECT_BINARY_DIR}/VarnelUtils.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/VarnelUtils.pc DESTINATION ${VARNEL_INSTALL_PKGCONFIGDIR}
        COMPONENT Development)

# Outside the system's own prefix the tool finds the library beside it.
if(NOT CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  set_target_properties(varnel PROPERTIES INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
endif()
install(TARGETS varnel RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT Tool)

install(DIRECTORY docs/ DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT Documentation)

include(cmake/VarnelManPages.cmake)
