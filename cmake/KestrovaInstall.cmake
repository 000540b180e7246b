# Installing Kestrova: both programs (their own folders install them), the shipped data,
# desktop integration (launcher, icon, AppStream metainfo, the portfolio file type), the
# user guide made from docs/user-guide.md, man pages; and a Debian package through CPack.
include(GNUInstallDirs)
set(KESTROVA_APP_ID org.kestrova.Kestrova)
set(desktopDir ${PROJECT_SOURCE_DIR}/data/desktop)
set(docDir ${CMAKE_INSTALL_DATADIR}/doc/kestrova)

install(FILES ${PROJECT_SOURCE_DIR}/data/servers.dat ${PROJECT_SOURCE_DIR}/data/server.dat
              ${PROJECT_SOURCE_DIR}/data/sources.json ${PROJECT_SOURCE_DIR}/data/demo.pgr
        DESTINATION ${CMAKE_INSTALL_DATADIR}/kestrova)
install(FILES ${desktopDir}/${KESTROVA_APP_ID}.desktop DESTINATION ${CMAKE_INSTALL_DATADIR}/applications)
install(FILES ${desktopDir}/${KESTROVA_APP_ID}.svg DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/apps)
install(FILES ${desktopDir}/${KESTROVA_APP_ID}.metainfo.xml DESTINATION ${CMAKE_INSTALL_DATADIR}/metainfo)
install(FILES ${desktopDir}/${KESTROVA_APP_ID}.mime.xml DESTINATION ${CMAKE_INSTALL_DATADIR}/mime/packages
        RENAME ${KESTROVA_APP_ID}.xml)

# The user guide Help opens.
find_program(CMARK_EXECUTABLE cmark REQUIRED)
set(guide ${PROJECT_BINARY_DIR}/docs/user-guide.html)
add_custom_command(OUTPUT ${guide}
    COMMAND ${CMAKE_COMMAND} -E make_directory ${PROJECT_BINARY_DIR}/docs
    COMMAND ${CMAKE_COMMAND} -DCMARK=${CMARK_EXECUTABLE} -DIN=${PROJECT_SOURCE_DIR}/docs/user-guide.md -DOUT=${guide}
            -P ${PROJECT_SOURCE_DIR}/cmake/UserGuide.cmake
    DEPENDS ${PROJECT_SOURCE_DIR}/docs/user-guide.md ${PROJECT_SOURCE_DIR}/cmake/UserGuide.cmake
    COMMENT "Making the user guide")
set(cliMan ${PROJECT_BINARY_DIR}/docs/kestrova-cli.1)
add_custom_command(OUTPUT ${cliMan}
    COMMAND ${CMAKE_COMMAND} -E make_directory ${PROJECT_BINARY_DIR}/docs
    COMMAND ${CMAKE_COMMAND} -E env ASAN_OPTIONS=detect_leaks=0 ${CMAKE_COMMAND} -DCLI=$<TARGET_FILE:kestrova-cli>
            -DIN=${PROJECT_SOURCE_DIR}/docs/man/kestrova-cli.1.in -DOUT=${cliMan}
            -P ${PROJECT_SOURCE_DIR}/cmake/CliManPage.cmake
    DEPENDS kestrova-cli ${PROJECT_SOURCE_DIR}/docs/man/kestrova-cli.1.in ${PROJECT_SOURCE_DIR}/cmake/CliManPage.cmake
    COMMENT "Making the kestrova-cli man page")
add_custom_target(kestrova_docs ALL DEPENDS ${guide} ${cliMan})
install(FILES ${guide} DESTINATION ${docDir})
install(FILES ${PROJECT_SOURCE_DIR}/docs/man/kestrova.1 ${cliMan} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)

# cpack -G DEB: the dependencies are what the binaries link (dpkg-shlibdeps finds the
# Qt runtime packages) plus what is loaded at run time: the SVG icon engine and the SQLite
# driver (Qt plugins) and libcurl (loaded on the first transfer, src/support/CurlLibrary.cpp).
set(CPACK_PACKAGE_NAME kestrova)
set(CPACK_PACKAGE_VENDOR Kestrova)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Portfolio watch that pages alarms by modem or e-mail")
set(CPACK_PACKAGE_DESCRIPTION
    "Kestrova watches a portfolio of stocks, options, mutual funds and futures, fetches quotes \
from web quote pages on a schedule, tests them against alarm limits and pages the user by \
TAP modem, numeric pager or e-mail. kestrova is the desktop program, kestrova-cli the \
headless companion.")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_GENERATOR DEB)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "Kestrova developers <developers@kestrova.invalid>")
set(CPACK_DEBIAN_PACKAGE_SECTION misc)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# QtKeychain opens libsecret and the fetcher opens libcurl only when they run, so the
# shared-library scan cannot see them; nor the time zone data and the CA bundle they read.
set(CPACK_DEBIAN_PACKAGE_DEPENDS "libqt6svg6, libqt6sql6-sqlite, libsecret-1-0, libcurl4, tzdata, ca-certificates")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "network-manager")
include(CPack)
