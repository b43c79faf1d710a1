# Writes OUTPUT, a C++ file holding every file of DIR as bytes, so that the program serves its
# console when installed alone. Run by the build whenever a file of DIR changes.
file(GLOB names RELATIVE ${DIR} ${DIR}/*)
list(SORT names)
set(arrays "")
set(table "")
set(index 0)
foreach(name ${names})
  file(READ ${DIR}/${name} hex HEX)
  string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${hex}")
  string(REGEX REPLACE "(0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,)" "\\1\n    " bytes "${bytes}")
  string(APPEND arrays "const unsigned char kFile${index}[] = {\n    ${bytes}0x00};\n")
  string(APPEND table "      {\"${name}\", {reinterpret_cast<const char*>(kFile${index}), sizeof kFile${index} - 1}},\n")
  math(EXPR index "${index} + 1")
endforeach()
file(WRITE ${OUTPUT}.tmp "// Made by cmake/embed_files.cmake from ${DIR}; not to be edited.
#include \"web/console_files.h\"

namespace clockcomm::web {
namespace {

${arrays}
}  // namespace

const std::vector<EmbeddedFile>& ConsoleFiles() {
  static const std::vector<EmbeddedFile> files = {
${table}  };
  return files;
}

}  // namespace clockcomm::web
")
# Only a changed file is written anew, so that an unchanged console compiles nothing again.
file(COPY_FILE ${OUTPUT}.tmp ${OUTPUT} ONLY_IF_DIFFERENT)
file(REMOVE ${OUTPUT}.tmp)
