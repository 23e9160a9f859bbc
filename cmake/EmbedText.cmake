# SPDX-License-Identifier: Apache-2.0
# cmake -D OUTPUT=file.h -D VALUES="NAME=path+path...;..." -P EmbedText.cmake
#
# Writes text files, one or several one after the other, as C++ string constants.
set(text "// Made by cmake/EmbedText.cmake.\n#pragma once\n\n")
foreach(value IN LISTS VALUES)
  string(REGEX MATCH "^([^=]+)=(.*)$" _ "${value}")
  set(name "${CMAKE_MATCH_1}")
  string(REPLACE "+" ";" paths "${CMAKE_MATCH_2}")
  set(content "")
  foreach(path IN LISTS paths)
    file(READ "${path}" part)
    string(APPEND content "${part}")
  endforeach()
  string(APPEND text "inline constexpr char ${name}[] = R\"EMBEDDED(${content})EMBEDDED\";\n")
endforeach()
file(WRITE "${OUTPUT}" "${text}")
