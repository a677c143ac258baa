# What `cmake --install` lays down: the library with its headers, the tool, the documents, and what
# find_package(QZ) and pkg-config need. Everything finds the rest by relative paths, so an installed
# folder can be moved.
include(CMakePackageConfigHelpers)

set(QZ_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/QZ)
file(RELATIVE_PATH from_bin_to_lib /${CMAKE_INSTALL_BINDIR} /${CMAKE_INSTALL_LIBDIR})
set_target_properties(qz_tool PROPERTIES INSTALL_RPATH "$ORIGIN/${from_bin_to_lib}")

# The templates by themselves: they work with OpenMP, and the byte that stops long loops is the
# library's.
add_library(qz_templates INTERFACE)
set_target_properties(qz_templates PROPERTIES EXPORT_NAME templates)
target_compile_features(qz_templates INTERFACE cxx_std_20)
target_compile_options(qz_templates INTERFACE -fopenmp -ffp-contract=off)
target_link_options(qz_templates INTERFACE -fopenmp)
target_link_libraries(qz_templates INTERFACE qz)

install(TARGETS qz qz_templates EXPORT QZTargets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(TARGETS qz_tool DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES src/vm_wrapper.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY src/include/QZ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY docs/ DESTINATION ${CMAKE_INSTALL_DOCDIR} FILES_MATCHING PATTERN "*.md")
install(FILES README.md LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR})

install(EXPORT QZTargets NAMESPACE QZ:: DESTINATION ${QZ_PACKAGE_DIR})
configure_package_config_file(cmake/QZConfig.cmake.in ${CMAKE_BINARY_DIR}/QZConfig.cmake
                              INSTALL_DESTINATION ${QZ_PACKAGE_DIR})
write_basic_package_version_file(${CMAKE_BINARY_DIR}/QZConfigVersion.cmake
                                 COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/QZConfig.cmake ${CMAKE_BINARY_DIR}/QZConfigVersion.cmake
        DESTINATION ${QZ_PACKAGE_DIR})

file(RELATIVE_PATH QZ_PREFIX_FROM_PC /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(cmake/qz.pc.in ${CMAKE_BINARY_DIR}/qz.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/qz.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
