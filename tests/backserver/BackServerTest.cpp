// The dialogue of the back server. The files of golden/ are conversations with every call that they lead to,
// to be read as examples of the protocol; the rest is what is too long for them.
//
// In them ^ ] \ ~ are the characters 254, 253, 252 and 250. "* " begins a remark, "> " a line of the client;
// a line of the server stands as it is, with "$" where it ends; calls of the engine are indented. The test
// sends the client's lines and compares all others, so a new case is its "> " lines and a run with
// NVADMIN_REMAKE_GOLDEN=1.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "mv/EngineHooks.h"
#include "tests/support/Golden.h"
#include "tests/support/ScriptedSession.h"

namespace nvadmin::test {
namespace {

using Lines = std::vector<std::string>;

void ReplaceAll(std::string& text, std::string_view part, std::string_view by) {
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + by.size())) {
    text.replace(at, part.size(), by);
  }
}

class BackServers : public ScriptedSession {
 protected:
  BackServers() {
    LogOn("MVON");
    engine.Answer("SYSTEM USERINST", "inst 1");
    engine.Answer("SYSTEM ACCOUNT", "DEMO");
    mv::Hooks().sendToClient = [this](std::string_view text) {
      engine.WriteOutput("helper:", false);
      engine.WriteOutput(text, true);
    };
  }
  ~BackServers() override { mv::Hooks() = {}; }

  // Types the lines, with ^ and ] as marks, and has them served.
  void Converse(const Lines& lines) {
    for (const std::string& line : lines) engine.Type({Dyn(line)});
    Run("nv.backsrv now");
  }

  void Replay(const std::string& name) {
    const std::string path = "backserver/golden/" + name + ".txt";
    std::ifstream stream(std::string(NVADMIN_SOURCE_DIR) + "/tests/" + path, std::ios::binary);
    Lines lines, remarks(1);  // remark n stands before line n
    for (std::string line; std::getline(stream, line);) {
      if (line.starts_with('*')) remarks.back() += line + "\n";
      if (!line.starts_with('>')) continue;
      lines.push_back(line.size() < 2 ? "" : line.substr(2));
      remarks.emplace_back();
    }
    Converse(lines);
    ExpectGolden(path, Conversation(remarks));
  }

 private:
  std::string Conversation(const Lines& remarks) const {
    std::string conversation;
    std::size_t taken = 0;
    std::istringstream calls(engine.Calls());
    for (std::string call; std::getline(calls, call);) {
      for (const auto& [word, sign] :
           {std::pair{"{AM}", "^"}, {"{VM}", "]"}, {"{SM}", "\\"}, {"{CPM}", "~"}}) {
        ReplaceAll(call, word, sign);
      }
      const std::size_t text = call.find('(') + 1;
      const std::size_t quote = call.find('\'');
      if (call.starts_with("ReadInput")) {
        call = call.substr(quote + 1, call.size() - quote - 2);
        conversation += remarks.at(taken++) + (call.empty() ? ">" : "> ") + call + "\n";
      } else if (call.starts_with("WriteOutput")) {
        const std::size_t comma = call.rfind(',');
        const bool lineEnd = call.ends_with("true)");
        conversation += call.substr(text, comma - text) + (lineEnd ? "$\n" : "\n");
      } else if (!call.starts_with("GetErrorDetail") &&
                 !(call.starts_with("GetResultCell") && quote != call.npos)) {
        conversation += "  " + call + "\n";
      }
    }
    conversation.pop_back();
    return conversation;
  }
};

TEST_F(BackServers, Requests) {
  engine.File("F") = {{"1", Dyn("one^two")}};
  engine.RefuseFile("F</TXB>", "no such file");
  Replay("requests");
}

TEST_F(BackServers, Records) {
  engine.File("CUSTOMERS") = {{"1001", Dyn("ACME Tools^12 Mill Lane^Leeds")},
                              {"1002", Dyn("Baker Ltd^^York")},
                              {"1003", Dyn("Carter Inc^1]2\\3^Hull")}};
  engine.RefuseFile("NOSUCH", "no such file");
  engine.LockByOther("CUSTOMERS", "1002");
  engine.NextCalls("ReadItemLocked", {{.detail = "disk fails"}});
  Replay("records");
}

