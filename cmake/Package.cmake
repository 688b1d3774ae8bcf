# The Debian package: command, libraries and headers, service, manual page, configuration and documents.
# Its files under /etc would be installed there by any installation, so that PIMBSR_PACKAGE must ask for them.
find_program(GZIP gzip REQUIRED)
set(manual ${PROJECT_BINARY_DIR}/pimbsr.8.gz)
add_custom_command(OUTPUT ${manual}
  COMMAND ${GZIP} -9nc ${PROJECT_SOURCE_DIR}/packaging/pimbsr.8 > ${manual}
  DEPENDS ${PROJECT_SOURCE_DIR}/packaging/pimbsr.8 VERBATIM)
add_custom_target(manual ALL DEPENDS ${manual})

install(FILES ${manual} DESTINATION ${CMAKE_INSTALL_MANDIR}/man8)
install(FILES packaging/pimbsr.service packaging/pimbsr-web.service packaging/pimbsr-metrics.service
  packaging/pimbsr-metrics.socket DESTINATION lib/systemd/system)
install(FILES packaging/prometheus/pimbsr.rules.yml packaging/prometheus/pimbsr-dashboard.json
  DESTINATION ${CMAKE_INSTALL_DATADIR}/pimbsr/prometheus)
install(FILES packaging/completion/pimbsr.bash
  DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME pimbsr)
install(FILES packaging/completion/_pimbsr DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions)
install(FILES packaging/completion/pimbsr.fish
  DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)

# The service's configuration is the example, and the group that the package makes for its read-only socket.
set(service_config ${PROJECT_BINARY_DIR}/package-config/pimbsr.toml)
file(READ ${PROJECT_SOURCE_DIR}/examples/pimbsr.toml service_text)
string(APPEND service_text "
# Members of this group may use 'pimbsr show', 'watch' and 'metrics'; those of pimbsr may use all commands.
[control]
read-only-group = \"pimbsr-read\"
")
file(CONFIGURE OUTPUT ${service_config} CONTENT "${service_text}" @ONLY)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/examples/pimbsr.toml)
install(FILES ${service_config} DESTINATION /etc/pimbsr)
# The pages keep their places to each other, so that their links hold.
install(FILES README.md CONTRIBUTING.md CHANGELOG.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DOCDIR} FILES_MATCHING PATTERN "*.md" PATTERN "*.png"
        PATTERN "*.svg")
install(DIRECTORY examples DESTINATION ${CMAKE_INSTALL_DOCDIR})

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME pimbsr)
set(CPACK_PACKAGE_VENDOR "pimbsr")
set(CPACK_PACKAGE_CONTACT "pimbsr maintainers <root@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Bootstrap Router for PIM multicast domains")
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
"A Bootstrap Router (RFC 5059, IPv4) for PIM multicast domains: the agent that
speaks it on this machine's interfaces, the commands that show and steer it,
a simulator of many routers, the replay of captures, and the libraries to
embed it in a routing agent.")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION net)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "adduser")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
foreach(script postinst prerm postrm conffiles triggers)
  list(APPEND CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/${script})
endforeach()
set(CPACK_STRIP_FILES ON)
set(CPACK_SET_DESTDIR ON)
set(CPACK_INSTALL_PREFIX /usr)
include(CPack)
