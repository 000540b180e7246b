# kestrova_add_library(NAME SOURCES ... [QT Core ...] [DEPS target ...])
# One static library per subsystem folder, named kestrova_<folder>.
function(kestrova_add_library name)
    cmake_parse_arguments(ARG "" "" "SOURCES;QT;DEPS" ${ARGN})
    add_library(${name} STATIC ${ARG_SOURCES})
    set(qtlibs Qt6::Core)
    foreach(c IN LISTS ARG_QT)
        list(APPEND qtlibs Qt6::${c})
    endforeach()
    list(REMOVE_DUPLICATES qtlibs)
    target_link_libraries(${name} PUBLIC kestrova_common ${qtlibs} ${ARG_DEPS})
endfunction()

# kestrova_add_test(NAME SOURCES ... [DEPS target ...] [LABELS ...] [TIMEOUT s] [LAUNCHER cmd ...] [ARGS ...])
# A QtTest program registered with CTest. Each test gets its own settings and data
# folders under the build tree so tests never read the developer's real settings, and a
# session bus address where no bus listens, so none reaches the developer's secret service.
function(kestrova_add_test name)
    cmake_parse_arguments(ARG "" "TIMEOUT" "SOURCES;DEPS;LABELS;LAUNCHER;ARGS" ${ARGN})
    add_executable(${name} ${ARG_SOURCES})
    target_link_libraries(${name} PRIVATE kestrova_common Qt6::Core Qt6::Test kestrova_testsupport ${ARG_DEPS})
    add_test(NAME ${name} COMMAND ${ARG_LAUNCHER} $<TARGET_FILE:${name}> ${ARG_ARGS})
    set(home ${CMAKE_BINARY_DIR}/testhome/${name})
    if(NOT ARG_TIMEOUT)
        set(ARG_TIMEOUT 120)
    endif()
    set_tests_properties(${name} PROPERTIES
        TIMEOUT ${ARG_TIMEOUT}
        LABELS "${ARG_LABELS}"
        ENVIRONMENT "XDG_CONFIG_HOME=${home}/config;DBUS_SESSION_BUS_ADDRESS=unix:path=${home}/no-session-bus;XDG_DATA_HOME=${home}/data;KESTROVA_HOME=;QT_QPA_PLATFORM=offscreen;KESTROVA_SOURCE_DIR=${PROJECT_SOURCE_DIR};KESTROVA_TEST_DATA=${PROJECT_SOURCE_DIR}/tests/data;KESTROVA_CLI=$<TARGET_FILE:kestrova-cli>;ASAN_OPTIONS=detect_leaks=1")
endfunction()

# kestrova_add_gui_test(NAME SOURCES ... [DEPS target ...] [SCREENSHOTS] [TIMEOUT s])
# A QtTest program that drives real widgets. Plain GUI tests run on the offscreen platform;
# SCREENSHOTS tests run on a real X server under xvfb-run (fonts and styles as a person
# sees them). Every GUI test may save pictures under <build>/screenshots
# ($KESTROVA_SCREENSHOT_DIR).
function(kestrova_add_gui_test name)
    cmake_parse_arguments(ARG "SCREENSHOTS" "TIMEOUT" "SOURCES;DEPS" ${ARGN})
    if(NOT ARG_TIMEOUT)
        set(ARG_TIMEOUT 120)
    endif()
    set(launcher "")
    set(args "")
    if(ARG_SCREENSHOTS)
        find_program(XVFB_RUN xvfb-run)
        if(XVFB_RUN)
            # -a picks a free display number, so two such tests can run side by side.
            set(launcher ${XVFB_RUN} -a -s "-screen 0 1600x1200x24")
            set(args -platform xcb)
        endif()
    endif()
    kestrova_add_test(${name} SOURCES ${ARG_SOURCES} DEPS kestrova_gui Qt6::Widgets ${ARG_DEPS}
                      TIMEOUT ${ARG_TIMEOUT} LABELS gui LAUNCHER ${launcher} ARGS ${args})
    set_property(TEST ${name} APPEND PROPERTY ENVIRONMENT "KESTROVA_SCREENSHOT_DIR=${CMAKE_BINARY_DIR}/screenshots")
endfunction()
