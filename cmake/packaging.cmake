# Install rules and the Debian package (CPack). The package's architecture
# follows the build: i386 from the cmake/i386.cmake build, amd64 otherwise.
include(GNUInstallDirs)

# Debian wants manual pages compressed, without a time stamp in the gzip header.
set(VELT_MANPAGE_GZ ${PROJECT_BINARY_DIR}/veltcheck.1.gz)
add_custom_command(OUTPUT ${VELT_MANPAGE_GZ}
  COMMAND gzip -9n -c ${PROJECT_SOURCE_DIR}/man/veltcheck.1 > ${VELT_MANPAGE_GZ}
  DEPENDS ${PROJECT_SOURCE_DIR}/man/veltcheck.1 VERBATIM)
set(VELT_CHANGELOG_GZ ${PROJECT_BINARY_DIR}/changelog.gz)
add_custom_command(OUTPUT ${VELT_CHANGELOG_GZ}
  COMMAND gzip -9n -c ${PROJECT_SOURCE_DIR}/packaging/changelog.Debian > ${VELT_CHANGELOG_GZ}
  DEPENDS ${PROJECT_SOURCE_DIR}/packaging/changelog.Debian VERBATIM)
add_custom_target(veltcheck_docs ALL DEPENDS ${VELT_MANPAGE_GZ} ${VELT_CHANGELOG_GZ})

install(TARGETS veltcheck RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES ${VELT_MANPAGE_GZ} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES packaging/copyright ${VELT_CHANGELOG_GZ} DESTINATION ${CMAKE_INSTALL_DOCDIR})

if(CMAKE_SIZEOF_VOID_P EQUAL 4)
  set(VELT_DEB_ARCH i386)
else()
  set(VELT_DEB_ARCH amd64)
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME veltcheck)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "veltcheck developers <veltcheck@veltora.example>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "software integrity checks with GOST hash lists and Veltora smart cards")
# CPack puts the summary first; this is the long description after it.
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION "veltcheck keeps lists of files with their GOST R 34.11-2012 digests, sealed
 by a digest of the list itself, and checks the files against them later. It
 also asks every Veltora card in every PC/SC reader to prove that its checksum
 applet is unchanged, against checksum records kept by the operator.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${VELT_DEB_ARCH})
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "libc6 (>= 2.34), libgcc-s1 (>= 3.0), libstdc++6 (>= 12), libpcsclite1 (>= 1.9)")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS pcscd)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
include(CPack)
