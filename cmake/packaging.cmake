# Installation layout and the Debian package (`cmake --install`, `cmake --build --target package`).
include(GNUInstallDirs)

install(TARGETS kra2 kra2db RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

# Debian wants manual pages and the changelog compressed, reproducibly (no name or time stamp).
find_program(KRA2_GZIP gzip REQUIRED)
set(kra2_doc_build ${PROJECT_BINARY_DIR}/doc)
add_custom_command(
  OUTPUT ${kra2_doc_build}/kra2.1.gz ${kra2_doc_build}/changelog.gz
  COMMAND ${CMAKE_COMMAND} -E make_directory ${kra2_doc_build}
  COMMAND ${KRA2_GZIP} -9n -c ${PROJECT_SOURCE_DIR}/doc/kra2.1 > ${kra2_doc_build}/kra2.1.gz
  COMMAND ${KRA2_GZIP} -9n -c ${PROJECT_SOURCE_DIR}/doc/changelog > ${kra2_doc_build}/changelog.gz
  DEPENDS ${PROJECT_SOURCE_DIR}/doc/kra2.1 ${PROJECT_SOURCE_DIR}/doc/changelog
  VERBATIM)
add_custom_target(kra2_docs ALL DEPENDS ${kra2_doc_build}/kra2.1.gz ${kra2_doc_build}/changelog.gz)

install(FILES ${kra2_doc_build}/kra2.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES README.md doc/copyright ${kra2_doc_build}/changelog.gz
        DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(FILES examples/demo.cmd examples/demo.cir examples/demo.net examples/demo.raw
        DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples)

# The Python package kra2 (the extension and its Python files) goes beside the interpreter's
# other site packages; nothing is installed when the module is not built.
if(TARGET kra2_python)
  set(KRA2_PYTHON_INSTALL_DIR ${CMAKE_INSTALL_LIBDIR}/python3/dist-packages
      CACHE PATH "Where the Python package is installed, relative to the prefix")
  install(TARGETS kra2_python LIBRARY DESTINATION ${KRA2_PYTHON_INSTALL_DIR}/kra2)
  install(FILES ${KRA2_PYTHON_FILES} DESTINATION ${KRA2_PYTHON_INSTALL_DIR}/kra2)
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME kra2)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "kra2 developers <kra2@example.org>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
    "electromigration and IR-drop checks of power grids after simulation")
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
    "kra2 is a batch engine driven by a command file. It opens circuit-simulation
results, computes the peak, average, RMS and related values of the current or
voltage difference of every resistor of an instance netlist over a time
window, and writes them as a tab-separated result file. It also lists and
relates EMIR result databases (kra2db writes and inspects them) and derives
metal lengths, current directions and via-to-via strips of a power grid.")
set(CPACK_DEBIAN_PACKAGE_SECTION science)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
include(CPack)
