# How a folder becomes a library and a test executable.

# stowline_library(<name> SOURCES ... [DEPENDS ...] [PRIVATE_DEPENDS ...])
# A static library whose includes are root-relative ("stowline/platform/values/Value.h").
function(stowline_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPENDS;PRIVATE_DEPENDS" ${ARGN})
  add_library(${name} STATIC ${ARG_SOURCES})
  target_include_directories(${name} PUBLIC "${PROJECT_SOURCE_DIR}")
  target_link_libraries(${name} PUBLIC ${ARG_DEPENDS} PRIVATE ${ARG_PRIVATE_DEPENDS})
endfunction()

# stowline_test(<name> SOURCES ... DEPENDS ... [LABELS ...] [NEEDS ...] [SECONDS ...]
#               [WITH_NURSERY <filter>])
# One GoogleTest executable for a folder. Every test runs in a process of its own, so that tests may
# set what a process can set only once. NEEDS names programs that must be built first;
# SECONDS is how long a test may take. The tests that the filter of WITH_NURSERY lets through run
# once more, as OfNursery.*, with the word --of-nursery (tests/support/HelperForm.cpp).
function(stowline_test name)
  if(NOT STOWLINE_TESTS)
    return()
  endif()
  cmake_parse_arguments(ARG "" "SECONDS;WITH_NURSERY" "SOURCES;DEPENDS;LABELS;NEEDS" ${ARGN})
  if(NOT ARG_SECONDS)
    set(ARG_SECONDS 180)
  endif()
  add_executable(${name} ${ARG_SOURCES} "${PROJECT_SOURCE_DIR}/tests/support/SanitizerOptions.cpp")
  target_include_directories(${name} PRIVATE "${PROJECT_SOURCE_DIR}")
  target_link_libraries(${name} PRIVATE ${ARG_DEPENDS} GTest::gtest_main)
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/tests")
  # What is tested is optimised and checked, not the tests: they compile in a third of the time.
  if(STOWLINE_SANITIZERS)
    target_compile_options(${name} PRIVATE -O0 -fno-sanitize=undefined)
  elseif(STOWLINE_OPTIMISED)
    target_compile_options(${name} PRIVATE -O0 -U_FORTIFY_SOURCE)
  endif()
  if(NOT ARG_LABELS)
    set(ARG_LABELS unit)
  endif()
  if(ARG_NEEDS)
    add_dependencies(${name} ${ARG_NEEDS})
  endif()
  # The desktop's proxies are not part of a test; and the thread sanitizer knows malloc's locks,
  # not those of GLib's own allocator. Two properties, because gtest_discover_tests cuts lists.
  set(properties LABELS "${ARG_LABELS}" TIMEOUT ${ARG_SECONDS}
                 ENVIRONMENT G_SLICE=always-malloc
                 ENVIRONMENT_MODIFICATION GIO_USE_PROXY_RESOLVER=set:dummy
                 SKIP_REGULAR_EXPRESSION "SKIPPED \\]")
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 120 PROPERTIES ${properties})
  if(ARG_WITH_NURSERY)
    gtest_discover_tests(${name} DISCOVERY_TIMEOUT 120 TEST_PREFIX OfNursery. TEST_LIST ${name}_OfNursery
      TEST_FILTER "${ARG_WITH_NURSERY}" EXTRA_ARGS --of-nursery PROPERTIES ${properties})
  endif()
endfunction()
