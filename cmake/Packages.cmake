# Debian packages, for "cpack" in a build that was configured with QX_DEBIAN_PACKAGES (the preset "packages"): one for each
# component of Install.cmake. docs/packages.md describes them, scripts/release makes and checks them.

set(QX_PACKAGE_MAINTAINER "QxFxResources maintainers <maintainers@qxfxresources.invalid>" CACHE STRING
    "Name and address of whoever answers for the packages")
set(QX_PACKAGE_REVISION 1 CACHE STRING "The packages' revision of this version")

# The release of Debian is part of the version, because what the packages depend on differs.
file(STRINGS /etc/os-release release REGEX "^VERSION_ID=")
string(REGEX REPLACE "[^0-9.]" "" release "${release}")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME qxfxresources)
set(CPACK_PACKAGE_CONTACT "${QX_PACKAGE_MAINTAINER}")
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR})
set(CPACK_OUTPUT_FILE_PREFIX ${PROJECT_BINARY_DIR}/packages)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_COMPONENTS_ALL program library host development)
if(QX_NATIVE)
    list(APPEND CPACK_COMPONENTS_ALL native)
endif()
if(QX_MLT)
    list(APPEND CPACK_COMPONENTS_ALL mlt)
endif()
if(QX_PYTHON)
    list(APPEND CPACK_COMPONENTS_ALL python)
endif()
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE "${QX_PACKAGE_REVISION}~deb${release}")
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "${QX_PACKAGE_MAINTAINER}")
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SOURCE qxfxresources)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # each package has its own, the first line of its description
set(version "${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}")

set(CPACK_DEBIAN_PROGRAM_PACKAGE_NAME qxhost)
set(CPACK_DEBIAN_PROGRAM_PACKAGE_SECTION video)
set(CPACK_COMPONENT_PROGRAM_DEPENDS library host)
set(CPACK_DEBIAN_PROGRAM_PACKAGE_DEPENDS "mesa-vulkan-drivers | vulkan-icd")
set(CPACK_DEBIAN_PROGRAM_PACKAGE_RECOMMENDS "qxhost-native (= ${version})")
set(CPACK_DEBIAN_PROGRAM_DESCRIPTION "converts clips and pictures on the GPU and runs effects on them
The program qxhost converts video between YCbCr and RGB at 8 to 16 bits, each
result the nearest code, between the pixel formats of cameras and capture
cards, and through pixel shaders and look-up tables (LUTs).
.
This package also has the shipped effects, and the process in which effects
are compiled.")

set(CPACK_DEBIAN_NATIVE_PACKAGE_NAME qxhost-native)
set(CPACK_DEBIAN_NATIVE_PACKAGE_SECTION video)
set(CPACK_DEBIAN_NATIVE_PACKAGE_DEPENDS "qxhost (= ${version})")
set(CPACK_DEBIAN_NATIVE_DESCRIPTION "faster effects and conversions without a GPU
A module of qxhost. On a machine without a GPU it has the processors draw by
code of their own, made by LLVM, where that draws the same pictures as the
driver, and about twice as fast or faster. With a GPU it does nothing.")

set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME libqxfxresources${QX_SOVERSION})
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SUGGESTS "libqxhost${QX_SOVERSION}")
set(CPACK_DEBIAN_LIBRARY_DESCRIPTION "GPU image services for video editing
A shared library for editing applications: it catalogues and runs effects,
converts frames between pixel formats, and manages look-up tables (LUTs).
.
The application supplies the GPU and its other services; libqxhost${QX_SOVERSION} does so
with Vulkan.")

set(CPACK_DEBIAN_HOST_PACKAGE_NAME libqxhost${QX_SOVERSION})
set(CPACK_DEBIAN_HOST_PACKAGE_SECTION libs)
# It starts the program's worker process, and the two speak to each other in the words of their version. Without it and
# the shipped effects nothing is converted.
set(CPACK_DEBIAN_HOST_PACKAGE_DEPENDS "qxhost (= ${version})")
set(CPACK_DEBIAN_HOST_PACKAGE_RECOMMENDS "mesa-vulkan-drivers | vulkan-icd")
set(CPACK_DEBIAN_HOST_DESCRIPTION "reference host of QxFxResources, on Vulkan
A shared library that supplies the services that QxFxResources asks of an
application: the GPU, files, tasks, fonts, settings and a log.
.
It takes the shipped effects, with which frames are converted, and the process
in which effects are compiled from the package qxhost.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libqxfxresources-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS library host)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libloki-dev")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_RECOMMENDS "qxhost (= ${version})")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SUGGESTS "libgtest-dev, libvulkan-dev")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "GPU image services for video editing (development files)
Headers of QxFxResources and of its reference host, and what CMake and
pkg-config need to find both.
.
The conformance tests for hosts of one's own need libgtest-dev, and sharing a
Vulkan device of one's own needs libvulkan-dev.")

math(EXPR python_after "${Python3_VERSION_MINOR} + 1")
set(CPACK_DEBIAN_MLT_PACKAGE_NAME mlt-qxfx)
set(CPACK_DEBIAN_MLT_PACKAGE_SECTION video)
set(CPACK_COMPONENT_MLT_DEPENDS library host)
set(CPACK_DEBIAN_MLT_PACKAGE_DEPENDS "qxhost (= ${version})")
set(CPACK_DEBIAN_MLT_PACKAGE_ENHANCES "melt, kdenlive, shotcut, flowblade")
set(CPACK_DEBIAN_MLT_DESCRIPTION "effects of QxFxResources for MLT
A module of the multimedia engine MLT: filters that draw effects, look-up tables
(LUTs) and text on the GPU, and a transition from effects with two inputs.")

set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME python3-qxfx)
set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
set(CPACK_COMPONENT_PYTHON_DEPENDS library host)
set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS
    "qxhost (= ${version}), python3 (>= ${Python3_VERSION_MAJOR}.${Python3_VERSION_MINOR}~), python3 (<< ${Python3_VERSION_MAJOR}.${python_after}~)")
