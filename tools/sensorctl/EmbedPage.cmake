# Writes the settings page into a C++ source as a byte array, so that
# `sensorctl serve` carries its page and needs no file beside the binary.
# Usage: cmake -DINPUT=page.html -DOUTPUT=WebPage.cpp -P EmbedPage.cmake
file(READ "${INPUT}" hex HEX)
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
