#include "bulk/BinaryFileProvider.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "platform/Files.h"
#include "session/EngineCallBack.h"

namespace nvadmin {

namespace {

constexpr std::size_t kChunkBytes = 65'536;
// Room behind the line in hand, at first and for a long line; what isn't used yet costs addresses, no memory.
constexpr std::size_t kFirstRoom = 8 * kChunkBytes, kLongRoom = std::size_t{256} << 20;

std::string_view WithoutFirstLf(std::string_view line) {
  if (line.starts_with('\n')) line.remove_prefix(1);
  return line;
}

}  // namespace

void BinaryFileProvider::OOpen(std::string_view sFile) {
  CClose();
  ChunksRead = 0;
  End = 0;
  LineStart = 0;
  SearchFrom = 0;
  AtEnd = false;
  File.emplace(sFile);
  ChunkCount =
      (File->Length() + static_cast<std::int64_t>(kChunkBytes) - 1) / static_cast<std::int64_t>(kChunkBytes);
  FillBuffer();
}

// Moves the line in hand to the start, with room for a chunk behind it.
void BinaryFileProvider::MakeRoom() {
  const std::string_view line = Held().substr(LineStart);
  if (Capacity < line.size() + kChunkBytes) {
    const auto left = static_cast<std::size_t>(ChunkCount - ChunksRead) * kChunkBytes;
    const std::size_t room = Capacity == 0 ? kFirstRoom : std::max(kLongRoom, line.size());
    const std::size_t size = line.size() + std::min(left, room);
    auto larger = std::make_unique_for_overwrite<char[]>(size);
    platform::TakeLargePages({larger.get(), size});
    line.copy(larger.get(), line.size());
    Buffer = std::move(larger);
    Capacity = size;
  } else {
    std::memmove(Buffer.get(), line.data(), line.size());
  }
  End = line.size();
  SearchFrom -= LineStart;
  LineStart = 0;
}

// Reads the next chunk behind the line in hand. False when there is none left.
bool BinaryFileProvider::FillBuffer() {
  if (ChunksRead == ChunkCount) return false;
  MakeRoom();
  End += File->Read({Buffer.get() + End, kChunkBytes});
  ++ChunksRead;
  return true;
}

std::string_view BinaryFileProvider::LineGet() {
  if (AtEnd || !File) throw EngineFailure("a line was asked for behind the end of a transfer file");
  std::size_t end = Held().find('\r', SearchFrom);
  while (end == std::string_view::npos) {
    SearchFrom = End;
    if (!FillBuffer()) break;
    end = Held().find('\r', SearchFrom);
  }
  const std::string_view line = Held().substr(LineStart, end - LineStart);
  AtEnd = end == std::string_view::npos;
  LineStart = AtEnd ? End : end + 1;
  SearchFrom = LineStart;
  return WithoutFirstLf(line);
}

}  // namespace nvadmin
