// The files of the browser page, which the build puts into the program: a fixed table.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace nvadmin::host {

struct WebFile {
  std::string_view name;   // as a browser asks for it, behind the "/"
  std::string_view type;   // media type
  std::string_view bytes;  // for the program's life
};

// Null when there is none of this name.
const WebFile* FindWebFile(std::string_view name);

// The page with its places {{name}} filled in, the texts escaped for HTML; a place without a text is left
// empty.
std::string FillPage(std::string_view page,
                     const std::vector<std::pair<std::string_view, std::string_view>>& places);

// The build's table.
struct EmbeddedFile {
  const char* name;
  const char* type;
  const char* begin;
  const char* end;
};
const std::vector<EmbeddedFile>& EmbeddedFiles();

}  // namespace nvadmin::host
