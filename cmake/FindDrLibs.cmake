# SPDX-License-Identifier: Apache-2.0
# Finds dr_libs, the single-header decoders dr_wav, dr_flac and dr_mp3.
#
#   DR_LIBS_INCLUDE_DIR   cache variable: the folder that holds dr_wav.h, for a copy in an unusual place
#   DrLibs::DrLibs        imported target with that include folder
# Headers alone, the same for every machine: the host's serve cross builds too.
find_path(DR_LIBS_INCLUDE_DIR dr_wav.h PATHS /usr/local/include /usr/include PATH_SUFFIXES dr_libs
  CMAKE_FIND_ROOT_PATH_BOTH DOC "Folder that holds dr_wav.h")
mark_as_advanced(DR_LIBS_INCLUDE_DIR)

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(
  DrLibs
  REQUIRED_VARS DR_LIBS_INCLUDE_DIR
  REASON_FAILURE_MESSAGE "run scripts/install-deps, or pass -DDR_LIBS_INCLUDE_DIR=<folder of dr_wav.h>")

if(DrLibs_FOUND AND NOT TARGET DrLibs::DrLibs)
  add_library(DrLibs::DrLibs INTERFACE IMPORTED)
  target_include_directories(DrLibs::DrLibs SYSTEM INTERFACE "${DR_LIBS_INCLUDE_DIR}")
endif()
