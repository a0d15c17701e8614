# What a build may choose, and the compiler settings that follow from it.

if(CMAKE_SYSTEM_NAME STREQUAL "Darwin")
  set(qd_own_family macos)
else()
  set(qd_own_family linux)
endif()

set(QD_TARGET_OS ${qd_own_family} CACHE STRING
  "Operating-system family: macos, linux, or windows (its parameters only, no executable)")
set_property(CACHE QD_TARGET_OS PROPERTY STRINGS macos linux windows)
if(NOT QD_TARGET_OS MATCHES "^(macos|linux|windows)$")
  message(FATAL_ERROR "QD_TARGET_OS must be macos, linux or windows")
endif()

option(QD_SYNOLOGY "Build for Synology systems (Linux family)" OFF)
option(QD_WARNINGS_ARE_ERRORS "Treat compiler warnings as errors" OFF)
option(QD_FUZZ "Build the fuzz targets (clang only)" OFF)
option(QD_BENCH "Build the benchmarks" OFF)
option(QD_JOIN_SOURCES "Compile the sources of a room as one text" OFF)
set(QD_SANITIZE "" CACHE STRING "Sanitizers, as the compiler's -fsanitize takes them")

if(QD_TARGET_OS STREQUAL "macos")
  set(qd_conf_dir "/Library/Application Support/QD/conf")
else()
  set(qd_conf_dir "/etc/qd/conf")
endif()
set(QD_CONF_DIR ${qd_conf_dir} CACHE STRING "Folder of the agent's configuration strings")
set(QD_STATE_DIR "/var/lib/qd" CACHE STRING "Folder of what outlives the programs' runs")

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

add_library(qd_settings INTERFACE)
target_include_directories(qd_settings INTERFACE
  ${PROJECT_SOURCE_DIR}/Sources
  ${PROJECT_SOURCE_DIR}/BASE/basestd/src
  ${PROJECT_SOURCE_DIR})
target_compile_definitions(qd_settings INTERFACE _FILE_OFFSET_BITS=64)
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
  target_compile_definitions(qd_settings INTERFACE _TIME_BITS=64)  # times beyond January 2038
endif()
target_compile_options(qd_settings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wnon-virtual-dtor -Woverloaded-virtual
  # In a room compiled as one text, g++ takes its sources for headers.
  $<$<AND:$<CXX_COMPILER_ID:GNU>,$<BOOL:${QD_JOIN_SOURCES}>>:-Wno-subobject-linkage>
  # g++ 12 takes joined strings for overlapping memory (its bug 105651).
  $<$<AND:$<CXX_COMPILER_ID:GNU>,$<VERSION_LESS:$<CXX_COMPILER_VERSION>,13>>:-Wno-restrict>
  $<$<BOOL:${QD_WARNINGS_ARE_ERRORS}>:-Werror>
  # Nobody needs to know where it was built.
  -fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=)

if(QD_SANITIZE)
  target_compile_options(qd_settings INTERFACE
    -fsanitize=${QD_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(qd_settings INTERFACE -fsanitize=${QD_SANITIZE})
  if(QD_SANITIZE MATCHES "thread")
    # g++ warns of fences, which the standard library's own headers have and the sanitizer does not follow.
    target_compile_options(qd_settings INTERFACE $<$<CXX_COMPILER_ID:GNU>:-Wno-tsan>)
  endif()
elseif(CMAKE_BUILD_TYPE STREQUAL "Release")
  # The program runs as root on what a server sent: it takes what hardening the compiler offers.
  target_compile_options(qd_settings INTERFACE -fstack-protector-strong -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2
    -ffunction-sections -fdata-sections)
  if(CMAKE_SYSTEM_NAME STREQUAL "Linux")
    target_link_options(qd_settings INTERFACE -Wl,-z,relro,-z,now)
  endif()
endif()

# What is linked to this carries the C++ runtime: it starts quicker than one that looks up every symbol of it,
# and runs where another version is installed.
add_library(qd_self_contained INTERFACE)
if(CMAKE_SYSTEM_NAME STREQUAL "Linux" AND CMAKE_BUILD_TYPE STREQUAL "Release")
  target_link_options(qd_self_contained INTERFACE -static-libstdc++ -static-libgcc -Wl,--gc-sections)
endif()

# qd_joined(<variable> <name> <file>...): what is compiled for these sources: with QD_JOIN_SOURCES one text that includes
# all but those with QD_APART. It names no folder of this machine, so that compiler caches know it in every checkout.
function(qd_joined variable name)
  set(apart ${ARGN})
  if(QD_JOIN_SOURCES)
    set(apart)
    set(text "")
    foreach(file IN LISTS ARGN)
      get_source_file_property(is_apart ${file} QD_APART)
      if(is_apart)
        list(APPEND apart ${file})
      else()
        cmake_path(ABSOLUTE_PATH file BASE_DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR} OUTPUT_VARIABLE path)
        cmake_path(RELATIVE_PATH path BASE_DIRECTORY ${PROJECT_SOURCE_DIR})
        string(APPEND text "#include \"${path}\"\n")
      endif()
    endforeach()
    file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/joined/${name}.cpp CONTENT "${text}")
    list(APPEND apart ${PROJECT_BINARY_DIR}/joined/${name}.cpp)
  endif()
  set(${variable} ${apart} PARENT_SCOPE)
endfunction()

# qd_layer(<name> FOLDERS <folder>... SOURCES <file>... [DEPENDS <layer>...] [LIBRARIES <target>...])
# One layer, as an object library: what lies in its folders, but for folders that another layer names. It may
# include the layers it depends on and those below them.
function(qd_layer name)
  cmake_parse_arguments(arg "" "" "FOLDERS;SOURCES;DEPENDS;LIBRARIES" ${ARGN})
  qd_joined(sources ${name} ${arg_SOURCES})
  add_library(qd_${name} OBJECT ${sources})
  target_link_libraries(qd_${name} PUBLIC qd_settings ${arg_LIBRARIES})
  foreach(layer IN LISTS arg_DEPENDS)
    target_link_libraries(qd_${name} PUBLIC qd_${layer})
  endforeach()
endfunction()

# What the tests labelled unit need.
add_custom_target(unit_tests)

# qd_test(<name> [LABEL unit|system|e2e] SOURCES <file>... [LINK <target>...])
# One test program, one ctest entry of the same name.
function(qd_test name)
  cmake_parse_arguments(arg "" "LABEL" "SOURCES;LINK" ${ARGN})
  if(NOT arg_LABEL)
    set(arg_LABEL unit)
  endif()
  qd_joined(sources ${name} ${arg_SOURCES})
  add_executable(${name} ${sources})
  target_link_libraries(${name} PRIVATE ${arg_LINK} qd_test_support GTest::gmock GTest::gtest_main)
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/tests)
  add_test(NAME ${name} COMMAND ${name})
  set_tests_properties(${name} PROPERTIES LABELS ${arg_LABEL} TIMEOUT 300)
  if(arg_LABEL STREQUAL "unit")
    add_dependencies(unit_tests ${name})
  endif()
endfunction()

# qd_shell_test(<name> LABEL <label> COMMAND <command>...)
# A test that is a script. Status 77 means skipped; the script has printed why.
function(qd_shell_test name)
  cmake_parse_arguments(arg "" "LABEL" "COMMAND" ${ARGN})
  add_test(NAME ${name} COMMAND ${arg_COMMAND})
  set_tests_properties(${name} PROPERTIES LABELS ${arg_LABEL} SKIP_RETURN_CODE 77 TIMEOUT 900)
endfunction()
