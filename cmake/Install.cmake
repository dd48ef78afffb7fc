# What "cmake --install" puts where: the program, both libraries, the headers that users of them include, the shipped
# effects, and the package that find_package(QxFxResources) finds.

include(CMakePackageConfigHelpers)

set(QX_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/QxFxResources)
set(QX_HEADER_DIR ${CMAKE_INSTALL_INCLUDEDIR}/qx)

install(TARGETS qx_platform QxFxResources QxHost EXPORT QxFxResourcesTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(TARGETS qxhost RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
# The host starts it; nobody else does.
install(TARGETS qxfxc RUNTIME DESTINATION ${CMAKE_INSTALL_LIBEXECDIR}/qx)

install(DIRECTORY ${PROJECT_SOURCE_DIR}/Qx ${PROJECT_SOURCE_DIR}/platform DESTINATION ${QX_HEADER_DIR}
    FILES_MATCHING PATTERN "*.h")
install(FILES
    ${PROJECT_SOURCE_DIR}/QxFxResources/GPUColourConverter.h
    ${PROJECT_SOURCE_DIR}/QxFxResources/Manager.h
    ${PROJECT_SOURCE_DIR}/QxFxResources/ShaderEffectInfo.h
    DESTINATION ${QX_HEADER_DIR}/QxFxResources)
install(FILES ${PROJECT_SOURCE_DIR}/image/TechniqueApplication.h DESTINATION ${QX_HEADER_DIR}/image)
install(FILES ${PROJECT_SOURCE_DIR}/gputests/GPUTests.h DESTINATION ${QX_HEADER_DIR}/gputests)
install(FILES ${PROJECT_SOURCE_DIR}/host/Host.h DESTINATION ${QX_HEADER_DIR}/host)
install(FILES ${PROJECT_SOURCE_DIR}/host/diagnostics/TestRecorder.h DESTINATION ${QX_HEADER_DIR}/host/diagnostics)
install(FILES ${PROJECT_SOURCE_DIR}/host/gpu/GPUOptions.h ${PROJECT_SOURCE_DIR}/host/gpu/GPUService.h
    DESTINATION ${QX_HEADER_DIR}/host/gpu)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/shaders/ DESTINATION ${CMAKE_INSTALL_DATADIR}/qx/shaders PATTERN README.md EXCLUDE)

install(EXPORT QxFxResourcesTargets NAMESPACE QxFxResources:: DESTINATION ${QX_PACKAGE_DIR})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/QxFxResourcesConfig.cmake.in
    ${PROJECT_BINARY_DIR}/QxFxResourcesConfig.cmake INSTALL_DESTINATION ${QX_PACKAGE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/QxFxResourcesConfigVersion.cmake
    COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/QxFxResourcesConfig.cmake
    ${PROJECT_BINARY_DIR}/QxFxResourcesConfigVersion.cmake DESTINATION ${QX_PACKAGE_DIR})
