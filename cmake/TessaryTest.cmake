# tessary_add_test(NAME <TestClass> SOURCES ... LIBS ... [GUI] [E2E [NO_ACCESSIBILITY]] [WAYLAND kwin [sway ...]]
#                  [TIMEOUT s])
#
# One executable per tested class. Every test runs inside scripts/headless-session, with a
# throw-away home, XDG directories and session bus, so no run reads or writes the user's
# own settings. Unit and view tests run on the offscreen platform; E2E tests get the whole
# desktop (Xvfb, AT-SPI, window manager) and carry the "e2e" label so they can be run or
# skipped as a tier; with NO_ACCESSIBILITY, that desktop has accessibility off and no
# application on its bus; with WAYLAND, the desktop is a headless Wayland compositor instead.
function(tessary_add_test)
    cmake_parse_arguments(T "GUI;E2E;NO_ACCESSIBILITY" "NAME;TIMEOUT" "SOURCES;LIBS;WAYLAND" ${ARGN})
    add_executable(${T_NAME} ${T_SOURCES})
    target_link_libraries(${T_NAME} PRIVATE Qt6::Test tessary_warnings ${T_LIBS})
    target_include_directories(${T_NAME} PRIVATE ${PROJECT_SOURCE_DIR}/tests/support)
    set_target_properties(${T_NAME} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)

    set(tests ${T_NAME})
    if(T_WAYLAND)
        # One run per compositor; the first keeps the test's name, the others add theirs.
        list(GET T_WAYLAND 0 first)
        set(tests)
        foreach(compositor IN LISTS T_WAYLAND)
            set(test ${T_NAME})
            if(NOT compositor STREQUAL first)
                set(test ${T_NAME}-${compositor})
            endif()
            add_test(NAME ${test}
                     COMMAND ${PROJECT_SOURCE_DIR}/scripts/headless-session --wayland=${compositor} $<TARGET_FILE:${T_NAME}>)
            list(APPEND tests ${test})
        endforeach()
        set(labels e2e)
    elseif(T_E2E)
        set(session_options)
        if(T_NO_ACCESSIBILITY)
            set(session_options --no-accessibility)
        endif()
        add_test(NAME ${T_NAME}
                 COMMAND ${PROJECT_SOURCE_DIR}/scripts/headless-session ${session_options} $<TARGET_FILE:${T_NAME}>)
        set(labels e2e)
    else()
        add_test(NAME ${T_NAME}
                 COMMAND ${PROJECT_SOURCE_DIR}/scripts/headless-session --no-display $<TARGET_FILE:${T_NAME}>)
        set(labels unit)
    endif()
    set(env "TESSARY_SOURCE_DIR=${PROJECT_SOURCE_DIR};TESSARY_BINARY_DIR=${CMAKE_BINARY_DIR};TESSARY_E2E_API_PORT=${TESSARY_E2E_API_PORT}")
    if(T_GUI AND NOT T_E2E)
        set(labels views)
    endif()
    if(NOT T_TIMEOUT)
        set(T_TIMEOUT 120)
    endif()
    set_tests_properties(${tests} PROPERTIES LABELS "${labels}" TIMEOUT ${T_TIMEOUT} ENVIRONMENT "${env}")
endfunction()
