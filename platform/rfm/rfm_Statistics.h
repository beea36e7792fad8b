// rfm_Statistics: how much work a file has done, for tests and benchmarks.
#pragma once

#include <cstdint>

/// Counters of one open file since it was opened; they only grow.
struct rfm_Statistics {
  std::uint64_t rowsRead = 0;    ///< rows and entries delivered
  std::uint64_t bytesRead = 0;   ///< texts, keys and blobs delivered, and 32 for each row and entry [byte]
  std::uint64_t rowsWritten = 0; ///< rows and entries inserted, updated or deleted
  std::uint64_t statements = 0;  ///< statements begun, those that begin and end transactions included
};
