// power_cut.cpp: images of a folder.
#include "power_cut.h"

#include <algorithm>
#include <array>

namespace {

using Kind = device_event::Kind;

constexpr std::array<std::size_t, 2> sectorSizes{512, 4096};

// Where a write may tear: behind each of its sectors, as they lie in the file.
std::vector<std::size_t> tearsOf(device_event const& event) {
  std::vector<std::size_t> tears;
  for (std::size_t const sector : sectorSizes) {
    for (std::size_t tear = sector - event.place % sector; tear < event.bytes.size(); tear += sector) {
      tears.push_back(tear);
    }
  }
  std::sort(tears.begin(), tears.end());
  tears.erase(std::unique(tears.begin(), tears.end()), tears.end());
  return tears;
}

std::size_t wholeOf(device_event const& event) {
  return std::max<std::size_t>(event.bytes.size(), 1);
}

} // namespace

power_cut::power_cut(device_image const& start, std::map<std::string, int> const& numbers,
                     std::vector<device_event> recorded)
    : startNames(numbers), events(std::move(recorded)) {
  for (auto const& [name, number] : numbers) {
    startContents[number] = start.at(name);
  }
  names = startNames;
  contents = startContents;
}

int power_cut::marksBefore(std::size_t event) const {
  return static_cast<int>(std::count_if(events.begin(), events.begin() + static_cast<std::ptrdiff_t>(event),
                                        [](device_event const& one) { return one.kind == Kind::Mark; }));
}

void power_cut::goTo(std::size_t event) {
  if (event < position) {
    position = 0;
    names = startNames;
    contents = startContents;
    loose.clear();
    looseNames.clear();
  }
  while (position < event) {
    advance(events[position++]);
  }
}

void power_cut::advance(device_event const& event) {
  switch (event.kind) {
  case Kind::Create:
  case Kind::Delete:
  case Kind::Rename:
  case Kind::Link:
    looseNames.push_back(&event);
    break;
  case Kind::Write:
  case Kind::Truncate:
    loose.push_back(&event);
    break;
  case Kind::SyncFile:
    std::erase_if(loose, [&](device_event const* one) {
      if (one->file != event.file) {
        return false;
      }
      apply(contents, {one, wholeOf(*one)});
      return true;
    });
    break;
  case Kind::SyncFolder:
    for (device_event const* one : looseNames) {
      rename(names, *one);
    }
    looseNames.clear();
    break;
  case Kind::Mark:
    break;
  }
}

void power_cut::apply(std::map<int, std::string>& contents, Piece const& piece) {
  if (piece.kept == 0) {
    return;
  }
  device_event const& event = *piece.event;
  std::string& bytes = contents[event.file];
  if (event.kind == Kind::Truncate) {
    bytes.resize(event.place, '\0');
    return;
  }
  std::size_t const kept = std::min(piece.kept, event.bytes.size());
  bytes.resize(std::max<std::size_t>(bytes.size(), event.place + kept), '\0');
  bytes.replace(event.place, kept, event.bytes, 0, kept);
}

void power_cut::rename(std::map<std::string, int>& names, device_event const& event) {
  if (event.kind == Kind::Create) {
    names[event.name] = event.file;
  } else if (event.kind == Kind::Delete) {
    names.erase(event.name);
  } else if (auto const found = names.find(event.name); found != names.end()) {
    names[event.otherName] = found->second;
    if (event.kind == Kind::Rename) {
      names.erase(event.name);
    }
  }
}

device_image power_cut::build(std::vector<Piece> const& pieces, std::size_t nameCount,
                              std::size_t lostName) const {
  std::map<std::string, int> shownNames = names;
  for (std::size_t index = 0; index < nameCount; ++index) {
    if (index != lostName) {
      rename(shownNames, *looseNames[index]);
    }
  }
  std::map<int, std::string> shown;
  for (auto const& [name, number] : shownNames) {
    auto const found = contents.find(number);
    shown[number] = found == contents.end() ? std::string() : found->second;
  }
  for (Piece const& piece : pieces) {
    if (shown.contains(piece.event->file)) {
      apply(shown, piece);
    }
  }
  device_image image;
  for (auto const& [name, number] : shownNames) {
    image[name] = shown[number];
  }
  return image;
}

device_image power_cut::whole(std::size_t event) {
  goTo(event);
  std::vector<Piece> pieces;
  for (device_event const* one : loose) {
    pieces.push_back({one, wholeOf(*one)});
  }
  return build(pieces, looseNames.size());
}

std::vector<std::size_t> power_cut::uncertain() {
  std::vector<std::size_t> found;
  for (std::size_t event = 0; event <= events.size(); ++event) {
    goTo(event);
    found.insert(found.end(), loose.size() + looseNames.size(), event);
  }
  return found;
}

void power_cut::each(std::size_t event, std::function<void(device_image const&)> const& use) {
  goTo(event);
  std::vector<Piece> all;
  std::vector<Piece> nothing;
  for (device_event const* one : loose) {
    all.push_back({one, wholeOf(*one)});
    nothing.push_back({one, 0});
  }
  for (std::size_t lost = 0; lost < looseNames.size(); ++lost) {
    use(build(all, looseNames.size(), lost));
  }
  for (std::size_t nameCount = 0; nameCount <= looseNames.size(); ++nameCount) {
    use(build(all, nameCount));
    use(build(nothing, nameCount));
    // Each single write when a sync is due, and otherwise the newest.
    bool const isDue = event == events.size() || events[event].kind == Kind::SyncFile;
    for (std::size_t index = isDue || loose.empty() ? 0 : loose.size() - 1; index < loose.size(); ++index) {
      std::vector<Piece> changed = all;
      changed[index].kept = 0;
      use(build(changed, nameCount));
      changed = nothing;
      changed[index] = all[index];
      use(build(changed, nameCount));
      for (std::size_t const tear : tearsOf(*loose[index])) {
        changed = all;
        changed[index].kept = tear;
        use(build(changed, nameCount));
        changed = nothing;
        changed[index].kept = tear;
        use(build(changed, nameCount));
      }
    }
  }
}

void power_cut::some(std::size_t event, int count, std::mt19937_64& random,
                     std::function<void(device_image const&)> const& use) {
  goTo(event);
  if (loose.empty() && looseNames.empty()) {
    return;
  }
  std::vector<std::vector<std::size_t>> tears;
  for (device_event const* one : loose) {
    tears.push_back(tearsOf(*one));
  }
  constexpr std::uint64_t odds = 8;
  for (int number = 0; number < count; ++number) {
    std::uint64_t const lost = random() % odds; // of the writes, in eighths
    std::vector<Piece> pieces;
    for (std::size_t index = 0; index < loose.size(); ++index) {
      std::size_t kept = wholeOf(*loose[index]);
      if (random() % odds < lost) {
        kept = 0;
      } else if (!tears[index].empty() && random() % odds == 0) {
        kept = tears[index][random() % tears[index].size()];
      }
      pieces.push_back({loose[index], kept});
    }
    use(build(pieces, random() % (looseNames.size() + 1)));
  }
}
