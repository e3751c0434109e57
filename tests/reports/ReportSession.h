// A session with a file "orders" and its dictionary, for tests of reports.
#pragma once

#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/ScriptedSession.h"

namespace nvadmin::test {

// How a report ends whose closing prompt was answered with an empty line.
inline std::string Closing(int items) {
  return "$\n$\n**********  END of Query, " + std::to_string(items) +
         " Items Displayed.  Press (CR) to continue ********** : [IN ]\n[CLEAR]:";
}

class ReportSession : public ScriptedSession {
 protected:
  ReportSession() {
    engine.File("orders");
    engine.File("orders_dict") = {
        {"NAME", Dyn("A^1^Name^^^^^^L^6")},   {"QTY", Dyn("A^2^Qty^^^^^^R^5")},
        {"DUE", Dyn("D^3^Due^^^^D2/^^R^9")},  {"AMT", Dyn("S^4^Amount^^^^MD2^^R^9")},
        {"PRICE", Dyn("A^5^Price^^^^^^R^7")}, {"SUM", Dyn("A^^Sum^^^^^A;N(QTY)*N(PRICE)^R^8")},
        {"KEY", Dyn("A^0^Key^^^^^^L^4")},
    };
  }

  // Runs "LIST orders" as the engine would answer it: the column words, the options, the modifiers.
  std::string Report(std::string_view columns, std::string_view modifiers, std::string_view options,
                     Grid keys) {
    const std::string reply =
        "1^1^" + std::string(columns) + "^^" + std::string(options) + "^" + std::string(modifiers);
    engine.Answer("LIST orders", Dyn(reply), std::move(keys));
    return Run("LIST orders");
  }

  static std::vector<std::string> Lines(const std::string& screen) {
    std::vector<std::string> lines;
    std::istringstream stream(screen);
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
  }
};

}  // namespace nvadmin::test
