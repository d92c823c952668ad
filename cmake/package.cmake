# What cpack packs: a .deb of the build for this system, a .zip of the build for Windows. scripts/release makes both.
set(CPACK_PACKAGE_NAME korventix)
set(CPACK_PACKAGE_CONTACT "The KORVENTIX developers <developers@korventix.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "prepare USB flash drives from the command line")
set(CPACK_PACKAGE_DESCRIPTION
    "Writes a new master boot record with one partition to a USB flash drive, wipes old boot records and lays down a \
bootable volume. Also lists, inspects, copies, tests and erases drives.")
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/package_times.cmake)
set(CPACK_STRIP_FILES OFF) # the link has done it
set(CMAKE_SKIP_INSTALL_ALL_DEPENDENCY ON) # the tests are not packed

if(WIN32)
  set(CPACK_GENERATOR ZIP)
  set(CPACK_SYSTEM_NAME windows)
  target_link_options(korventix PRIVATE -Wl,--no-insert-timestamp)
  install(TARGETS korventix DESTINATION .)
  install(FILES ${PROJECT_SOURCE_DIR}/README.md DESTINATION .)
else()
  set(CPACK_GENERATOR DEB)
  set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
  set(CPACK_DEBIAN_PACKAGE_SECTION admin)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "exfatprogs, ntfs-3g")
  set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
  # SPEEDTEST writes its files beside the program: it has a folder of its own.
  install(TARGETS korventix DESTINATION lib/korventix)
  file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/link)
  file(CREATE_LINK ../lib/korventix/korventix ${PROJECT_BINARY_DIR}/link/korventix SYMBOLIC)
  install(FILES ${PROJECT_BINARY_DIR}/link/korventix DESTINATION bin)
  set(manual ${PROJECT_BINARY_DIR}/korventix.8.gz)
  add_custom_command(
    OUTPUT ${manual}
    COMMAND gzip -9nc ${PROJECT_SOURCE_DIR}/docs/korventix.8 >${manual}
    DEPENDS ${PROJECT_SOURCE_DIR}/docs/korventix.8)
  add_custom_target(manual DEPENDS ${manual})
  add_dependencies(korventix manual)
  install(FILES ${manual} DESTINATION share/man/man8)
  install(
    FILES ${PROJECT_SOURCE_DIR}/packaging/korventix.bash-completion
    DESTINATION share/bash-completion/completions
    RENAME korventix)
endif()
include(CPack)
