# Language level, warnings, sanitizers and hardening, for every target alike.
set(CMAKE_CXX_STANDARD 23)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
# Exported is what a public header declares (cmake/PublicHeaders.cmake), nothing else.
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
include(CheckPIESupported)
check_pie_supported()

# Whether this build is optimised, by the compiler's own word: a build type may have any name. Asked each
# time, since the type of a build folder can be changed.
include(CheckCXXSourceCompiles)
set(CMAKE_TRY_COMPILE_CONFIGURATION "${CMAKE_BUILD_TYPE}")
unset(STOWLINE_OPTIMISED CACHE)
check_cxx_source_compiles("#ifndef __OPTIMIZE__\n#error\n#endif\nint main() {}" STOWLINE_OPTIMISED)

option(STOWLINE_WERROR "Every warning is an error" OFF)
add_compile_options(
  -Wall -Wextra -Wpedantic $<$<BOOL:${STOWLINE_WERROR}>:-Werror>
  -Wshadow -Wold-style-cast -Wnon-virtual-dtor -Woverloaded-virtual -Wcast-align -Wformat=2
  # __FILE__ is logged: give it relative to the tree, so no build machine's path is in a binary.
  -ffile-prefix-map=${PROJECT_SOURCE_DIR}/=)
# Designated initializers leave out what has a default.
add_compile_options(-Wno-missing-field-initializers)
add_link_options(-Wl,--as-needed)
# Linking is a third of the daily loop with the usual linker.
find_program(LLD ld.lld)
if(LLD AND NOT STOWLINE_OPTIMISED)
  add_link_options(-fuse-ld=lld)
endif()

if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  add_compile_options(-Wthread-safety)
else()
  # g++ 12 sees ghosts in std::variant and std::string under optimisation and sanitizers.
  add_compile_options(-Wno-maybe-uninitialized -Wno-restrict)
endif()

if(STOWLINE_SANITIZERS)
  add_compile_options(-fsanitize=${STOWLINE_SANITIZERS} -fno-omit-frame-pointer
                      -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${STOWLINE_SANITIZERS})
  if(CMAKE_BUILD_TYPE STREQUAL "Debug")
    # -O1 keeps the sanitized programs quick; lines stay readable in reports.
    add_compile_options(-O1)
  endif()
endif()

if(STOWLINE_FUZZERS)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

# What is optimised is shipped, and hardened, whatever its build type is called, as far as the compiler
# can: not every one knows every option for every processor.
if(STOWLINE_OPTIMISED AND NOT STOWLINE_SANITIZERS)
  add_compile_options(-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2 -D_GLIBCXX_ASSERTIONS -ffunction-sections -fdata-sections)
  include(CheckCXXCompilerFlag)
  foreach(flag stack-protector-strong stack-clash-protection cf-protection)
    check_cxx_compiler_flag(-f${flag} STOWLINE_KNOWS_${flag})
    if(STOWLINE_KNOWS_${flag})
      add_compile_options(-f${flag})
    endif()
  endforeach()
  add_link_options(-Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack -Wl,--gc-sections)
endif()

# Compiling again what was compiled before is left to ccache where it is installed; checkouts in
# different folders share what it keeps.
find_program(CCACHE ccache)
if(CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_CXX_COMPILER_LAUNCHER
    ${CMAKE_COMMAND} -E env CCACHE_BASEDIR=${PROJECT_SOURCE_DIR} CCACHE_NOHASHDIR=1 CCACHE_DEPEND=1
    ${CCACHE})
endif()
