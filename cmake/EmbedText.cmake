# cmake -D OUTPUT=file.h -D VALUES="NAME=path;..." -P EmbedText.cmake
#
# Writes text files as C++ string constants.
set(text "// Made by cmake/EmbedText.cmake.\n#pragma once\n\n")
foreach(value IN LISTS VALUES)
  string(REGEX MATCH "^([^=]+)=(.*)$" _ "${value}")
  set(name "${CMAKE_MATCH_1}")
  file(READ "${CMAKE_MATCH_2}" content)
  string(APPEND text "inline constexpr char ${name}[] = R\"EMBEDDED(${content})EMBEDDED\";\n")
endforeach()
file(WRITE "${OUTPUT}" "${text}")
