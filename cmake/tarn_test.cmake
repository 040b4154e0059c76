# tarn_test(NAME SOURCES a_test.cpp ... LIBS target ...) - one test program a folder.
#
# Test programs find their clips through TARN_TEST_DATA and the built `tarn` through TARN_BINARY.
function(tarn_test name)
    cmake_parse_arguments(ARG "" "" "SOURCES;LIBS;PROPERTIES" ${ARGN})
    add_executable(${name}_test ${ARG_SOURCES})
    target_link_libraries(${name}_test PRIVATE ${ARG_LIBS} tarn_test_support tarn_flags
                          GTest::gtest_main)
    target_compile_definitions(${name}_test PRIVATE
        TARN_TEST_DATA="${PROJECT_SOURCE_DIR}/tests/data"
        TARN_BINARY="$<TARGET_FILE:tarn>")
    gtest_discover_tests(${name}_test TEST_PREFIX ${name}. DISCOVERY_TIMEOUT 60
                         PROPERTIES TIMEOUT 300 ${ARG_PROPERTIES})
endfunction()
