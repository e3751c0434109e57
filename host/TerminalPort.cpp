#include "host/TerminalPort.h"

#include <bit>
#include <cerrno>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>

#include <editline/readline.h>
#include <fcntl.h>
#include <langinfo.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace nvadmin::host {

namespace {

constexpr int kNoCharacter = -1;
constexpr int kReplacementCharacter = 0xFFFD;
constexpr std::size_t kDefaultColumns = 80;

TerminalPort* editingPort = nullptr;

bool HasCursor() {
  const char* terminal = std::getenv("TERM");
  return terminal != nullptr && *terminal != '\0' && std::string_view(terminal) != "dumb";
}

// The editor measures and writes characters by the locale, and the port speaks UTF-8 only.
void UseUtf8Locale() {
  std::setlocale(LC_CTYPE, "");
  if (std::string_view(nl_langinfo(CODESET)) != "UTF-8") std::setlocale(LC_CTYPE, "C.UTF-8");
}

std::size_t ScreenColumns() {
  winsize size{};
  return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : kDefaultColumns;
}

bool ContinuesCharacter(char byte) { return (static_cast<unsigned char>(byte) & 0xC0) == 0x80; }

void WriteNow(std::string_view text) {
  [[maybe_unused]] const ssize_t written = write(STDOUT_FILENO, text.data(), text.size());
}

}  // namespace

TerminalPort::TerminalPort(const std::filesystem::path& historyFile)
    : ScreenPort(STDOUT_FILENO, HasCursor(), /*inputEchoes=*/true), history_(historyFile) {
  if (pipe2(wake_.data(), O_CLOEXEC | O_NONBLOCK) != 0) {
    throw EngineFailure(std::string("can't make a pipe: ") + std::strerror(errno));
  }
  UseUtf8Locale();
  editingPort = this;
  rl_readline_name = "nvadmin";
  rl_getc_function = NextCharacter;
  rl_initialize();
  rl_bind_key('\t', rl_insert);  // there are no file names to complete
  using_history();
  for (const std::string& sentence : history_.Load()) add_history(sentence.c_str());
}

TerminalPort::~TerminalPort() {
  editingPort = nullptr;
  close(wake_[0]);
  close(wake_[1]);
}

void TerminalPort::Notify(int signal) {
  if (signal == SIGINT) interrupted_ = true;
  if (signal == SIGHUP || signal == SIGTERM) hungUp_ = true;
  if (signal == SIGWINCH) resized_ = true;
  if (signal == SIGCONT) resumed_ = true;
  const char anything = 0;
  [[maybe_unused]] const ssize_t written = write(wake_[1], &anything, 1);
}

engine::InputResult TerminalPort::WaitForLine(std::string& utf8, Asked asked) {
  if (asked == Asked::kSentence) interrupted_ = false;
  std::string prompt(OpenLine());
  for (;;) {
    StartRow(prompt);
    const std::unique_ptr<char, decltype(&std::free)> typed(readline(prompt.c_str()), std::free);
    std::fflush(rl_outstream);
    if (hungUp_) {
      SetLost();
      return engine::InputResult::kLost;
    }
    const bool dropped = interrupted_.exchange(false);
    if (!typed) WriteNow(dropped ? "^C\n" : "\n");
    if (dropped && asked == Asked::kSentence) continue;
    if (!typed && !dropped) return engine::InputResult::kEnd;
    utf8 = dropped ? "" : typed.get();
    if (asked == Asked::kSentence && history_.Append(utf8)) add_history(utf8.c_str());
    return engine::InputResult::kLine;
  }
}

// The editor draws its prompt from the start of a screen row: it gets what the open line shows on its last
// row.
void TerminalPort::StartRow(std::string& prompt) {
  const std::size_t columns = ScreenColumns();
  std::size_t characters = 0;
  std::size_t rowStart = 0;
  for (std::size_t at = 0; at < prompt.size(); ++at) {
    if (ContinuesCharacter(prompt[at])) continue;
    if (characters % columns == 0) rowStart = at;
    ++characters;
  }
  const bool rowIsFull = characters > 0 && characters % columns == 0;
  prompt.erase(0, rowIsFull ? prompt.size() : rowStart);
  WriteNow(rowIsFull ? "\n" : "\r");
}

int TerminalPort::NextCharacter(FILE* /*input*/) { return editingPort->ReadCharacter(); }

// The next character typed, as its code point; kNoCharacter ends the line being typed.
int TerminalPort::ReadCharacter() {
  unsigned char byte = 0;
  if (!WaitForByte(byte)) return kNoCharacter;
  if (byte < 0x80) return byte;
  const int length = std::countl_one(byte);
  if (length < 2 || length > 4) return kReplacementCharacter;
  int point = byte & (0xFF >> (length + 1));
  for (int number = 1; number < length; ++number) {
    if (!WaitForByte(byte)) return kNoCharacter;
    if (!ContinuesCharacter(static_cast<char>(byte))) return kReplacementCharacter;
    point = point << 6 | (byte & 0x3F);
  }
  return point;
}

// False when the line being typed is dropped or the terminal is gone.
bool TerminalPort::WaitForByte(unsigned char& byte) {
  for (;;) {
    if (!HandleNotices()) return false;
    pollfd waited[] = {{STDIN_FILENO, POLLIN, 0}, {wake_[0], POLLIN, 0}};
    if (poll(waited, 2, /*timeout=*/-1) < 0) continue;
    if (waited[1].revents != 0) {
      char drained[64];
      while (read(wake_[0], drained, sizeof drained) > 0) continue;
      continue;
    }
    const ssize_t count = read(STDIN_FILENO, &byte, 1);
    if (count == 1) return true;
    if (count == 0 || (errno != EINTR && errno != EAGAIN)) hungUp_ = true;
  }
}

bool TerminalPort::HandleNotices() {
  if (resumed_.exchange(false)) {
    rl_prep_terminal(/*unused=*/1);
    rl_forced_update_display();
  }
  if (resized_.exchange(false)) rl_resize_terminal();
  return !hungUp_ && !interrupted_;
}

}  // namespace nvadmin::host
