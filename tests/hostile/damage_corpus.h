// damage_corpus: many damaged copies of one file, each looked over in a process that may die of it.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

/// A family of damages, by number.
struct damage_family {
  std::uint64_t count = 0;
  std::function<void(std::uint64_t number, std::string& bytes)> apply; ///< does it to a sound file
  std::function<std::string(std::uint64_t number)> describe;
};

/// Every byte replaced by three other values.
damage_family every_byte(std::string const& sound);
/// Every page filled with zeros.
damage_family every_page(std::string const& sound, std::size_t pageSize);
/// Every page but the first claiming that it holds no rows, which SQLite reads without a word.
damage_family every_emptied_page(std::string const& sound, std::size_t pageSize);
/// The file cut at every multiple of 512 bytes.
damage_family every_cut(std::string const& sound);

/// One of several parts of a family, which have equally many of it or one more.
damage_family part_of(damage_family const& whole, std::uint64_t part, std::uint64_t parts);

/// What came of looking over damaged copies.
struct corpus_result {
  std::uint64_t looked = 0;
  std::uint64_t identical = 0; ///< read as the sound file
  std::uint64_t noticed = 0;   ///< refused as a whole or in part, by an exception or a check
  std::uint64_t other = 0;     ///< other values are stored, and were read; SQLite reads the same ones
  double slowest = 0;          ///< [processor seconds]
  long long memory = 0;        ///< the most that a process grew by [byte]; 0 where it is not measured
  std::vector<std::string> faults;

  std::string text() const;
};

/// What is done with each damaged copy.
enum class corpus_work {
  Look,          ///< opens, lists, checks and resolves it
  LookAndChange, ///< also opens it for writing, changes and saves it
  Upgrade,       ///< upgrades it, and looks at what came of it
};

/// How damaged copies are looked over.
struct corpus_settings {
  std::uint64_t limit = 0; ///< how many are drawn; 0: all of them
  unsigned seed = 0;       ///< for the drawing
  corpus_work work = corpus_work::Look;
};

/// The damages of a family, drawn or all, done to copies of a sound file.
/// @param folder where the copies are made
corpus_result run_corpus(damage_family const& family, std::string const& sound, std::string const& folder,
                         corpus_settings const& settings);

/// Whether the environment asks for all of every family: DDR_HOSTILE=all.
bool whole_corpus();
/// How many of a family are drawn of which the ordinary tests draw so many: with DDR_HOSTILE=n, n times as
/// many.
/// @returns 0 where it is all of them
/// @throws std::runtime_error when DDR_HOSTILE is neither "all" nor a number
std::uint64_t corpus_limit(std::uint64_t ordinary);
/// The seed of this run: DDR_HOSTILE_SEED, or a new one.
unsigned corpus_seed();
/// The length of a huge text [byte]: a hundred megabytes when all is asked for, ten otherwise.
std::size_t huge_text();
/// Such a text, in SQL.
std::string huge_text_sql();
