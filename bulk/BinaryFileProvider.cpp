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
  Gathered = {Buffer.get(), 0};
  LineStart = 0;
  SearchFrom = 0;
  AtEnd = false;
  CarryMayHold = false;
  File.emplace(sFile);
  ChunkCount =
      (File->Length() + static_cast<std::int64_t>(kChunkBytes) - 1) / static_cast<std::int64_t>(kChunkBytes);
  FillBuffer();
}

bool BinaryFileProvider::HoldsNoted(std::string_view chunk) const {
  return Noted.empty() || std::any_of(Noted.begin(), Noted.end(), [chunk](char byte) {
           return chunk.find(byte) != std::string_view::npos;
         });
}

// Reads the next chunk behind the line in hand, which moves to the start. False when there is none left.
bool BinaryFileProvider::FillBuffer() {
  if (ChunksRead == ChunkCount) return false;
  const std::string_view line = Gathered.substr(LineStart);
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
  Gathered = {Buffer.get(), line.size()};
  CarryMayHold = !line.empty() && MayHoldSoFar();
  SearchFrom -= LineStart;
  LineStart = 0;
  const std::size_t got = File->Read({Buffer.get() + line.size(), kChunkBytes});
  Gathered = {Buffer.get(), line.size() + got};
  ChunkHolds = HoldsNoted(Gathered.substr(line.size()));
  ++ChunksRead;
  return true;
}

std::string_view BinaryFileProvider::LineGet() {
  if (AtEnd || !File) throw EngineFailure("a line was asked for behind the end of a transfer file");
  std::size_t end = Gathered.find('\r', SearchFrom);
  while (end == std::string_view::npos) {
    SearchFrom = Gathered.size();
    if (!FillBuffer()) break;
    end = Gathered.find('\r', SearchFrom);
  }
  const std::string_view line = Gathered.substr(LineStart, end - LineStart);
  LineMayHold = MayHoldSoFar();
  AtEnd = end == std::string_view::npos;
  LineStart = AtEnd ? Gathered.size() : end + 1;
  SearchFrom = LineStart;
  return WithoutFirstLf(line);
}

}  // namespace nvadmin
