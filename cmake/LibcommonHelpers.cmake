# libcommon_component(<name> SOURCES ... [DEPENDS ...])
#   A subsystem of the library: a static, position-independent library
#   lc_<name> that the shared libcommon takes in whole. Tests link the
#   components they need directly, so a subsystem builds and tests on its own.
function(libcommon_component name)
    cmake_parse_arguments(A "" "" "SOURCES;DEPENDS" ${ARGN})
    add_library(lc_${name} STATIC ${A_SOURCES})
    set_target_properties(lc_${name} PROPERTIES POSITION_INDEPENDENT_CODE ON)
    target_link_libraries(lc_${name} PUBLIC libcommon_headers ${A_DEPENDS})
    set_property(GLOBAL APPEND PROPERTY LIBCOMMON_COMPONENTS lc_${name})
endfunction()

# libcommon_test(<name> SOURCES ... DEPENDS ... [LABELS ...])
#   One GoogleTest executable test_<name>, registered with CTest as <name>.
#   Tests run from the source root so they find devices/ and other data.
function(libcommon_test name)
    cmake_parse_arguments(A "" "" "SOURCES;DEPENDS;LABELS" ${ARGN})
    add_executable(test_${name} ${A_SOURCES})
    target_link_libraries(test_${name} PRIVATE ${A_DEPENDS} GTest::gmock GTest::gtest_main)
    add_test(NAME ${name} COMMAND test_${name} --gtest_brief=1)
    set_tests_properties(${name} PROPERTIES
        LABELS "${A_LABELS}" TIMEOUT 600
        WORKING_DIRECTORY ${PROJECT_SOURCE_DIR})
endfunction()
