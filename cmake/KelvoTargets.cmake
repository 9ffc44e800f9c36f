# Clang 14 cannot place the fuzzer's coverage counters of a coroutine frame ("Cannot represent a
# difference across sections"): sources that write coroutines go without that instrumentation.
function(kelvo_exempt_coroutines_from_coverage sources)
    if(NOT KELVO_FUZZ)
        return()
    endif()
    foreach(source IN LISTS sources)
        if(source MATCHES "\\.cpp$")
            file(STRINGS ${source} coroutine REGEX "co_await|co_return" LIMIT_COUNT 1)
            if(coroutine)
                set_source_files_properties(${source} PROPERTIES
                    COMPILE_OPTIONS -fno-sanitize=fuzzer-no-link)
            endif()
        endif()
    endforeach()
endfunction()

# One static library per subsystem folder; its sources are every .cpp/.h below it.
function(kelvo_subsystem_library name)
    cmake_parse_arguments(ARG "" "" "PUBLIC_DEPS;PRIVATE_DEPS" ${ARGN})
    file(GLOB_RECURSE sources CONFIGURE_DEPENDS
        ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp ${CMAKE_CURRENT_SOURCE_DIR}/*.h)
    add_library(${name} STATIC ${sources})
    kelvo_exempt_coroutines_from_coverage("${sources}")
    target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR}/Tarrow)
    target_link_libraries(${name} PUBLIC ${ARG_PUBLIC_DEPS} PRIVATE ${ARG_PRIVATE_DEPS})
    set_property(GLOBAL APPEND PROPERTY KELVO_LIBRARIES ${name})
endfunction()

# One GoogleTest executable per tests/<Subsystem> folder (every .cpp below it, unless SOURCES
# names them); each test case is its own ctest entry.
function(kelvo_subsystem_tests name)
    cmake_parse_arguments(ARG "" "" "DEPS;SOURCES" ${ARGN})
    if(ARG_SOURCES)
        set(sources ${ARG_SOURCES})
    else()
        file(GLOB_RECURSE sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp)
    endif()
    add_executable(${name} ${sources})
    if(KELVO_FUZZ)
        # Only the fuzz targets need coverage; a test instantiating coroutines from headers
        # cannot have it under clang 14 (see above).
        target_compile_options(${name} PRIVATE -fno-sanitize=fuzzer-no-link)
    endif()
    target_link_libraries(${name} PRIVATE ${ARG_DEPS} kelvo_test_support GTest::gmock GTest::gtest_main)
    target_compile_definitions(${name} PRIVATE
        KELVO_TEST_DATA_DIR="${CMAKE_CURRENT_SOURCE_DIR}"
        KELVO_SOURCE_DIR="${PROJECT_SOURCE_DIR}"
        KELVO_BINARY_DIR="${PROJECT_BINARY_DIR}")
    gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60
        PROPERTIES TIMEOUT 120)
endfunction()
