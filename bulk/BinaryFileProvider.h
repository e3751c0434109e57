// Reads a text file of any size line by line, in chunks of 65,536 bytes: memory holds one chunk and the
// longest line. Knows nothing of what the lines mean.
//
// CR ends a line; one LF at the start of a line is dropped, any other LF is text. What stands behind the last
// CR is a line too, so a file that ends in a line end ends in an empty line, and an empty file has one. All
// bytes come through unchanged. Order of calls: OOpen, then Eof and LineGet in turn, then CClose; it may be
// opened again.
//
// A line is lent from the buffer of chunks, so each is searched for where it lies: splitting a chunk as a
// whole would copy every line, or keep a list of them. What a caller would search every line for is searched
// for in a chunk as it comes, while the processor's cache holds it: a long line is read from memory once
// less.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

#include "platform/BinaryFile.h"

namespace nvadmin {

class BinaryFileProvider {
 public:
  // `noted`: bytes of which MayHoldNoted tells. Lent for the reader's life.
  explicit BinaryFileProvider(std::string_view noted = {}) : Noted(noted) {}
  // True once the last line has been handed out; keeps its value until the next OOpen.
  bool Eof() const { return AtEnd; }
  void CClose() { File.reset(); }
  // `sFile` is a full path. Closes the file before. Fails, naming the file, when it can't be opened or read.
  void OOpen(std::string_view sFile);
  // The next line, without its line end, lent until the next call. Requires that Eof isn't true yet. Fails,
  // naming the file and the place, when a chunk can't be read.
  std::string_view LineGet();
  // False when the line that LineGet lent last surely holds none of the noted bytes. True says nothing, as
  // where none are noted.
  bool MayHoldNoted() const { return LineMayHold; }

 private:
  bool FillBuffer();
  bool HoldsNoted(std::string_view chunk) const;
  // Of the line in hand, as far as it was read.
  bool MayHoldSoFar() const { return ChunkHolds || (LineStart == 0 && CarryMayHold); }

  std::string_view Noted;
  std::optional<BinaryFile> File;
  std::int64_t ChunksRead = 0;
  std::int64_t ChunkCount = 0;
  std::unique_ptr<char[]> Buffer;
  std::size_t Capacity = 0;    // of Buffer
  std::string_view Gathered;   // what it holds: of the chunks read what is left, from the line in hand on
  std::size_t LineStart = 0;   // in Gathered
  std::size_t SearchFrom = 0;  // in Gathered: no CR stands before it and behind LineStart
  bool AtEnd = false;
  bool ChunkHolds = true;     // a noted byte: the last chunk
  bool CarryMayHold = false;  // a noted byte: what stands in Gathered before the last chunk
  bool LineMayHold = true;
};

}  // namespace nvadmin
