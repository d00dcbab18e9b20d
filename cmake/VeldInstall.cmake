# What "cmake --install" and the Debian package hold: programs, manual, completion, documents, the demo.
include(GNUInstallDirs)

# veld_install_packed(file directory): installs it compressed, without time stamps, so that two builds give the
# same bytes.
find_program(GZIP gzip REQUIRED)
function(veld_install_packed source destination)
  get_filename_component(name ${source} NAME)
  set(packed ${VELD_MANUAL_DIR}/${name}.gz)
  add_custom_command(OUTPUT ${packed}
                     COMMAND ${CMAKE_COMMAND} -E make_directory ${VELD_MANUAL_DIR}
                     COMMAND sh -c "'${GZIP}' -9nc '${source}' > '${packed}'"
                     DEPENDS ${source} VERBATIM)
  add_custom_target(pack_${name} ALL DEPENDS ${packed})
  install(FILES ${packed} DESTINATION ${destination})
endfunction()

veld_install_packed(${VELD_MANUAL_DIR}/veldrunner.1 ${CMAKE_INSTALL_MANDIR}/man1)
add_dependencies(pack_veldrunner.1 manual)
veld_install_packed(${CMAKE_SOURCE_DIR}/packaging/veldsim.1 ${CMAKE_INSTALL_MANDIR}/man1)
veld_install_packed(${CMAKE_SOURCE_DIR}/packaging/veldscore.1 ${CMAKE_INSTALL_MANDIR}/man1)
veld_install_packed(${CMAKE_SOURCE_DIR}/packaging/changelog ${CMAKE_INSTALL_DOCDIR})

install(TARGETS veldrunner veldsim veldscore RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES ${VELD_MANUAL_DIR}/veldrunner
        DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
install(FILES README.md docs/decisions.md docs/performance.md packaging/copyright
        DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(PROGRAMS scripts/demo.sh DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME veldrunner)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "veldrunner maintainers <maintainers@veldrunner.example>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${CMAKE_SOURCE_DIR}/packaging/postrm)
set(CPACK_DEBIAN_PACKAGE_SECTION science)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION "aligns strips of airborne and UAV LiDAR
veldrunner takes swaths (LAS, LAZ), the trajectories that flew them, and mount
or calibration values. It measures the displacement between overlapping swaths
with its uncertainty, inverts the displacements for sensor calibration and
trajectory drift, writes corrected swaths, and reports the fit before and
after. It runs in a terminal, one job a run, with bounded memory.
.
The package also holds veldsim, which simulates projects with known truth, and
veldscore, which compares a result with that truth.")
include(CPack)
