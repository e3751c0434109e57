// The helper object behind the add-in's multivalue wrappers: each operation is one function of this folder.
#include "session/MvServices.h"

#include "mv/Conversions.h"
#include "mv/DynamicArray.h"

namespace nvadmin {

namespace {

class MultivalueServices final : public MvServices {
 public:
  void OptionFlag1(bool on) override { optionFlag1_ = on; }
  void OptionFlag2(bool on) override { optionFlag2_ = on; }

  std::int32_t DCount(std::string_view text, std::string_view delimiter) override {
    return mv::Count(text, delimiter);
  }

  std::string Field(std::string_view text, std::string_view delimiter, std::int32_t occurrence) override {
    return std::string(mv::Field(text, delimiter, occurrence));
  }

  std::int32_t Index(std::string_view text, std::string_view substring, std::int32_t occurrence) override {
    return mv::Index(text, substring, occurrence);
  }

  std::string Extract(std::string_view text, std::int32_t attribute, std::int32_t value,
                      std::int32_t subvalue) override {
    return std::string(mv::Extract(text, attribute, value, subvalue));
  }

  std::string Replace(std::string_view text, std::int32_t attribute, std::int32_t value,
                      std::int32_t subvalue, std::string_view content) override {
    return mv::Replace(text, attribute, value, subvalue, content);
  }

  bool Locate(std::string_view value, std::string_view list, std::int32_t& position) override {
    const std::int32_t found = mv::Locate(value, list);
    if (found == 0) return false;
    position = found;
    return true;
  }

  bool Not(std::string_view value) override { return !mv::Truth(value); }

  bool Compare(std::string_view left, std::string_view op, std::string_view right) override {
    return mv::Compare(left, op, right);
  }

  bool Truth(std::string_view value) override { return mv::Truth(value); }

  std::string Oconv(std::string_view value, std::string_view code) override { return mv::Oconv(value, code); }

  std::string Fmt(std::string_view value, std::string_view mask) override { return mv::Fmt(value, mask); }

 private:
  // Kept as the add-in sets them; no operation reads them.
  [[maybe_unused]] bool optionFlag1_ = false;
  [[maybe_unused]] bool optionFlag2_ = false;
};

}  // namespace

std::unique_ptr<MvServices> CreateMvServices() { return std::make_unique<MultivalueServices>(); }

}  // namespace nvadmin
