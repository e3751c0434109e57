// Transfer files from one account into another, as a browser works the load form: the real add-in on the real
// engine.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <deque>
#include <filesystem>
#include <functional>
#include <map>
#include <random>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "engine/Marks.h"
#include "engine/stores/OpenStore.h"
#include "engine/stores/TableNames.h"
#include "host/TclSession.h"
#include "samples/Demo.h"
#include "tests/host/BrowserPort.h"
#include "tests/support/MariaServer.h"
#include "tests/support/TemporaryFolder.h"

namespace nvadmin::host {
namespace {

using Items = std::map<std::string, std::string>;

class BulkTransfer : public testing::Test {
 protected:
  BulkTransfer() {
    engine::Home::Make(folder.Path());
    std::string error;
    engine::Home made(folder.Path());
    for (const auto& [name, word] : targets) {
      const std::string address = name == kOnServer ? server->Address() : "";
      made.AddAccount({std::string(name), std::string(word), address}, error);
    }
  }

  // What a session shows for these lines.
  std::string Serve(std::string_view account, std::deque<std::string> lines) {
    BrowserPort port;
    port.lines = std::move(lines);
    port.onProgress = onProgress;
    std::thread([&] {
      engine::Home home(folder.Path());
      TclSettings settings;
      settings.account = account;
      settings.user = "anna";
      settings.prompts = true;
      settings.onLoad = [this](std::string_view line) {
        if (logIsFull) throw std::runtime_error("no space left for the log");
        log.append(line).append("\n");
      };
      TclSession(home, port, std::move(settings)).Run();
    }).join();
    return port.received;
  }
  // Loads a transfer file; `choices` are replies to the form, `answers` what is typed during the load,
  // `before` sentences that precede it.
  std::string Load(std::string_view account, const std::string& name, std::deque<std::string> choices = {},
                   std::deque<std::string> answers = {}, std::deque<std::string> before = {}) {
    std::deque<std::string> lines = std::move(before);
    for (const std::string& line : {std::string("MENU"), std::string(), std::string("mx4|"), "fx1|" + name})
      lines.push_back(line);
    lines.insert(lines.end(), choices.begin(), choices.end());
    lines.push_back("bx1|");
    lines.insert(lines.end(), answers.begin(), answers.end());
    for (const char* line : {"", "bx2|", "LOAD-REPORT"}) lines.push_back(line);
    return Serve(account, std::move(lines));
  }

  std::unique_ptr<engine::Store> Open(std::string_view account) {
    const engine::Home home(folder.Path());
    return engine::OpenStore(home, home.FindAccount(account).value());
  }
  // Without empty attributes at the ends, which tables don't keep.
  static Items Read(engine::Store& store, const std::string& name) {
    Items items;
    engine::TableHandle table = 0;
    std::string error;
    EXPECT_TRUE(store.OpenTable(name, table, error)) << error;
    if (!error.empty()) return items;
    store.Scan(table, {{}, true}, [&](std::string_view id, auto values) {
      return items.emplace(id, values[0].substr(0, values[0].find_last_not_of(engine::kAttributeMark) + 1))
          .second;
    });
    return items;
  }
  static void Write(engine::Store& store, const std::string& name, const Items& items) {
    engine::TableHandle table = 0;
    std::string error;
    store.CreateTable(name, 0, error);
    ASSERT_TRUE(store.OpenTable(name, table, error)) << error;
    store.BeginWrites();
    for (const auto& [id, item] : items) EXPECT_TRUE(store.Write(table, id, item, error)) << error;
    store.Commit();
  }

  // Text of a transfer file: "|" is a line end, "^" and "]" are marks.
  static std::string Lines(std::string_view text) {
    std::string lines;
    for (const char letter : text) {
      if (letter == '|') lines += "\r\n";
      if (letter != '|') lines += letter == '^' ? '\xFE' : letter == ']' ? '\xFD' : letter;
    }
    return lines;
  }

