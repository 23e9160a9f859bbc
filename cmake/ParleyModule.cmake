# SPDX-License-Identifier: Apache-2.0
# parley_module(NAME SOURCES file... [DEPENDS module-or-target...])
#
# One module of the engine: the sources of src/NAME/src as an object library zx_NAME whose include folder reaches only
# the modules that depend on it, so that the layers of the design are errors to cross.
function(parley_module name)
  cmake_parse_arguments(PARSE_ARGV 1 ARG "" "" "SOURCES;DEPENDS")
  list(TRANSFORM ARG_SOURCES PREPEND "${PROJECT_SOURCE_DIR}/src/${name}/src/")
  add_library(zx_${name} OBJECT ${ARG_SOURCES})
  target_include_directories(zx_${name} PUBLIC "${PROJECT_SOURCE_DIR}/src/${name}/src")
  target_link_libraries(zx_${name} PUBLIC ${ARG_DEPENDS} PRIVATE parley_library_options)
  set_property(GLOBAL APPEND PROPERTY PARLEY_MODULES zx_${name})
endfunction()

# parley_simd_kernels(ARCHITECTURE FLAGS file...)
#
# Sources of src/kernels/src/ARCHITECTURE, for one kind of processor: always optimised, since whatever is not inlined there could be
# linked in where another processor runs it (test/kernels looks for that).
function(parley_simd_kernels architecture flags)
  set(folder "${PROJECT_SOURCE_DIR}/src/kernels/src/${architecture}")
  list(TRANSFORM ARGN PREPEND "${folder}/" OUTPUT_VARIABLE files)
  target_sources(zx_kernels PRIVATE ${files})
  target_include_directories(zx_kernels PRIVATE "${folder}")
  set(options -O3 ${flags})
  if(WIN32) # whose stack is not aligned for vectors of more than 128 bits
    list(APPEND options -Wa,-muse-unaligned-vector-move)
  endif()
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    list(APPEND options -Wno-uninitialized -Wno-maybe-uninitialized) # its header of AVX-512 warns of itself
  endif()
  set_source_files_properties(${files} PROPERTIES COMPILE_OPTIONS "${options}")
endfunction()

# parley_test(NAME SOURCES file... [LIBRARIES target...] [LABEL label])
#
# A GoogleTest program whose tests CTest lists as NAME.Suite.Test. Labels: unit (the default: in a moment, touching nothing),
# slow, system (installs or starts what a machine has once, in a namespace of its own), browser.
function(parley_test name)
  cmake_parse_arguments(PARSE_ARGV 1 ARG "" "LABEL" "SOURCES;LIBRARIES")
  if(NOT ARG_LABEL)
    set(ARG_LABEL unit)
  endif()
  string(REPLACE "." "_" target "test_${name}")
  add_executable(${target} ${ARG_SOURCES})
  target_link_libraries(${target} PRIVATE ${ARG_LIBRARIES} parley_test_support GTest::gmock GTest::gtest_main
                                          parley_warnings)
  # Compiling tests takes longer than running them. Fixtures are in no header, though they come by an #include then.
  set_target_properties(${target} PROPERTIES UNITY_BUILD ${PARLEY_UNITY} UNITY_BUILD_BATCH_SIZE 8)
  target_compile_options(${target} PRIVATE $<IF:$<CONFIG:Release,RelWithDebInfo>,-O1,-O0>
                                           $<$<CXX_COMPILER_ID:GNU>:-Wno-subobject-linkage>)
  set(when POST_BUILD)
  if(CMAKE_CROSSCOMPILING) # where what runs them need not be there, or not be ready
    set(when PRE_TEST)
  endif()
  gtest_discover_tests(${target} TEST_PREFIX "${name}." DISCOVERY_TIMEOUT 60 DISCOVERY_MODE ${when}
                       PROPERTIES TIMEOUT 300 LABELS ${ARG_LABEL} SKIP_REGULAR_EXPRESSION "\\[  SKIPPED \\]")
endfunction()

# parley_unpack(TARGET ARCHIVE FOLDER): a target that has the archive's files in the folder, unpacked again when it changes.
function(parley_unpack target archive folder)
  add_custom_command(OUTPUT "${folder}.unpacked" DEPENDS "${archive}"
    COMMAND "${CMAKE_COMMAND}" -E rm -rf "${folder}"
    COMMAND "${CMAKE_COMMAND}" -E make_directory "${folder}"
    COMMAND "${CMAKE_COMMAND}" -E chdir "${folder}" "${CMAKE_COMMAND}" -E tar xf "${archive}"
    COMMAND "${CMAKE_COMMAND}" -E touch "${folder}.unpacked"
    VERBATIM)
  add_custom_target(${target} DEPENDS "${folder}.unpacked")
endfunction()

# parley_program_test(NAME LABEL COMMAND...): a test that is a program of its own; a status of 77 is a skip.
function(parley_program_test name label)
  add_test(NAME ${name} COMMAND ${ARGN} WORKING_DIRECTORY "${PROJECT_SOURCE_DIR}" COMMAND_EXPAND_LISTS)
  set_tests_properties(${name} PROPERTIES LABELS ${label} SKIP_RETURN_CODE 77 TIMEOUT 300)
  if(NOT label STREQUAL unit) # first, so that others run beside them
    set_tests_properties(${name} PROPERTIES COST 100)
  endif()
endfunction()

# parley_header_library(PACKAGE TARGET HEADER [VERSION]): a library of headers alone. For another machine they are this one's, copied away from
# those that must not be mixed with the other's.
function(parley_header_library package target header)
  if(NOT CMAKE_CROSSCOMPILING)
    find_package(${package} ${ARGN} REQUIRED GLOBAL)
    return()
  endif()
  find_path(${package}_headers ${header} PATHS /usr/include /usr/local/include REQUIRED NO_CMAKE_FIND_ROOT_PATH)
  get_filename_component(folder "${header}" DIRECTORY)
  file(COPY "${${package}_headers}/${folder}" DESTINATION "${CMAKE_CURRENT_BINARY_DIR}/include")
  add_library(${target} INTERFACE IMPORTED GLOBAL)
  set_target_properties(${target} PROPERTIES INTERFACE_INCLUDE_DIRECTORIES "${CMAKE_CURRENT_BINARY_DIR}/include")
endfunction()