set(CPACK_DEBIAN_PYTHON_PACKAGE_SUGGESTS "python3-numpy")
set(CPACK_DEBIAN_PYTHON_DESCRIPTION "QxFxResources for Python
Takes frames in arrays through effects, look-up tables (LUTs), text and pixel
formats on the GPU. Arrays come and go by the buffer protocol and DLPack.")
# Compiles the package's files for Python, and removes what that left.
set(CPACK_DEBIAN_PYTHON_PACKAGE_CONTROL_EXTRA
    ${PROJECT_SOURCE_DIR}/cmake/packages/python/postinst ${PROJECT_SOURCE_DIR}/cmake/packages/python/prerm)

# What the packages of libraries tell dpkg: to have the linker's cache renewed, and what programs that are linked to them
# depend on. Until 1.0 any version may change the interface without a new soname: see docs/packages.md.
set(control ${PROJECT_BINARY_DIR}/control)
foreach(component LIBRARY HOST)
    set(libraries QxFxResources)
    if(component STREQUAL HOST)
        set(libraries QxHost QxHostGPU QxHostSurfaces)
    endif()
    file(WRITE ${control}/${component}/shlibs "")
    foreach(library IN LISTS libraries)
        file(APPEND ${control}/${component}/shlibs
            "lib${library} ${QX_SOVERSION} ${CPACK_DEBIAN_${component}_PACKAGE_NAME} (= ${version})\n")
    endforeach()
    file(WRITE ${control}/${component}/triggers "activate-noawait ldconfig\n")
    set(CPACK_DEBIAN_${component}_PACKAGE_CONTROL_EXTRA ${control}/${component}/shlibs ${control}/${component}/triggers)
endforeach()

# The date of the sources: of the last commit, or of the files in a source archive, which have it.
set(date $ENV{SOURCE_DATE_EPOCH})
if(NOT date AND EXISTS ${PROJECT_SOURCE_DIR}/.git)
    execute_process(COMMAND git log -1 --format=%ct WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}
        OUTPUT_VARIABLE date OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
elseif(NOT date)
    file(TIMESTAMP ${PROJECT_SOURCE_DIR}/CMakeLists.txt date %s UTC)
endif()
set(ENV{SOURCE_DATE_EPOCH} ${date})
string(TIMESTAMP changelog_date "%a, %d %b %Y %H:%M:%S +0000" UTC)
set(QX_SOURCE_DATE ${date})
configure_file(${PROJECT_SOURCE_DIR}/cmake/packages/CPackProject.cmake.in ${PROJECT_BINARY_DIR}/CPackProject.cmake @ONLY)
set(CPACK_PROJECT_CONFIG_FILE ${PROJECT_BINARY_DIR}/CPackProject.cmake)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/packages/SameDates.cmake)

