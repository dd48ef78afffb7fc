# What "cmake --install" puts where: the program, both libraries, a header for everything that these export, the shipped
# effects, and what find_package(QxFxResources) and pkg-config find.
#
# Each component becomes a package: see Packages.cmake.

include(CMakePackageConfigHelpers)

set(QX_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/QxFxResources)
set(QX_HEADER_DIR ${CMAKE_INSTALL_INCLUDEDIR}/qx)

install(TARGETS qx_platform QxFxResources EXPORT QxFxResourcesTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library NAMELINK_COMPONENT development)
install(TARGETS QxHostGPU QxHostSurfaces QxHost EXPORT QxFxResourcesTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT host NAMELINK_COMPONENT development)
install(TARGETS qxhost RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT program)
install(FILES ${PROJECT_BINARY_DIR}/reference/qxhost.1.gz
    DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT program)
install(FILES ${PROJECT_BINARY_DIR}/reference/qxhost.bash
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME qxhost COMPONENT program)
install(FILES ${PROJECT_BINARY_DIR}/reference/qxhost.zsh
    DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions RENAME _qxhost COMPONENT program)
install(FILES ${PROJECT_BINARY_DIR}/reference/qxhost.fish
    DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d COMPONENT program)
# What users read, without what only developers do.
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs/ DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/qxhost COMPONENT program
    PATTERN api-reference EXCLUDE PATTERN decisions.md EXCLUDE PATTERN development.md EXCLUDE PATTERN mutation.md EXCLUDE)
install(FILES ${PROJECT_SOURCE_DIR}/shaders/README.md DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/qxhost
    RENAME shipped-effects.md COMPONENT program)
install(CODE "set(pages \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_DATADIR}/doc/qxhost\")" COMPONENT program)
install(SCRIPT cmake/InstalledPages.cmake COMPONENT program)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/examples DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/libqxfxresources-dev
    COMPONENT development)
# The host starts it; nobody else does.
install(TARGETS qxfxc RUNTIME DESTINATION ${CMAKE_INSTALL_LIBEXECDIR}/qx COMPONENT program)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/shaders/ DESTINATION ${CMAKE_INSTALL_DATADIR}/qx/shaders COMPONENT program
    PATTERN README.md EXCLUDE)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/tools/qxhost/presets/ DESTINATION ${CMAKE_INSTALL_DATADIR}/qx/presets
    COMPONENT program)

# A test compiles each of these alone against an installation, and compares what they declare with what is exported.
file(GLOB headers RELATIVE ${PROJECT_SOURCE_DIR} CONFIGURE_DEPENDS
    ${PROJECT_SOURCE_DIR}/Qx/*.h ${PROJECT_SOURCE_DIR}/platform/*.h)
list(APPEND headers
    QxFxResources/GPUColourConverter.h
    QxFxResources/Manager.h
    QxFxResources/ShaderEffectInfo.h
    fonts/Cache.h
    fonts/GPUFontCache.h
    gputests/GPUTests.h
    image/SurfaceUtilities.h
    image/TechniqueApplication.h
    lut/LUTManager.h
    host/Host.h
    host/cache/Sha256.h
    host/diagnostics/TestRecorder.h
    host/effects/CompiledEffect.h
    host/effects/EffectCompilation.h
    host/effects/framework/Diagnostic.h
    host/effects/framework/EffectInput.h
    host/effects/framework/ParameterRange.h
    host/fonts/TextPainter.h
    host/gpu/DeviceSharing.h
    host/gpu/GPUOptions.h
    host/gpu/GPUService.h
    host/gpu/scopes/Scopes.h
    host/luts/ColourDecision.h
    host/luts/ColourSpaces.h
    host/luts/LUTReader.h
    host/luts/LUTSteps.h
    host/settings/Directories.h
    host/surfaces/FormatTable.h
    host/surfaces/RowGeometry.h)
include(cmake/ApiReference.cmake) # describes the same headers
foreach(header IN LISTS headers)
    cmake_path(GET header PARENT_PATH folder)
    install(FILES ${PROJECT_SOURCE_DIR}/${header} DESTINATION ${QX_HEADER_DIR}/${folder} COMPONENT development)
endforeach()
install(FILES ${PROJECT_BINARY_DIR}/generated/Qx/Version.h DESTINATION ${QX_HEADER_DIR}/Qx COMPONENT development)

# The component HostTests of the package: in a file of its own, since it needs GoogleTest.
if(QX_HOST_TESTS)
    install(TARGETS QxHostTests EXPORT QxFxResourcesHostTestsTargets
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
    install(DIRECTORY ${PROJECT_SOURCE_DIR}/tests/hosts/include/hosttests DESTINATION ${QX_HEADER_DIR}
        COMPONENT development)
    install(EXPORT QxFxResourcesHostTestsTargets NAMESPACE QxFxResources:: DESTINATION ${QX_PACKAGE_DIR}
        COMPONENT development)
endif()

install(EXPORT QxFxResourcesTargets NAMESPACE QxFxResources:: DESTINATION ${QX_PACKAGE_DIR} COMPONENT development)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/QxFxResourcesConfig.cmake.in
    ${PROJECT_BINARY_DIR}/QxFxResourcesConfig.cmake INSTALL_DESTINATION ${QX_PACKAGE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/QxFxResourcesConfigVersion.cmake
    COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/QxFxResourcesConfig.cmake
    ${PROJECT_BINARY_DIR}/QxFxResourcesConfigVersion.cmake DESTINATION ${QX_PACKAGE_DIR} COMPONENT development)

# The paths in these files begin at the files themselves, so that an installation can be moved.
set(pkgconfig_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH QX_PKGCONFIG_TO_PREFIX ${CMAKE_INSTALL_PREFIX}/${pkgconfig_dir} ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" QX_PKGCONFIG_TO_PREFIX "${QX_PKGCONFIG_TO_PREFIX}")
foreach(package qxfxresources qxhost qxhostgpu qxhostsurfaces)
    configure_file(${PROJECT_SOURCE_DIR}/cmake/${package}.pc.in ${PROJECT_BINARY_DIR}/${package}.pc @ONLY)
    install(FILES ${PROJECT_BINARY_DIR}/${package}.pc DESTINATION ${pkgconfig_dir} COMPONENT development)
endforeach()
