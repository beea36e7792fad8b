// measured_probe.cpp: questions and answers are files; two pipes say when they are there.
#include "measured_probe.h"

#include "work_measure.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>

namespace {

std::size_t sizeOf(std::string const& path) {
  std::error_code missing;
  auto const size = std::filesystem::file_size(path, missing);
  return missing ? 0 : static_cast<std::size_t>(size);
}

template <class Step>
probe_result measured(char const* title, std::string const& path, Step const& step) {
  std::size_t const size = sizeOf(path);
  work_measure const measure;
  probe_result found = step();
  for (std::string const& fault : measure.faults(size)) {
    found.faults.push_back(std::string(title) + ": " + fault);
  }
  return found;
}

probe_result work(file_probe& probe, char step, std::string const& path) {
  if (step == 'u') {
    return measured("an upgrade", path, [&] { return probe.upgrade(path); });
  }
  if (step == 'c') {
    return measured("a change", path, [&] { return probe.change(path); });
  }
  if (step == 'r') {
    return measured("a repair of the names", path, [&] { return probe.repair(path); });
  }
  probe_result found = measured("reading", path, [&] { return probe.read(path); });
  found.Add(measured("a quick check", path, [&] { return probe.check_quickly(path); }));
  found.Add(measured("a check", path, [&] { return probe.check(path); }));
  return found;
}

// A text, behind its length.
void put(std::string& bytes, std::string const& text) {
  bytes.append(std::to_string(text.size())).append(" ").append(text);
}

std::string take(std::string_view& bytes) {
  std::size_t const blank = bytes.find(' ');
  std::size_t const size = std::stoull(std::string(bytes.substr(0, blank)));
  std::string const text(bytes.substr(blank + 1, size));
  bytes.remove_prefix(blank + 1 + size);
  return text;
}

void put(std::string& bytes, std::vector<std::string> const& texts) {
  put(bytes, std::to_string(texts.size()));
  for (std::string const& text : texts) {
    put(bytes, text);
  }
}

std::vector<std::string> takeSeveral(std::string_view& bytes) {
  std::vector<std::string> texts(std::stoull(take(bytes)));
  for (std::string& text : texts) {
    text = take(bytes);
  }
  return texts;
}

} // namespace

measured_probe::measured_probe() : child([this](child_process& served) { return Serve(served); }) {}

measured_probe::~measured_probe() {
  if (!isAtWork) {
    writeFile(question, "");
    child.go();
    EXPECT_EQ(child.result(), "") << "of a process that looked at files";
  }
}

std::string measured_probe::Serve(child_process& served) const {
  limit_own_memory();
  auto probe = std::make_unique<file_probe>();
  for (;;) {
    served.wait_for_go();
    std::string const asked = readFile(question);
    if (asked.empty()) {
      probe.reset();
      return leaks();
    }
    probe_result const found = work(*probe, asked.front(), asked.substr(1));
    std::string bytes;
    put(bytes, found.contents);
    put(bytes, found.refusals);
    put(bytes, found.faults);
    writeFile(answer, bytes);
    served.ready();
  }
}

probe_result measured_probe::Ask(char step, std::string const& path) {
  writeFile(question, step + path);
  isAtWork = true;
  child.go();
  child.wait_until_ready();
  isAtWork = false;
  std::string const bytes = readFile(answer);
  std::string_view rest = bytes;
  probe_result found;
  found.contents = take(rest);
  found.refusals = takeSeveral(rest);
  found.faults = takeSeveral(rest);
  return found;
}