TEST_F(BackServers, Rowsets) {
  engine.File("F") = {
      {"k1", Dyn("150]x]^9500^c")}, {"k2", Dyn("7^^c2")}, {"none", ""}, {Dyn("a^b^c"), Dyn("first^second")}};
  engine.File("DICT F") = {{"DATE", Dyn("D^2^D4/^Date^10L^^^MD2")},
                           {"BARE", Dyn("D^1^^Bare")},
                           {"UP", Dyn("I^ MCU ^^Up^8R")},
                           {"SUM", Dyn("A^1^Sum^^^^MD2^CUSTOMA;2;*;2]MD1^R^5")},
                           {"SMALL", Dyn("a^1^Small^^^^MD2^MCU")},
                           {"CODE", Dyn("SX^1^Code^^^^MD2^^R^5")},
                           {"1", Dyn("A^1^One")},
                           {"2", "x"},
                           {"4", Dyn("D^0^^Four^4R")},
                           {"6", ""},
                           {"8", Dyn("A^3^Eight")},
                           {"10", "behind the fourth miss"}};
  engine.File("DICT G");
  engine.RefuseFile("NOSUCH", "no such file");
  engine.RefuseFile("DICT NOSUCH", "no such file");
  const std::pair<std::string_view, Grid> lists[] = {
      {"SELECT F", Keys({"k1", "k2"})},         {"SSELECT F", Keys({"k1"})},
      {"SELECT GONE", Keys({"k1", "gone"})},    {"SELECT SOME", Keys({"none", "k2", "none"})},
      {"SELECT EMPTY", Keys({"none", "none"})}, {"SELECT ODD", Keys({Dyn("a^b^c")})}};
  for (const auto& [sentence, keys] : lists) engine.Answer(sentence, Dyn("x^y"), keys);
  engine.Answer("SELECT NOTHING", "nothing", Grid{});
  engine.Answer("LISTF", Dyn("A^B^C"));
  Replay("rowsets");
}

// Frames of 10, 20 and 100 rows; full ones go by way of the helper once that is asked for.
TEST_F(BackServers, Batches) {
  for (int row = 1; row <= 41; ++row) engine.File("F")[std::to_string(row)] = Dyn("a^b");
  for (int rows : {20, 25, 41, 101}) {
    engine.Answer("SELECT " + std::to_string(rows), Dyn("x^y"), NumberedKeys(rows));
  }
  Replay("batches");
}

TEST_F(BackServers, Sentences) {
  engine.RefuseSentence("BAD", "no such verb");
  for (std::string_view sentence : {"COUNT F", "ACCOUNT ", "SYSTEMS", ""}) engine.Answer(sentence, "3 items");
  Replay("sentences");
}

TEST_F(BackServers, LongBodiesAreCutAndLongRequestsServed) {
  const std::string& item = engine.File("F")["1"];
  const std::string body(600'000, '<');
  Converse({"WRITE^F^1<&IM>" + body, body, "</TXB>", "READ^F^1</TXB>", "EXIT</TXB>"});
  EXPECT_EQ(item, std::string(999'999, '<'));
  EXPECT_NE(engine.Screen().find("\n<TXA>" + item + "</TXA>"), std::string::npos);
}

TEST_F(BackServers, TwoHundredFilesAreOpenAtOnce) {
  LogOn("JET");
  engine.RefuseFile("no_such", "no such table");
  Lines lines = {"OPEN^NO.SUCH</TXB>"};
  for (int number = 1; number <= 201; ++number) {
    engine.File("x_" + std::to_string(number))["1"] = std::to_string(number);
    lines.push_back("READ^X." + std::to_string(number) + "^1</TXB>");
  }
  lines.insert(lines.end(), {"READ^x.200^1</TXB>", "RELEASE^X.1</TXB>", "EXIT</TXB>"});
  Converse(lines);
  EXPECT_TRUE(engine.Screen().ends_with(
      "<TXA>200</TXA>$\n"
      "[IN READ{AM}X.201{AM}1</TXB>]\n<TXA><ERROR>[911] File 'X.201' fails to OPEN so may not exist.</TXA>$\n"
      "[IN READ{AM}x.200{AM}1</TXB>]\n<TXA>200</TXA>$\n"
      "[IN RELEASE{AM}X.1</TXB>]\n<TXA>OK</TXA>$\n[IN EXIT</TXB>]\n<TXA><END></TXA>$\n"))
      << engine.Screen();
  EXPECT_NE(engine.Screen().find("[911] File 'NO.SUCH' fails"), std::string::npos);
  EXPECT_EQ(engine.CallCount("OpenFile"), 201);
  EXPECT_NE(engine.Calls().find("ReleaseItem(" + engine.FileVar("x_1") + ", )"), std::string::npos);
}

TEST_F(BackServers, NumberedColumnsEndAt500) {
  engine.File("F");
  engine.Answer("SELECT F", "nothing", Grid{});
  Items& dictionary = engine.File("DICT F");
  for (int number = 1; number <= 501; ++number) dictionary[std::to_string(number)] = "A";
  Converse({"ROWSET^F^^LIST F</TXB>", "", "QUIT", "EXIT</TXB>"});
  EXPECT_EQ(engine.CallCount("ReadItem"), 500);
}

}  // namespace
}  // namespace nvadmin::test
