// The HTML form of LIST and SORT: one table in a string. Prints nothing and asks nothing; the page around the
// table is the caller's.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace nvadmin {

// Runs the report sentence and makes its table. On a native store (a datastore word that begins with "MV") it
// is HtmlRowsetReport's. `body` becomes the table, or the file's name while no table is finished; `message` a
// text for the caller to show, empty when all went well. `mode` is "HTML", the only form there is. `limit`:
// most items shown, below 1 no limit; a report that reaches it gets a message, also when no further item
// would have followed. Returns the engine's reply. A total that leaves its range is a failure that names the
// column. A report without columns under ID-SUPP has a row without cells for the heading and for each item.
std::string HtmlReport(std::string_view sentence, std::string& body, std::string& message,
                       std::string_view mode, std::int32_t limit);

// The same for a store where the engine has computed the cells: takes the whole report from the result grid
// and reads neither file nor dictionary. A sentence that fails leaves `body` alone, without a message.
std::string HtmlRowsetReport(std::string_view sentence, std::string& body, std::string& message,
                             std::string_view mode, std::int32_t limit);

}  // namespace nvadmin
