# The target api-reference: pages about what the installed headers declare, in docs/api-reference/ of the build folder.
# Needs Doxygen. Expects the list `headers` of Install.cmake.

find_package(Doxygen QUIET)
option(QX_API_REFERENCE "Offer the target api-reference" ${DOXYGEN_FOUND})
if(NOT QX_API_REFERENCE)
    return()
endif()
if(NOT DOXYGEN_FOUND)
    message(FATAL_ERROR "QX_API_REFERENCE: doxygen is not found; install doxygen")
endif()

set(QX_API_REFERENCE_DIR ${PROJECT_BINARY_DIR}/docs/api-reference)
set(QX_API_HEADERS)
foreach(header IN LISTS headers)
    string(APPEND QX_API_HEADERS " \"${PROJECT_SOURCE_DIR}/${header}\"")
endforeach()
foreach(header HostTests Services)
    string(APPEND QX_API_HEADERS " \"${PROJECT_SOURCE_DIR}/tests/hosts/include/hosttests/${header}.h\"")
endforeach()
string(APPEND QX_API_HEADERS " \"${PROJECT_BINARY_DIR}/generated/Qx/Version.h\"")
configure_file(${PROJECT_SOURCE_DIR}/docs/api-reference/Doxyfile.in ${PROJECT_BINARY_DIR}/docs/Doxyfile @ONLY)
file(MAKE_DIRECTORY ${QX_API_REFERENCE_DIR})
add_custom_target(api-reference
    COMMAND Doxygen::doxygen ${PROJECT_BINARY_DIR}/docs/Doxyfile
    COMMENT "Writing the API reference to docs/api-reference/index.html of the build folder" VERBATIM)
