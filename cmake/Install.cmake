# What `cmake --install` puts where.

include(GNUInstallDirs)

install(TARGETS updater-svr RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR})
install(TARGETS updater-ctl RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES man/updater-svr.8 DESTINATION ${CMAKE_INSTALL_MANDIR}/man8)
install(FILES man/updater-ctl.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES completions/updater-ctl DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
install(FILES README.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(FILES debian/changelog DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DOCDIR} FILES_MATCHING PATTERN "*.md")