set(documents ${PROJECT_BINARY_DIR}/documents)
file(MAKE_DIRECTORY ${documents})
file(WRITE ${documents}/changelog.Debian "qxfxresources (${version}) unstable; urgency=medium

  * Version ${PROJECT_VERSION}.

 -- ${QX_PACKAGE_MAINTAINER}  ${changelog_date}
")
execute_process(COMMAND gzip -9nkf ${documents}/changelog.Debian COMMAND_ERROR_IS_FATAL ANY)

# Documents of one component: the changelog, and the notices of the Debian packages whose code is compiled into it.
function(qx_package_documents component)
    string(TOUPPER ${component} name)
    set(name ${CPACK_DEBIAN_${name}_PACKAGE_NAME})
    set(text "QxFxResources ${PROJECT_VERSION}

The owner of QxFxResources has not chosen a licence yet.
")
    if(ARGN)
        string(APPEND text "
The files of this package contain code of the software below. Its notices are
those of the Debian packages that it was taken from.
")
    endif()
    foreach(package IN LISTS ARGN)
        set(file /usr/share/doc/${package}/copyright)
        if(NOT EXISTS ${file})
            message(FATAL_ERROR "${file} is missing: the package's notices cannot be listed without it")
        endif()
        set_property(DIRECTORY ${PROJECT_SOURCE_DIR} APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${file})
        file(READ ${file} notices)
        string(REGEX REPLACE "\n+$" "" notices "${notices}")
        string(REPLACE "\n" "\n    " notices "    ${notices}")
        string(REGEX REPLACE "[ \t]+\n" "\n" notices "${notices}")
        string(APPEND text "\n${package}:\n\n${notices}\n")
    endforeach()
    file(WRITE ${documents}/${name}.copyright "${text}")
    set(folder ${CMAKE_INSTALL_DATADIR}/doc/${name})
    install(FILES ${documents}/${name}.copyright DESTINATION ${folder} RENAME copyright COMPONENT ${component})
    install(FILES ${documents}/changelog.Debian.gz DESTINATION ${folder} COMPONENT ${component})
endfunction()
qx_package_documents(program
    glslang-dev libcli11-dev libfmt-dev libloki-dev libvulkan-dev nlohmann-json3-dev spirv-tools)
if(QX_NATIVE)
    qx_package_documents(native spirv-tools)
endif()
qx_package_documents(library libloki-dev)
qx_package_documents(host
    glslang-dev libfmt-dev libloki-dev libspdlog-dev libtomlplusplus-dev libvulkan-dev spirv-tools)
qx_package_documents(development)
if(QX_MLT)
    qx_package_documents(mlt glslang-dev libfmt-dev libloki-dev nlohmann-json3-dev spirv-tools)
endif()
if(QX_PYTHON)
    qx_package_documents(python
        glslang-dev libdlpack-dev libfmt-dev libloki-dev nlohmann-json3-dev pybind11-dev spirv-tools)
endif()

include(CPack)
