#include "session/basNvFunctions.h"

#include "session/SessionState.h"

namespace nvadmin {

namespace {

MvServices& Helper() {
  MvServices* helper = Session().Mv.get();
  if (helper == nullptr) throw EngineFailure("the session has no multivalue helper: CallBack comes first");
  return *helper;
}

}  // namespace

std::int32_t DDCount(std::string_view text, std::string_view delimiter) {
  return Helper().DCount(text, delimiter);
}

std::string FField(std::string_view text, std::string_view delimiter, std::int32_t occurrence) {
  return Helper().Field(text, delimiter, occurrence);
}

std::int32_t IIndex(std::string_view text, std::string_view substring, std::int32_t occurrence) {
  return Helper().Index(text, substring, occurrence);
}

std::string EExtract(std::string_view text, std::int32_t attribute, std::int32_t value,
                     std::int32_t subvalue) {
  return Helper().Extract(text, attribute, value, subvalue);
}

std::string RReplace(std::string_view text, std::int32_t attribute, std::string_view content) {
  return Helper().Replace(text, attribute, 0, 0, content);
}

std::string RReplace(std::string_view text, std::int32_t attribute, std::int32_t value,
                     std::string_view content) {
  return Helper().Replace(text, attribute, value, 0, content);
}

std::string RReplace(std::string_view text, std::int32_t attribute, std::int32_t value, std::int32_t subvalue,
                     std::string_view content) {
  return Helper().Replace(text, attribute, value, subvalue, content);
}

bool LLocate(std::string_view value, std::string_view /*in*/, std::string_view text,
             std::string_view /*setting*/, std::int32_t& position) {
  return Helper().Locate(value, text, position);
}

bool NNot(std::string_view value) { return Helper().Not(value); }

bool CCompare(std::string_view left, std::string_view op, std::string_view right) {
  return Helper().Compare(left, op, right);
}

bool TTrue(std::string_view value) { return Helper().Truth(value); }

std::string OOConv(std::string_view value, std::string_view code) { return Helper().Oconv(value, code); }

std::string FFmt(std::string_view value, std::string_view mask) { return Helper().Fmt(value, mask); }

}  // namespace nvadmin
