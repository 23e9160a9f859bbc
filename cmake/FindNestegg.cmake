# SPDX-License-Identifier: Apache-2.0
# Finds nestegg, the WebM demuxer: its header, and its single source file or a library of it.
#
#   NESTEGG_INCLUDE_DIR   cache variable: the folder that holds nestegg/nestegg.h
#   NESTEGG_SOURCE        cache variable: nestegg.c, which is preferred: the build then compiles it with its own flags
#   NESTEGG_LIBRARY       cache variable: the library
#   Nestegg::Nestegg      imported target with the include folder, and the library where there is no source
find_path(NESTEGG_INCLUDE_DIR nestegg/nestegg.h DOC "Folder that holds nestegg/nestegg.h")
get_filename_component(_nestegg_prefix "${NESTEGG_INCLUDE_DIR}" DIRECTORY)
find_file(NESTEGG_SOURCE nestegg.c HINTS "${_nestegg_prefix}/share/nestegg" NO_DEFAULT_PATH DOC "nestegg.c")
find_library(NESTEGG_LIBRARY nestegg DOC "The nestegg library")
mark_as_advanced(NESTEGG_INCLUDE_DIR NESTEGG_SOURCE NESTEGG_LIBRARY)
set(_nestegg_code "${NESTEGG_SOURCE}")
if(NOT NESTEGG_SOURCE)
  set(_nestegg_code "${NESTEGG_LIBRARY}")
endif()

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(
  Nestegg
  REQUIRED_VARS _nestegg_code NESTEGG_INCLUDE_DIR
  REASON_FAILURE_MESSAGE "run scripts/install-deps, pass -DNESTEGG_INCLUDE_DIR=... and -DNESTEGG_SOURCE=... or \
-DNESTEGG_LIBRARY=..., or leave WebM out with -DPARLEY_WITH_WEBM=OFF")

if(Nestegg_FOUND AND NOT TARGET Nestegg::Nestegg)
  add_library(Nestegg::Nestegg INTERFACE IMPORTED)
  target_include_directories(Nestegg::Nestegg SYSTEM INTERFACE "${NESTEGG_INCLUDE_DIR}")
  if(NOT NESTEGG_SOURCE)
    target_link_libraries(Nestegg::Nestegg INTERFACE "${NESTEGG_LIBRARY}")
  endif()
endif()