  static constexpr std::string_view kOnServer = "SRV";
  // An account of every datastore word, and one on a server where there is one.
  static std::map<std::string_view, std::string_view> Targets() {
    std::map<std::string_view, std::string_view> all = {
        {"JETS", "JET"}, {"MS", "MSSQL"}, {"MY", "MYSQL"}, {"ORA", "ORACLE"}, {"NAT", "MVNAT"}};
    if (MariaDatabase::IsThere()) all[kOnServer] = "MYSQL";
    return all;
  }
  const std::map<std::string_view, std::string_view> targets = Targets();
  const std::unique_ptr<MariaDatabase> server =
      MariaDatabase::IsThere() ? std::make_unique<MariaDatabase>() : nullptr;
  TemporaryFolder folder;
  std::string log;
  bool logIsFull = false;
  std::function<void()> onProgress;
};

// Items, and an ID, of all bytes; wide, long and empty ones; and files whose names the loader changes.
std::map<std::string, Items> Wild() {
  std::string allBytes, id;
  for (int byte = 0; byte < 256; ++byte) allBytes += static_cast<char>(byte);
  std::map<std::string, Items> files;
  Items& bytes = files["WILD"];
  for (int byte = 0; byte < 256; ++byte) {
    if (static_cast<char>(byte) != engine::kAttributeMark) id += static_cast<char>(byte);
    if (id.size() == 50 || byte == 255) bytes[std::exchange(id, {})] = allBytes + allBytes;
  }
  bytes["\n"] = "\r\n\r\n`C\0";
  bytes["`"] = "";
  bytes["long"] = std::string(200'000, 'x') + engine::kAttributeMark + "`";
  Items& wide = files["WIDE"];
  wide["wide"] = std::string(1'300, engine::kAttributeMark) + "end";
  files["A,B,"]["1"] = "commas";
  files["TABLE"]["1"] = "a word that is taken";
  files["x;DROP TABLE \"y\""]["1"] = "no SQL";
  files["MY.FILE"]["<FILE_DATA"] = "one byte short of an opening line";
  files["MD"]["1"] = "its own dictionary";
  files["DICT MD"]["2"] = "another";
  files["DICT ALONE"]["1"] = "without a file";
  files["_dict"]["1"] = "a dictionary by its name alone";
  return files;
}

TEST_F(BulkTransfer, EveryFileComesBackInEveryKindOfAccount) {
  {
    engine::Home home(folder.Path());
    std::ostringstream progress;
    samples::MakeDemoAccounts(home, progress);
  }
  EXPECT_TRUE(std::filesystem::exists(folder / "TransferBulk/DEMO"));
  const std::unique_ptr<engine::Store> native = Open("DEMO.MV"), relational = Open("DEMO");
  for (const auto& [name, items] : Wild()) {
    Write(*native, name, items);
    Write(*relational, name, items);
  }
  for (const std::string_view source : {"DEMO", "DEMO.MV"}) {
    engine::Store& store = source == "DEMO" ? *relational : *native;
    const std::string file = source == "DEMO" ? "TABLES" : "NATIVE";
    EXPECT_NE(Serve(source, {"BULK-SAVE " + file + " *"}).find("transfer file '" + file + "' written"),
              std::string::npos);
    const std::vector<std::string> names = store.TableNames(/*withDictionaries=*/true);
    for (const auto& [target, word] : targets) {
      const std::string shown = Load(target, file, {"fx3|2"});
      EXPECT_NE(shown.find("PROCESS COMPLETE"), std::string::npos) << shown.substr(shown.size() - 500);
      EXPECT_EQ(shown.find("refused"), std::string::npos) << shown.substr(shown.find("refused") - 500);
      const std::unique_ptr<engine::Store> loaded = Open(target);
      for (const std::string& name : names) {
        EXPECT_TRUE(Read(*loaded, engine::MapTableName(name)) == Read(store, name))
            << source << " to " << target << ": " << name;
      }
      EXPECT_EQ(loaded->TableNames(true).size(), names.size()) << target;
    }
  }
  const std::unique_ptr<engine::Store> loaded = Open("MS");
  engine::TableHandle table = 0;
  std::string error;
  ASSERT_TRUE(loaded->OpenTable("orders", table, error));
  EXPECT_EQ(loaded->Describe(table).layout, engine::Layout::kColumns) << "made to size";
}

TEST_F(BulkTransfer, WhatCannotBeSavedIsTold) {
  const std::unique_ptr<engine::Store> store = Open("NAT");
  Write(*store, "X", {{"<FILE_DICT>", "lost"}, {"kept", "1"}, {std::string(61, 'k'), "1"}});
  Write(*store, "A.B", {});
  Write(*store, "A-B", {});
  folder.Put("TransferBulk/KEPT", "as it was");
  const std::pair<std::string_view, std::string_view> rows[] = {
      {"BULK-SAVE KEPT X", "lacks 1 item"},
      {"BULK-SAVE F X", "60 characters at most; 1 is longer"},
      {"BULK-SAVE F A.B A-B", "has its name when both are loaded: a_b"},
      {"BULK-SAVE F X DICT DICT X", "is not in account NAT"},
      {"BULK-SAVE F X NOWHERE", "'NOWHERE' is not in account NAT"},
      {"BULK-SAVE ../F X", "can't be the name"},
      {"BULK-SAVE a\\b X", "can't be the name"},
      {"BULK-SAVE .hidden X", "can't be the name"},
      {"BULK-SAVE F", "BULK-SAVE name"},
      {"BULK-SAVE F * X", "X"},
  };
  for (const auto& [sentence, refusal] : rows) {
    const std::string shown = Serve("NAT", {std::string(sentence)});
    EXPECT_NE(shown.find(refusal), std::string::npos) << sentence << ": " << shown;
  }
  EXPECT_NE(folder.Text("TransferBulk/KEPT").find("kept\xFE"), std::string::npos);
  std::size_t files = 0;
  for (const auto& entry : std::filesystem::directory_iterator(folder / "TransferBulk"))
    files += entry.exists();
  EXPECT_EQ(files, 2U) << "a failed one left its hidden file";
}

// As wide as each datastore's sentences get, every attribute filled, with columns of each type that a
// sentence can have: loaded, read, reported on, changed, and in SQL as far as there are columns.
TEST_F(BulkTransfer, FilledTablesOfAllWidths) {
  constexpr std::pair<int, std::string_view> kTypes[] = {{200, "300"}, {250, "100"}, {300, "11000"}};
  constexpr std::string_view kWidths[] = {"0", "9"};
  const std::string id(56, 'k');
  const auto valueOf = [](int attribute) { return "v" + std::to_string(attribute) + "........"; };
  std::string lines, records;
  std::map<std::string, Items> files;
  for (const int attributes : {1, 150, 151, 254, 700, 1200}) {
    for (const auto& [scale, width] : kTypes) {
      const std::string name = "W" + std::to_string(attributes) + "S" + std::to_string(scale);
      const std::string count = std::to_string(attributes);
      std::string item, widths, flags;
      for (int attribute = 1; attribute <= attributes; ++attribute) {
        if (attribute > 1) item += '^', widths += ']', flags += ']';
        item += valueOf(attribute);
        widths += attribute % 3 == 0 ? width : kWidths[attribute % 3 - 1];
        flags += attribute % 2 == 0 ? "Y" : "";
      }
      files[engine::MapTableName(name)] = {{id, Lines(item)}, {"1", "short"}};
      lines.append("<FILE_DATA>" + name + "|" + id + "^" + item + "|1^short|</FILE_DATA>|");
      records.append(name + "^2^" + std::to_string(scale) + "^" + count + "]" + count + "]" + count + "^" +
                     widths + "^" + flags + "^56|");
    }
  }
  folder.Put("TransferBulk/F", Lines(lines + "<FILE_STATISTICS>|" + records + "</FILE_STATISTICS>|"));
  for (const auto& [target, word] : targets) {
    SCOPED_TRACE(target);
    const std::string shown = Load(target, "F");
    EXPECT_NE(shown.find("PROCESS COMPLETE"), std::string::npos) << shown.substr(shown.size() - 500);
    EXPECT_EQ(shown.find("refused"), std::string::npos);
    const std::unique_ptr<engine::Store> store = Open(target);
    for (const auto& [name, wanted] : files) {
      EXPECT_TRUE(Read(*store, name) == wanted) << name;
      engine::TableHandle table = 0;
      std::string error, value;
      ASSERT_TRUE(store->OpenTable(name, table, error)) << error;
      const int attributes = std::stoi(name.substr(1));
      for (const int attribute : {1, 149, 150, 151, 152, attributes, attributes + 1}) {
        EXPECT_TRUE(store->ReadAttribute(table, id, attribute, value));
        EXPECT_EQ(value, attribute > attributes ? "" : valueOf(attribute)) << name;
      }
    }
    const std::pair<const char*, const char*> typed[] = {
        {"SELECT W1200S200 WITH A1200 = 'v1200........'", "saved with 1 item IDs"},
        {"LIST W1200S200 A1 A1200", "<td>v1........</td><td>v1200........</td></tr>"},
        {"PUT W1200S200 1 1200 changed", "attribute 1200 of item '1' written"},
        {"CT W1200S200 1", "\n1200 changed"}};
    for (const auto& [sentence, want] : typed)
      EXPECT_NE(Serve(target, {sentence}).find(want), std::string::npos)
          << sentence << Serve(target, {sentence});
  }
  if (server == nullptr) return;
  // SQL has the columns that there are.
  const std::pair<const char*, const char*> typed[] = {
      {"UPDATE w1200s200 SET A150 = 'new' WHERE A1 = 'short'", "1 row(s) changed"},
      {"SELECT A0, A1 FROM w1200s200 WHERE A150 = 'new'", "<td>1</td><td>short</td>"},
      {"SELECT A151 FROM w1200s200",
       "Unknown column 'A151' in 'SELECT' (SQL reaches the columns A0 to A150 at most; LIST and SELECT of "
       "the query "
       "language reach all)"},
      {"SELECT A254 FROM w254s300", "SQL reaches the columns A0 to A150 at most"}};
  for (const auto& [sentence, want] : typed)
    EXPECT_NE(Serve(kOnServer, {sentence}).find(want), std::string::npos)
        << sentence << Serve(kOnServer, {sentence});
}

// Numbers that are missing, negative, huge or none at all; up to 5,000 columns; names that are SQL words or
// hold quotes and semicolons. Whatever table is made of it takes an item, and nothing else happens.
TEST_F(BulkTransfer, AnyRecordMakesATable) {
  constexpr std::string_view kNumbers[] = {
      "",    "0",  "1",  "2",   "14",  "35", "36",  "70",  "99",   "150",   "151",
      "254", "-1", "-7", "999", "2.5", "x",  "1e9", "300", "1201", "10001", "99999999999999999999"};
  constexpr std::string_view kNames[] = {
      "ORDER", "SELECT", "A B", "O'NEIL",           "\"Q\"", "X;DROP TABLE KEPT",
      "T) --", "1",      "$",   "A,(A0 VARCHAR(5)", "[X]",   "IF NOT EXISTS KEPT",
      "Q ",    "`R`",    " L"};
  const unsigned seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  const auto pick = [&random](const auto& table) { return std::string(table[random() % std::size(table)]); };
  const auto several = [&](std::size_t count, const auto& table) {
    std::string values;
    for (std::size_t value = 0; value < count; ++value) values += pick(table) + engine::kValueMark;
    return values;
  };
  constexpr std::string_view kFlags[] = {"Y", "", "y"};
  constexpr std::string_view kCounts[] = {"",    "0",   "1",   "-3",   "17",   "99",   "254", "255",
                                          "700", "701", "999", "1200", "1201", "5000", "x",   "99999999999"};
  constexpr std::string_view kKinds[] = {"", "2", "100", "101", "-1", "1.0", "x"};  // 1 is a dictionary
  constexpr std::size_t kRecords = 60;
  std::string items, records;
  for (std::size_t number = 0; number < kRecords; ++number) {
    const std::string name =
        number < std::size(kNames) ? std::string(kNames[number]) : "T" + std::to_string(number);
    const std::size_t widths = random() % 4 == 0 ? 1'300 : random() % 20;
    items += "<FILE_DATA>" + name + "\r\n1\xFEx\r\n";
    records += name;
    for (const std::string& attribute : {pick(kKinds), pick(kNumbers), several(3, kCounts),
                                         several(widths, kNumbers), several(widths, kFlags), pick(kNumbers)})
      records += engine::kAttributeMark + attribute;
    records += "\r\n";
  }
  folder.Put("TransferBulk/F", items + "<FILE_STATISTICS>\r\n" + records + "</FILE_STATISTICS>\r\n");
  for (const auto& [target, word] : targets) {
    // The server takes no name that ends in a blank or in what it takes for one.
    const std::size_t refused = target == kOnServer ? 2 : 0;
    Serve(target, {"CREATE-FILE KEPT"});
    const std::string shown = Load(target, "F", {}, std::deque<std::string>(refused));
    EXPECT_NE(shown.find("PROCESS COMPLETE"), std::string::npos)
        << target << shown.substr(shown.size() - 300);
    std::size_t failures = 0, reasons = 0;
    for (std::size_t at = 0; (at = shown.find("Failed to create", at)) != std::string::npos; ++at) ++failures;
    for (std::size_t at = 0; (at = shown.find("' ends in a blank, ", at)) != std::string::npos; ++at)
      ++reasons;
    EXPECT_EQ(failures, refused) << target << shown;
    EXPECT_EQ(reasons, refused) << target << shown;
    const std::string made = std::to_string(kRecords - refused);
    EXPECT_NE(shown.find("Total" + std::string(42, ' ') + made + std::string(10, ' ') + made),
              std::string::npos)
        << target << shown.substr(shown.rfind("Account"));
    engine::TableHandle kept = 0;
    std::string error;
    EXPECT_TRUE(Open(target)->OpenTable("kept", kept, error)) << error;
  }
}

// Of a file that ends anywhere the lines that are there are loaded, the last one as far as it goes.
TEST_F(BulkTransfer, FileCutAtEveryByte) {
  const std::string whole =
      Lines("<FILE_DATA>P|1^one|22^two`Ltwo|</FILE_DATA>|<FILE_STATISTICS>|P^9^9^2]2]2|</FILE_STATISTICS>|");
  const std::size_t firstItem = whole.find('1');
  const std::size_t record = whole.find("P\xFE");
  const Items items = {{"1", "one"}, {"22", "two\ntwo"}};
  for (std::size_t length = 0; length <= whole.size(); ++length) {
    folder.Put("TransferBulk/F", whole.substr(0, length));
    const std::string shown = Load("MS", "F", {}, {""}, {"DELETE-FILE P"});
    const bool hasRecord = length > record;
    EXPECT_NE(shown.find("PROCESS COMPLETE"), std::string::npos) << length << shown;
    EXPECT_EQ(shown.find("Cannot find target 'p'") != std::string::npos, !hasRecord && length + 2 > firstItem)
        << length;
    EXPECT_EQ(shown.find("Successfully created 'p'") != std::string::npos, hasRecord) << length;
    if (hasRecord) {
      EXPECT_EQ(Read(*Open("MS"), "p"), items) << length;
    }
  }
  // Into a table that is there, what is cut off is missing from the last item alone.
  folder.Put("TransferBulk/F", whole.substr(0, whole.find("`L") + 1));
  Load("MS", "F", {}, {}, {"CLEAR-FILE P"});
  EXPECT_EQ(Read(*Open("MS"), "p"), (Items{{"1", "one"}, {"22", "two"}}));
}

TEST_F(BulkTransfer, BadFilesEndInAMessage) {
  using namespace std::string_literals;
  struct Row {
    std::string_view name;
    std::string file;
    std::string_view shown;
    Items items;  // of P afterwards; none: there is no P
  };
  const Items one = {{"1", "x"}};
  const std::string statistics = "<FILE_STATISTICS>|P^9^9^2|";
  const std::string zeros = "<FILE_\0 block mark.|<FILE_DATA>P\0|1^x\0y|\0 2345678901 2^z\0\0|\0|"s;
  const std::string tooLong =
      "<FILE_DATA>P|" + std::string(61, 'k') + "^x|1^x|2^x" + std::string(99, '^') + "x|";
  const Row rows[] = {
      {"LF alone ends no line", "<FILE_DATA>P\n1^x\n</FILE_DATA>\n<FILE_STATISTICS>\n", "COMPLETE", {}},
      {"CR alone does", "<FILE_DATA>P\r1^x\r<FILE_STATISTICS>\rP^9^9^2\r", "Type-C with 3 fields", one},
      {"no statistics", "<FILE_DATA>P|1^x|", "Cannot find target 'p' so skip", {}},
      {"statistics without an end", "<FILE_DATA>P|1^x|" + statistics, "COMPLETE", one},
      {"two openings", "<FILE_DATA>Q|<FILE_DATA>P|1^x|" + statistics, "COMPLETE", one},
      {"commas", "<FILE_DATA>,,|2^x|<FILE_DATA>P|1^x|" + statistics + ",,^9|", "table needs a name", one},
      {"characters 0", zeros + statistics, "COMPLETE", {{"1", "x"}, {" 2", "z"}}},
      {"one in a name", "<FILE_DATA>P|1^x|" + statistics + "Q`0^9|", "can't hold a character 0", one},
      {"backquotes", "<FILE_DATA>P`|1^x`|`|2`^y``|" + statistics, "COMPLETE", {{"1", "x"}, {"2", "y`"}}},
      {"a name longer than any", "<FILE_DATA>" + std::string(70'000, 'n') + "|1^x|", "Cannot find", {}},
      {"too long for the table", tooLong + statistics, "rejected/F", one},
  };
  for (const Row& row : rows) {
    folder.Put("TransferBulk/F", Lines(row.file));
    const std::string shown = Load("MS", "F", {}, {""}, {"DELETE-FILE P"});
    EXPECT_NE(shown.find(row.shown), std::string::npos) << row.name << shown.substr(shown.find("Now scan"));
    engine::TableHandle table = 0;
    std::string error;
    const std::unique_ptr<engine::Store> store = Open("MS");
    EXPECT_EQ(store->OpenTable("p", table, error), !row.items.empty()) << row.name << error;
    if (row.items.empty()) continue;
    EXPECT_EQ(Read(*store, "p"), row.items) << row.name;
  }
}

TEST_F(BulkTransfer, WhatIsNoFileEndsTheFormAlone) {
  std::filesystem::create_directory(folder / "TransferBulk/folder");
  ASSERT_EQ(mkfifo((folder / "TransferBulk/pipe").c_str(), 0600), 0);
  folder.Put("outside", "x");
  std::filesystem::create_symlink(folder / "outside", folder / "TransferBulk/link");
  folder.Put("TransferBulk/unreadable", "x");
  std::filesystem::permissions(folder / "TransferBulk/unreadable", std::filesystem::perms::none);
  folder.Put("TransferBulk/F", "x");
  const std::pair<std::string_view, std::string_view> rows[] = {
      {"folder", "is no plain file"}, {"pipe", "is no plain file"},        {"link", "symbolic link"},
      {"none", "No such file"},       {"../outside", "../outside"},        {"", "TransferBulk"},
      {"/etc/hostname", "hostname"},  {"unreadable", "Permission denied"},
  };
  for (const auto& [name, message] : rows) {
    if (name == "unreadable" && geteuid() == 0) continue;  // who may do everything can read it
    const std::string shown = Load("MS", std::string(name));
    EXPECT_NE(shown.find(message, shown.find("<AUTORX>")), std::string::npos)
        << name << shown.substr(shown.find("<TERMINAL>"));
    EXPECT_NE(shown.find("no transfer file was loaded in this session"), std::string::npos)
        << "the session goes on";
  }
}

// Killed on its way from the middle to three quarters of the file.
TEST_F(BulkTransfer, KilledAndLoadedAgain) {
  constexpr int kItems = 22'000;  // of which the first 10,000 are committed by the middle
  constexpr int kProgressLines = kItems / 20;
  Items items;
  std::string lines = "<FILE_DATA>P|";
  for (int number = 0; number < kItems; ++number) {
    const std::string id = std::to_string(number);
    const std::string item = "name " + id + "^^a]b";
    items[id] = Lines(item);
    lines += id + "^" + item + "|";
  }
  folder.Put("TransferBulk/F", Lines(lines + "</FILE_DATA>|<FILE_STATISTICS>|P^9^300^3^20]20]20^]]Y^5|"));
  for (const auto& [target, word] : targets) {
    ChildProgram([&, account = target](const auto& tell) {
      int count = 0;
      onProgress = [&] {
        tell();
        while (count == kProgressLines * 3 / 4) pause();
        ++count;
      };
      Load(account, "F");
    }).Await(kProgressLines / 2);
    const Items found = Read(*Open(target), "p");
    EXPECT_TRUE(std::includes(items.begin(), items.end(), found.begin(), found.end())) << target;
    EXPECT_GE(found.size(), 10'000U) << target;
    EXPECT_LT(found.size(), items.size()) << target;
    Load(target, "F");
    EXPECT_EQ(Read(*Open(target), "p"), items) << target;
  }
}

// What has been open for half a second is committed at the next progress. Here that is line 40, behind the
// last item, so the line for the log comes while the file is closed.
TEST_F(BulkTransfer, AFullLogEndsNothing) {
  std::string lines = "<FILE_DATA>P|";
  for (int number = 0; number < 38; ++number) lines += std::to_string(number) + "^x|";
  folder.Put("TransferBulk/F", Lines(lines + "</FILE_DATA>"));
  logIsFull = true;
  onProgress = [count = 0]() mutable {
    constexpr int kAtLine20 = 4;  // behind the scan, the counter and the section
    if (++count == kAtLine20) std::this_thread::sleep_for(std::chrono::milliseconds(600));
  };
  const std::string shown = Load("MS", "F", {}, {}, {"CREATE-FILE P"});
  EXPECT_NE(shown.find("PROCESS COMPLETE"), std::string::npos) << shown;
  EXPECT_NE(shown.find("Total" + std::string(42, ' ') + "38"), std::string::npos) << shown;
}

TEST_F(BulkTransfer, RefusedItemsAreReportedAndCanBeLoadedAgain) {
  const std::string sql = "CREATE TABLE short (A0 VARCHAR(5) CONSTRAINT idxshort PRIMARY KEY, A1 VARCHAR(4))";
  folder.Put("TransferBulk/F", Lines("<FILE_DATA>SHORT|1^good|2^long`Cer|3^a^b|long ID^x|4^good|</FILE_DATA>|"
                                     "<FILE_DATA>OTHER|1^x|"));
  Serve("MS", {sql, "CREATE-FILE OTHER"});
  const std::string shown = Load("MS", "F");
  const std::string report = shown.substr(shown.rfind("F at "));
  for (const std::string_view line : {"short                              5           2         3 ",
                                      "other                              1           1         0 ",
                                      "the refused stand in TransferBulk/rejected/F"}) {
    EXPECT_NE(report.find(line), std::string::npos) << report;
  }
  EXPECT_TRUE(log.starts_with("load of F: 6 items handed over, 3 written, 3 refused, ")) << log;
  const std::string refused = Lines(
      "refused: account MS: table short, item '2': column A1 holds 4 characters, the text has 7|"
      "<FILE_DATA>short|2^long`Cer|</FILE_DATA>|"
      "refused: account MS: table short, item '3': the table has columns for 1 attributes, the item has 2|"
      "<FILE_DATA>short|3^a^b|</FILE_DATA>|"
      "refused: account MS: table short, item 'long ID': column A0 holds 5 characters, the item ID has 7|"
      "<FILE_DATA>short|long ID^x|</FILE_DATA>|");
  EXPECT_EQ(folder.Text("TransferBulk/rejected/F"), refused);
  // Loaded from where it lies, it isn't written over while it is read.
  EXPECT_NE(Load("MS", "rejected\\F").find("rejected/F-2"), std::string::npos);
  EXPECT_EQ(folder.Text("TransferBulk/rejected/F"), refused);
  EXPECT_EQ(folder.Text("TransferBulk/rejected/F-2"), refused);

  std::filesystem::rename(folder / "TransferBulk/rejected/F", folder / "TransferBulk/AGAIN");
  Serve("MS", {"DELETE-FILE SHORT", "CREATE-FILE SHORT"});
  EXPECT_NE(Load("MS", "AGAIN").find("PROCESS COMPLETE"), std::string::npos);
  EXPECT_EQ(Read(*Open("MS"), "short"), (Items{{"2", "long\rer"}, {"3", Lines("a^b")}, {"long ID", "x"}}));

  // A refusal file that can't be made stops nothing.
  std::filesystem::remove_all(folder / "TransferBulk/rejected");
  folder.Put("TransferBulk/rejected", "a file in the folder's place");
  Serve("MS", {"DELETE-FILE SHORT", sql});
  EXPECT_NE(Load("MS", "F").find("not all of the 3 refused could be written to TransferBulk/rejected: Not a"),
            std::string::npos);
  EXPECT_EQ(Read(*Open("MS"), "short").size(), 2U);
}

}  // namespace
}  // namespace nvadmin::host
