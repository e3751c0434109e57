#include "queries/basTCLX.h"

#include <cstdint>
#include <string>
#include <string_view>

#include "session/Marks.h"
#include "session/SessionState.h"
#include "session/Text.h"
#include "session/basNvLibrary.h"

namespace nvadmin {

namespace {

constexpr std::int32_t kBlockStartLimit = 18;  // a block starts above this line
constexpr std::int32_t kScreenLines = 22;
constexpr std::int32_t kFilledLines = 23;

// The listing's place on the screen.
struct Listing {
  std::int32_t lineCounter = 2;  // lines on the screen since the last clear
  bool quit = false;
};

void FillUpTo(Listing& listing, std::int32_t line) {
  for (; listing.lineCounter < line; ++listing.lineCounter) PPrint("", /*lineEnd=*/true);
}

// Asks, waits for a line and starts a fresh screen; "q" ends the listing.
void BreakPage(Listing& listing, std::string_view prompt) {
  PPrint(Concat({CrLf, prompt}), /*lineEnd=*/false);
  std::string answer;
  IInput(answer);
  PPrint(CursorAt(-1, -1), /*lineEnd=*/false);
  if (ToLower(Trim(answer)) == "q") {
    listing.quit = true;
  } else {
    listing.lineCounter = 0;
  }
}

// Three digits with leading zeros; of a column above 999 the last three.
std::string ColumnNumber(std::int32_t column) {
  const std::string digits = std::to_string(1000 + column % 1000);
  return digits.substr(digits.size() - 3);
}

void PrintItemId(Listing& listing, std::int32_t row, std::string& id) {
  if (listing.lineCounter >= kBlockStartLimit) {
    FillUpTo(listing, kFilledLines);
    BreakPage(listing, "Press any key to continue or ('q' to quit):");
    if (listing.quit) return;
  }
  id = ListItem(0, row);
  PPrint(Concat({"    ", id}), /*lineEnd=*/true);
}

void PrintColumn(Listing& listing, std::int32_t column, std::int32_t row, std::string_view id) {
  if (listing.lineCounter == 0) {
    PPrint(Concat({"    (", id, " ... continued ... )"}), /*lineEnd=*/true);
    listing.lineCounter = 1;
  }
  PPrint(Concat({ColumnNumber(column), " ", ListItem(column, row)}), /*lineEnd=*/true);
}

}  // namespace

void SelectAndSave() {
  const std::string sentence = Session().CmdSentenceText;
  if (EExecute(sentence) == "ERROR") {
    PPrint(Concat({"ERROR: ", ErrorDetail()}), /*lineEnd=*/true);
    return;
  }
  if (EExecute("SAVE-LIST") == "OK") {
    PPrint(Concat({"OK - select list saved with ", std::to_string(ListCount(2)), " item IDs"}),
           /*lineEnd=*/true);
    return;
  }
  PPrint(Concat({"ERROR in SAVE-LIST: ", ErrorDetail()}), /*lineEnd=*/true);
}

void QueryListing() {
  const std::string sentence = Session().CmdSentenceText;
  PPrint(Concat({CursorAt(-1, -1), sentence, CrLf}), /*lineEnd=*/true);
  Listing listing;
  if (EExecute(sentence) == "ERROR") {
    PPrint(Concat({CrLf, ErrorDetail(), CrLf}), /*lineEnd=*/true);
    return;
  }

  const std::int32_t highestColumn = ListCount(1);
  const std::int32_t rows = ListCount(2);
  std::string id;
  for (std::int32_t row = 1; row <= rows; ++row) {
    for (std::int32_t column = 0; column <= highestColumn; ++column) {
      if (column == 0) {
        PrintItemId(listing, row, id);
        if (listing.quit) return;
      } else {
        PrintColumn(listing, column, row, id);
      }
      ++listing.lineCounter;
      if (listing.lineCounter == kScreenLines) {
        BreakPage(listing, "Press any key to continue or 'q' to quit this output: ");
        if (listing.quit) return;
      }
    }
    PPrint("", /*lineEnd=*/true);
    ++listing.lineCounter;
  }

  FillUpTo(listing, kScreenLines);
  PPrint(Concat({CrLf, "******  end of query, press (CR) to return to TCL  ******:"}), /*lineEnd=*/false);
  std::string answer;
  IInput(answer);
}

}  // namespace nvadmin
