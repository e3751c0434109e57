// Reads a transfer file as a load does, line by line with decoding, and prints how many lines and bytes that
// were.
//   bench_lines FILE
#include <cstdint>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <string>

#include "bulk/BinaryFileProvider.h"
#include "bulk/TransferBulk.h"

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fputs("usage: bench_lines FILE\n", stderr);
    return 2;
  }
  try {
    nvadmin::BinaryFileProvider file(nvadmin::kCodedBytes);
    file.OOpen(std::filesystem::absolute(argv[1]).string());
    std::string buffer;
    std::uint64_t lines = 0, bytes = 0;
    for (; !file.Eof(); ++lines) bytes += nvadmin::DecodeBulkLine(file, file.LineGet(), buffer).size();
    std::printf("%lu lines, %lu bytes\n", lines, bytes);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "bench_lines: %s\n", failure.what());
    return 1;
  }
}
