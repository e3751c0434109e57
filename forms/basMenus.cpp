#include "forms/basMenus.h"

#include <algorithm>
#include <array>
#include <string>
#include <string_view>
#include <vector>

#include "bulk/BulkLoad.h"
#include "forms/FormExchange.h"
#include "forms/basIO.h"
#include "session/SessionState.h"
#include "session/basNvFunctions.h"
#include "session/basNvLibrary.h"

namespace nvadmin {

namespace {

struct MenuLink {
  std::string_view id;
  double row;
  std::string_view text;
  void (*run)();
};

constexpr std::array<MenuLink, 4> kLinks = {{
    {"mx1", 4, "Import 1 Item/Record from TransferItem", ImportItem},
    {"mx2", 6, "Export 1 Item/Record to TransferItem", ExportItem},
    {"mx3", 8, "Export Multiple Item/Records or entire File/Table to TransferItem", ExportMany},
    {"mx4", 10, "Import from TransferBulk (PseudoTape)", BulkLoad},
}};

std::string Draw() {
  constexpr double kLinkColumn = 6;
  std::vector<FormElement> elements = {
      {Builder::kLabel, 1, 0, 0, Session().CurrentAccount, "", kTitleClass},
      {Builder::kLabel, 30, 0, 19, "Admin Menu", "", kTitleClass},
      {Builder::kLabel, 70, 0, 0, EExecute("USER 0"), "", kTitleClass},
      {Builder::kInput, 70, 1.5, 7, "Exit", kExitButton, kButtonClass},
  };
  for (const MenuLink& link : kLinks) {
    elements.push_back({Builder::kLink, kLinkColumn, link.row, 0, std::string(link.text), link.id});
  }
  return DrawElements(elements);
}

}  // namespace

void AdminMenu() {
  PPrint("<TX>OK</TX>", /*lineEnd=*/true);
  std::string handshake;
  IInput(handshake);
  const std::string page = Draw();
  PrintWords({kTxStart, kReplacePage, page});
  while (true) {
    const std::string id = FField(TakeTurn(), "|", 1);
    if (id == kExitButton) break;
    const auto link =
        std::find_if(kLinks.begin(), kLinks.end(), [&id](const MenuLink& row) { return row.id == id; });
    if (link == kLinks.end()) continue;
    link->run();
    PrintWords({"^", kReplacePage, page});
  }
  PPrint(kTerminal, /*lineEnd=*/true);
}

}  // namespace nvadmin
