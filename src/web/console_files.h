// The console's pages (HTML, CSS, JavaScript of src/web/console/), compiled into the program by
// the build, so that an installed program serves them without any file beside it.
#pragma once

#include <string_view>
#include <vector>

namespace clockcomm::web {

struct EmbeddedFile {
  std::string_view name;  // "index.html", "app.js" ...
  std::string_view bytes;
};

// Every file of the console, sorted by name.
const std::vector<EmbeddedFile>& ConsoleFiles();

}  // namespace clockcomm::web
