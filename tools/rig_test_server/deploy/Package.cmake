# The Debian package of rig_test_server (cpack -G DEB from the release build):
# the server, its systemd unit and its default configuration.
install(TARGETS rig_test_server RUNTIME DESTINATION bin COMPONENT server)
install(FILES ${CMAKE_CURRENT_SOURCE_DIR}/deploy/rig-test-server.service
        DESTINATION lib/systemd/system COMPONENT server)
install(FILES ${CMAKE_CURRENT_SOURCE_DIR}/deploy/rig-test-server.default
        DESTINATION /etc/default RENAME rig-test-server COMPONENT server)

set(CPACK_PACKAGE_NAME "rig-test-server")
set(CPACK_PACKAGE_VENDOR "Dunmore Nine")
set(CPACK_PACKAGE_CONTACT "Dunmore Nine operations <ops@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Reference server for Rig Inspector's TCP speed test and UDP echo test")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION net)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA
    ${CMAKE_CURRENT_SOURCE_DIR}/deploy/conffiles ${CMAKE_CURRENT_SOURCE_DIR}/deploy/postinst
    ${CMAKE_CURRENT_SOURCE_DIR}/deploy/prerm ${CMAKE_CURRENT_SOURCE_DIR}/deploy/postrm)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
include(CPack)
