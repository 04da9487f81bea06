# What is installed, and the packages that cpack makes of it: a .deb on Linux, a zip for Windows.
include(GNUInstallDirs)

set(tolven_programs tolven-daemon tolven-server tolvenctl)
set(tolven_texts README.md docs/install.md docs/architecture.md docs/choices.md docs/performance.md
                 docs/windows.md)

set(CPACK_PACKAGE_NAME tolven-hub)
set(CPACK_PACKAGE_VENDOR "Tolven Hub")
set(CPACK_PACKAGE_CONTACT "Tolven Hub <hub@tolvenhub.example>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "two-way synchronisation of folders with an own server")
set(CPACK_STRIP_FILES ON)
set(CPACK_THREADS 0)

if(WIN32)
  install(TARGETS ${tolven_programs} DESTINATION .)
  set(doc_folder .)
  set(CPACK_GENERATOR ZIP)
  set(CPACK_PACKAGE_FILE_NAME "${CPACK_PACKAGE_NAME}-${PROJECT_VERSION}-windows")
else()
  install(TARGETS ${tolven_programs} DESTINATION "${CMAKE_INSTALL_BINDIR}")
  install(FILES cmake/packaging/tolvenctl.service DESTINATION lib/systemd/user)
  set(doc_folder "${CMAKE_INSTALL_DATADIR}/doc/tolven-hub")
  install(FILES cmake/packaging/copyright DESTINATION "${doc_folder}")

  # Debian wants these compressed, and the same in every build.
  find_program(TOLVEN_GZIP gzip REQUIRED)
  set(compressed_files)
  function(tolven_install_compressed source destination)
    get_filename_component(name "${source}" NAME)
    set(compressed "${CMAKE_BINARY_DIR}/packaging/${name}.gz")
    add_custom_command(
      OUTPUT "${compressed}"
      COMMAND "${TOLVEN_GZIP}" -9nc "${CMAKE_SOURCE_DIR}/${source}" > "${compressed}"
      DEPENDS "${CMAKE_SOURCE_DIR}/${source}"
      VERBATIM)
    install(FILES "${compressed}" DESTINATION "${destination}")
    set(compressed_files ${compressed_files} "${compressed}" PARENT_SCOPE)
  endfunction()
  file(MAKE_DIRECTORY "${CMAKE_BINARY_DIR}/packaging")
  tolven_install_compressed(cmake/packaging/changelog "${doc_folder}")
  foreach(program IN LISTS tolven_programs)
    tolven_install_compressed(docs/man/${program}.1 "${CMAKE_INSTALL_MANDIR}/man1")
  endforeach()
  add_custom_target(tolven_compressed ALL DEPENDS ${compressed_files})

  set(CPACK_GENERATOR DEB)
  set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
  set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ
      GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
  set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_PACKAGE_SECTION net)
  set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
  set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
  set(CPACK_PACKAGE_DESCRIPTION
      "tolven-daemon keeps folders in two-way sync with folders on a server, with
deltas, conflict copies, filters and a recycle bin. tolvenctl runs it and shows
what it does; tolven-server is the server. A systemd user unit keeps folders in
sync while their user is logged in.")
endif()
foreach(text IN LISTS tolven_texts)
  get_filename_component(folder "${text}" DIRECTORY)
  install(FILES "${text}" DESTINATION "${doc_folder}/${folder}")
endforeach()
include(CPack)
