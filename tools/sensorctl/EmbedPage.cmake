# Writes the settings page into a C++ source as a byte array, so that
# `sensorctl serve` carries its page and needs no file beside the binary.
# The page names the controller's keys by their names; their numbers come
# from the library's key list (KEYS, keyval/SensorKeys.h), written into the
# page here, so that the key list stays the one table of them.
# Usage: cmake -DINPUT=page.html -DKEYS=SensorKeys.h -DOUTPUT=WebPage.cpp -P EmbedPage.cmake
file(READ "${KEYS}" key_list)
string(REGEX MATCHALL "(ROW|NONE)\\((KEY_[A-Z0-9_]+), *[0-9]+" rows "${key_list}")
set(keys "")
foreach(row IN LISTS rows)
  string(REGEX REPLACE "^(ROW|NONE)\\((KEY_[A-Z0-9_]+), *([0-9]+)$" "\\2:\\3" pair "${row}")
  string(APPEND keys "${pair},")
endforeach()
list(LENGTH rows count)
if(count LESS 100)
  message(FATAL_ERROR "EmbedPage: only ${count} keys read from ${KEYS}")
endif()
file(READ "${INPUT}" page)
string(FIND "${page}" "/*@KEY_LIST@*/{}" at)
if(at LESS 0)
  message(FATAL_ERROR "EmbedPage: ${INPUT} has no /*@KEY_LIST@*/{} to fill")
endif()
string(REPLACE "/*@KEY_LIST@*/{}" "{${keys}}" page "${page}")
file(WRITE "${OUTPUT}.page" "${page}")
file(READ "${OUTPUT}.page" hex HEX)
file(REMOVE "${OUTPUT}.page")
string(LENGTH "${hex}" length)
set(bytes "")
set(offset 0)
# 24 bytes a line keeps the generated file readable.
while(offset LESS length)
  string(SUBSTRING "${hex}" ${offset} 48 chunk)
  string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," chunk "${chunk}")
  string(APPEND bytes "${chunk}\n")
  math(EXPR offset "${offset} + 48")
endwhile()
file(WRITE "${OUTPUT}.tmp"
  "// Generated at build time from tools/sensorctl/web/index.html.\n"
  "#include \"Serve.h\"\n\nnamespace sensorctl {\nnamespace {\n"
  "const unsigned char kPageBytes[] = {\n${bytes}0};\n} // namespace\n\n"
  "const char* const kWebPage = reinterpret_cast<const char*>(kPageBytes);\n\n"
  "} // namespace sensorctl\n")
file(RENAME "${OUTPUT}.tmp" "${OUTPUT}")
