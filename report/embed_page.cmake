# Writes OUT, a C++ source holding the page files (report.html, .css, .js in PAGE_DIR) as string
# constants, so the command carries its page and the page stays three files that can be read and
# tested as they are.
set(delimiter "pc_page")
set(body "// Generated from ${PAGE_DIR} by embed_page.cmake; edit the page files, not this.\n#include \"page.hpp\"\n\nnamespace pc::report::page {\n")
foreach(part html css js)
  file(READ "${PAGE_DIR}/report.${part}" text)
  string(FIND "${text}" ")${delimiter}\"" clash)
  if(NOT clash EQUAL -1)
    message(FATAL_ERROR "${PAGE_DIR}/report.${part} holds \")${delimiter}\", which ends the string it is embedded in")
  endif()
  string(TOUPPER "${part}" name)
  string(SUBSTRING "${name}" 0 1 first)
  string(SUBSTRING "${part}" 1 -1 rest)
  string(APPEND body "const std::string_view k${first}${rest} = R\"${delimiter}(${text})${delimiter}\";\n")
endforeach()
string(APPEND body "} // namespace pc::report::page\n")
file(WRITE "${OUT}.new" "${body}")
file(COPY_FILE "${OUT}.new" "${OUT}" ONLY_IF_DIFFERENT)
