#include "bulk/BinaryFileProvider.h"

#include <algorithm>

#include "platform/Files.h"
#include "session/EngineCallBack.h"

namespace nvadmin {

namespace {

constexpr std::size_t kChunkBytes = 65'536;
constexpr std::size_t kGrowth =
    8;  // of the buffer for a long line; what isn't used yet costs addresses, no memory

std::string_view WithoutFirstLf(std::string_view line) {
  if (line.starts_with('\n')) line.remove_prefix(1);
  return line;
}

}  // namespace

void BinaryFileProvider::OOpen(std::string_view sFile) {
  CClose();
  ChunksRead = 0;
  Buffer.clear();
  LineStart = 0;
  SearchFrom = 0;
  AtEnd = false;
  File.emplace(sFile);
  ChunkCount =
      (File->Length() + static_cast<std::int64_t>(kChunkBytes) - 1) / static_cast<std::int64_t>(kChunkBytes);
  FillBuffer();
}

// Reads the next chunk behind the line in hand, which moves to the start. False when there is none left.
bool BinaryFileProvider::FillBuffer() {
  if (ChunksRead == ChunkCount) return false;
  Buffer.erase(0, LineStart);
  SearchFrom -= LineStart;
  LineStart = 0;
  if (Buffer.capacity() < Buffer.size() + kChunkBytes) {
    const auto left = static_cast<std::size_t>(ChunkCount - ChunksRead) * kChunkBytes;
    Buffer.reserve(Buffer.size() + std::min(left, kGrowth * (Buffer.size() + kChunkBytes)));
    platform::TakeLargePages(Buffer);
  }
  File->Read(kChunkBytes, Buffer);
  ++ChunksRead;
  return true;
}

std::string_view BinaryFileProvider::LineGet() {
  if (AtEnd || !File) throw EngineFailure("a line was asked for behind the end of a transfer file");
  std::size_t end = Buffer.find('\r', SearchFrom);
  while (end == std::string::npos) {
    SearchFrom = Buffer.size();
    if (!FillBuffer()) break;
    end = Buffer.find('\r', SearchFrom);
  }
  const std::string_view line = std::string_view(Buffer).substr(LineStart, end - LineStart);
  AtEnd = end == std::string::npos;
  LineStart = AtEnd ? Buffer.size() : end + 1;
  SearchFrom = LineStart;
  return WithoutFirstLf(line);
}

}  // namespace nvadmin
