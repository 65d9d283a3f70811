# Writes the files of the page as string constants:  cmake -D folder=FOLDER -D output=FILE.cpp -P embed_page.cmake
#
# A string literal may be at most 65535 bytes long in standard C++, so each file becomes several, which the compiler
# joins.
set(chunk 16000)
set(source "#include \"tools/vqgas/report/page_write.h\"\n")
foreach(name page.html page.css charts.js tree.js view.js main.js)
  string(REGEX REPLACE "\\.js$" "_js" constant "page_${name}")
  string(REGEX REPLACE "^page_page\\." "page_" constant "${constant}")
  file(READ ${folder}/${name} text)
  string(LENGTH "${text}" length)
  string(APPEND source "\nconst std::string_view ${constant} =")
  set(at 0)
  while(at LESS length)
    string(SUBSTRING "${text}" ${at} ${chunk} part)
    string(APPEND source "\n    R\"vq_page(${part})vq_page\"")
    math(EXPR at "${at} + ${chunk}")
  endwhile()
  string(APPEND source ";\n")
endforeach()
file(WRITE ${output} "${source}")
