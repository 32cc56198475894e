# The installation, the packages for CMake and pkg-config, and the archives of CPack.
include(CMakePackageConfigHelpers)

set(UTL_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/utl)

# The path from the .pc file back to the prefix, so that an installed tree can be moved.
file(RELATIVE_PATH UTL_PREFIX_FROM_PKGCONFIG ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" UTL_PREFIX_FROM_PKGCONFIG "${UTL_PREFIX_FROM_PKGCONFIG}")

install(TARGETS utl utl_static EXPORT utl-targets)
install(FILES ${UTL_HEADERS} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/utl)
install(EXPORT utl-targets NAMESPACE utl:: DESTINATION ${UTL_CMAKE_DIR})

configure_package_config_file(cmake/utl-config.cmake.in utl-config.cmake INSTALL_DESTINATION ${UTL_CMAKE_DIR})
write_basic_package_version_file(utl-config-version.cmake COMPATIBILITY SameMinorVersion)
list(TRANSFORM UTL_HEAP_DEFINITIONS PREPEND " -D" OUTPUT_VARIABLE UTL_HEAP_CFLAGS)
list(JOIN UTL_HEAP_CFLAGS "" UTL_HEAP_CFLAGS)
configure_file(cmake/utl.pc.in utl.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/utl-config.cmake ${CMAKE_CURRENT_BINARY_DIR}/utl-config-version.cmake
    DESTINATION ${UTL_CMAKE_DIR})
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/utl.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# A 32-bit build on a 64-bit PC has the name of the machine that it is for.
set(UTL_PROCESSOR ${CMAKE_SYSTEM_PROCESSOR})
if(UTL_PROCESSOR STREQUAL x86_64 AND CMAKE_SIZEOF_VOID_P EQUAL 4)
    set(UTL_PROCESSOR i386)
    set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE i386)
endif()

set(CPACK_GENERATOR DEB TGZ)
set(CPACK_SYSTEM_NAME ${CMAKE_SYSTEM_NAME}-${UTL_PROCESSOR})
set(CPACK_PACKAGE_CONTACT "The utl developers")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/package)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
# This C library is the first with 64-bit time on 32-bit machines.
set(CPACK_DEBIAN_PACKAGE_DEPENDS "libc6 (>= 2.34), libstdc++6 (>= 12)")
include(CPack)
